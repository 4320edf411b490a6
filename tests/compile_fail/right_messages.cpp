#include "base/syslog_line.h"

#include <string>

constexpr const char* szLogSource = "somewhere";

bool LogRightly(const std::string& strName, int iCount) {
    VUKO_LOG(LOG_ERR, 1, "nothing to do");
    VUKO_LOG(LOG_ERR, 2, "%s has %d", strName.c_str(), iCount);
    VUKO_LOG_PLAIN(LOG_INFO, 3, "%s has %d", strName.c_str(), iCount);
    return VUKO_FAILED(4, strName.empty() || iCount < 0);
}
