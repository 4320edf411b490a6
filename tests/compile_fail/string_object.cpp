#include "base/syslog_line.h"

#include <string>

constexpr const char* szLogSource = "somewhere";

void Log(const std::string& strName) {
    VUKO_LOG(LOG_ERR, 1, "%s is the name", strName);
}
