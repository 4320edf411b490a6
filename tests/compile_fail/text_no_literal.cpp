#include "base/syslog_line.h"

constexpr const char* szLogSource = "somewhere";

void Log(const char* szText) {
    VUKO_LOG(LOG_ERR, 1, szText);
}
