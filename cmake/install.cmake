# What an outsider may include; each compiles alone, and is installed.
set(VUKO_PUBLIC_HEADERS
  base/export.h
  crond/configmanager.h
  crond/cronjob.h
  crond/pkgconfigmanager.h
  crond/utils.h
  logger/memorylogger.h
  platform/launchhooks.h
  platform/vlibc.h
  platform/vukojson.h
  platform/vukorandom.h
  platform/vukosdk.h
  platform/vukosystemd.h
  platform/vukoutils.h
)

include(CMakePackageConfigHelpers)

set(VUKO_INSTALL_HEADERS ${CMAKE_INSTALL_INCLUDEDIR}/vuko)
set(VUKO_INSTALL_PACKAGE ${CMAKE_INSTALL_LIBDIR}/cmake/vukocrond)
set(VUKO_INSTALL_PKGCONFIG ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# What is installed finds its parts by where they lie beside it, so that a tree works under any prefix, without ldconfig,
# and where it was moved to. (A program's own search path, and LD_LIBRARY_PATH, come first.)
file(RELATIVE_PATH VUKO_LIBDIR_FROM_SBINDIR ${CMAKE_INSTALL_FULL_SBINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
file(RELATIVE_PATH VUKO_PREFIX_FROM_PKGCONFIG
  ${CMAKE_INSTALL_PREFIX}/${VUKO_INSTALL_PKGCONFIG} ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" VUKO_PREFIX_FROM_PKGCONFIG ${VUKO_PREFIX_FROM_PKGCONFIG})
set_target_properties(crond PROPERTIES INSTALL_RPATH $ORIGIN)
file(RELATIVE_PATH VUKO_LIBDIR_FROM_BINDIR ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
set_target_properties(vukocrond_service PROPERTIES INSTALL_RPATH $ORIGIN/${VUKO_LIBDIR_FROM_SBINDIR})
set_target_properties(vukocronctl PROPERTIES INSTALL_RPATH $ORIGIN/${VUKO_LIBDIR_FROM_BINDIR})

foreach(header ${VUKO_PUBLIC_HEADERS})
  cmake_path(GET header PARENT_PATH folder)
  install(FILES ${header} DESTINATION ${VUKO_INSTALL_HEADERS}/${folder})
endforeach()
foreach(library crond platform)
  target_include_directories(${library} INTERFACE $<INSTALL_INTERFACE:${VUKO_INSTALL_HEADERS}>)
  target_compile_features(${library} INTERFACE cxx_std_17)
endforeach()
install(TARGETS crond platform EXPORT vukocrond LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(TARGETS vukocrond_service RUNTIME DESTINATION ${CMAKE_INSTALL_SBINDIR})
install(TARGETS vukocronctl RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(FILES docs/man/vukocronctl.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
install(FILES docs/man/vukocron.conf.5 docs/man/vukocrond.conf.5 DESTINATION ${CMAKE_INSTALL_MANDIR}/man5)
install(FILES docs/man/vukocrond.8 DESTINATION ${CMAKE_INSTALL_MANDIR}/man8)

# For whoever sets up a pair of machines, see docs/HA.md.
install(FILES packaging/ha/keepalived.conf packaging/ha/keepalived.service.conf packaging/ha/vukocrond-role.tmpfiles
  DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples/ha)
install(PROGRAMS packaging/ha/vukocrond-role DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples/ha)

# Where each shell looks for the completions of a package. A distribution may have them elsewhere.
set(VUKO_INSTALL_BASH_COMPLETIONS ${CMAKE_INSTALL_DATADIR}/bash-completion/completions CACHE STRING
  "Folder of bash's completions")
set(VUKO_INSTALL_ZSH_COMPLETIONS ${CMAKE_INSTALL_DATADIR}/zsh/site-functions CACHE STRING
  "Folder of zsh's completions")
install(FILES packaging/completion/vukocronctl.bash DESTINATION ${VUKO_INSTALL_BASH_COMPLETIONS} RENAME vukocronctl)
install(FILES packaging/completion/_vukocronctl DESTINATION ${VUKO_INSTALL_ZSH_COMPLETIONS})

# Below the prefix like all else, in the folder that systemd has for units of packages. Where the prefix is /usr, a
# package sets CMAKE_INSTALL_SYSCONFDIR to /etc, which is where logrotate looks.
set(VUKO_INSTALL_UNITS lib/systemd/system)
pkg_get_variable(VUKO_SYSTEMD_UNITS systemd systemdsystemunitdir)
if(VUKO_SYSTEMD_UNITS)
  string(REGEX REPLACE "^/(usr/)?" "" VUKO_INSTALL_UNITS ${VUKO_SYSTEMD_UNITS})
endif()
# The unit names the program where it is installed, which is known when it is.
install(CODE "
  cmake_path(APPEND VUKO_SBINDIR \"\${CMAKE_INSTALL_PREFIX}\" \"${CMAKE_INSTALL_SBINDIR}\")
  configure_file(\"${PROJECT_SOURCE_DIR}/packaging/vukocrond.service.in\"
    \"${CMAKE_CURRENT_BINARY_DIR}/vukocrond.service\" @ONLY)")
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/vukocrond.service DESTINATION ${VUKO_INSTALL_UNITS})
install(FILES packaging/vukocrond.tmpfiles DESTINATION lib/tmpfiles.d RENAME vukocrond.conf)
install(FILES packaging/vukocrond.logrotate DESTINATION ${CMAKE_INSTALL_SYSCONFDIR}/logrotate.d RENAME vukocrond)

install(EXPORT vukocrond NAMESPACE vuko:: FILE vukocrondTargets.cmake DESTINATION ${VUKO_INSTALL_PACKAGE})
configure_package_config_file(cmake/vukocrondConfig.cmake.in ${CMAKE_CURRENT_BINARY_DIR}/vukocrondConfig.cmake
  INSTALL_DESTINATION ${VUKO_INSTALL_PACKAGE} NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/vukocrondConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES
  ${CMAKE_CURRENT_BINARY_DIR}/vukocrondConfig.cmake
  ${CMAKE_CURRENT_BINARY_DIR}/vukocrondConfigVersion.cmake
  DESTINATION ${VUKO_INSTALL_PACKAGE})

configure_file(cmake/vukocrond.pc.in vukocrond.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/vukocrond.pc DESTINATION ${VUKO_INSTALL_PKGCONFIG})
