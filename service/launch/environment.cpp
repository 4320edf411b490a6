#include "service/launch/environment.h"

#include <cstdlib>

namespace VUKO::VUKOCrond::Service {

namespace {

constexpr const char* ROOTS_PATH = "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin";
constexpr const char* OTHERS_PATH = "/usr/local/bin:/usr/bin:/bin";

std::string Or(const std::string& strText, const char* szOtherwise) {
    return strText.empty() ? szOtherwise : strText;
}

std::string Own(const char* szName) {
    const char* const szValue = std::getenv(szName);
    return szValue == nullptr ? std::string() : szValue;
}

} // namespace

JobEnvironment::JobEnvironment(const Account& account) {
    Add("PATH", account.uid == 0 ? ROOTS_PATH : OTHERS_PATH);
    Add("SHELL", Or(account.strShell, "/bin/sh"));
    Add("HOME", Or(account.strHome, "/"));
    Add("USER", account.strName);
    Add("LOGNAME", account.strName);
    Add("LANG", Or(Own("LANG"), "C.UTF-8"));
    if (std::getenv("TZ") != nullptr) {
        Add("TZ", Own("TZ"));
    }
    for (std::string& strEntry : _vecEntries) { // not before: the texts move while there are more to come
        _vecPointers.push_back(strEntry.data());
    }
    _vecPointers.push_back(nullptr);
}

void JobEnvironment::Add(const char* szName, const std::string& strValue) {
    _vecEntries.push_back(std::string(szName) + "=" + strValue);
}

} // namespace VUKO::VUKOCrond::Service
