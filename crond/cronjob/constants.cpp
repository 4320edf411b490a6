#include "crond/cronjob.h"

namespace VUKO::VUKOCrond {

const char* SZK_MINUTE = "Minute";
const char* SZK_HOUR = "hour";
const char* SZK_DAY = "day";
const char* SZK_MONTH = "month";
const char* SZK_WEEK = "week";

const char* SZK_SERVICE_NAME = "vukocrond";

const char* SZK_CRON_FOLDER_BUILT_IN = "builtin";
const char* SZK_CRON_FOLDER_BUILT_IN_DYN = "builtin-dyn";
const char* SZK_CRON_FOLDER_PKG = "pkg";
const char* SZK_CRON_FOLDER_PKG_NONROOT = "pkg_nonroot";

const char* SZF_CRON_FOLDER_BUILT_IN = "/usr/vuko/share/vukocron.d";
const char* SZF_CRON_FOLDER_BUILT_IN_DYN = "/usr/vuko/etc/vukocron.d";
const char* SZF_CRON_FOLDER_PKG = "/usr/local/etc/vukocron.d";
const char* SZF_CRON_FOLDER_PKG_NONROOT = "/usr/local/etc/vukocron_nonroot.d";

const char* SZF_CRON_RUNTIME_CONFIG = "/usr/vuko/etc/vukocrond.config";
const char* SZF_CRON_RUNTIME_CONFIG_MIRROR = "/var/run/vukocrond.config";
const char* SZF_CRON_SCHEDULE_TEMPLATE_CONFIG = "/usr/vuko/etc/vukocrond.st.config";
const char* SZF_CRON_SCHEDULE_TEMPLATE_CONFIG_MIRROR = "/var/run/vukocrond.st.config";

const char* SZF_PIDPATH = "/var/run/vukocrond.pid";
const char* SZF_CRON_MEMLOG = "/tmp/vukocrond.log";
const char* SZF_CRON_LOG_EXEC = "/var/log/vukocrond-execute.log";
const char* SZF_TMP_BIN_FOLDER = "/tmp/vukocrond";

const std::int32_t SLEEP_TIME = 60;
const std::int32_t MAX_DELAY_BETWEEN_JOBS = 300;

// In this file, after the paths: within one file objects are built from top to bottom, so the paths are set before the
// log is built from them.
MemoryLogger CronJob::gLogger(SZF_CRON_LOG_EXEC, SZF_CRON_MEMLOG, 1024);

} // namespace VUKO::VUKOCrond
