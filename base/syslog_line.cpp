#include "base/syslog_line.h"

namespace VUKO {

bool ReportFailedCondition(const char* szSource, int iNumber, const char* szCondition) {
    const char* const szLogSource = szSource;
    VUKO_LOG(LOG_ERR, iNumber, "Failed [%s], err=%m", szCondition);
    return true;
}

} // namespace VUKO
