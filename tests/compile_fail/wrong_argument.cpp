#include "base/syslog_line.h"

constexpr const char* szLogSource = "somewhere";

void Log(int iCount) {
    VUKO_LOG(LOG_ERR, 1, "%s is the name", iCount);
}
