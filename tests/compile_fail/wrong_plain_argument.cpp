#include "base/syslog_line.h"

constexpr const char* szLogSource = "somewhere";

void Log(int iCount) {
    VUKO_LOG_PLAIN(LOG_ERR, 1, "%s is the name", iCount);
}
