# What an outsider may include; each compiles alone, and is installed.
set(VUKO_PUBLIC_HEADERS
  base/export.h
  crond/configmanager.h
  crond/cronjob.h
  crond/pkgconfigmanager.h
  crond/utils.h
  logger/memorylogger.h
  platform/vlibc.h
  platform/vukojson.h
  platform/vukorandom.h
  platform/vukosdk.h
  platform/vukosystemd.h
  platform/vukoutils.h
)
