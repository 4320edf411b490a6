#include "crond/cronjob.h"

namespace VUKO::VUKOCrond {

namespace {

std::string RenderField(const std::vector<int>& vecValues) {
    if (vecValues.empty()) {
        return "X";
    }
    std::string strField;
    for (const int iValue : vecValues) {
        if (!strField.empty()) {
            strField += ',';
        }
        strField += std::to_string(iValue);
    }
    return strField;
}

} // namespace

std::string CronJob::ToCurrentCrontabString() const {
    std::string strLine;
    for (const std::string& strType : GetAllScheduleTypes()) {
        if (!strLine.empty()) {
            strLine += ' ';
        }
        strLine += RenderField(GetGeneratedScheduleByType(strType));
    }
    return strLine;
}

} // namespace VUKO::VUKOCrond
