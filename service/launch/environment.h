#pragma once

#include <string>
#include <vector>

#include "service/launch/launcher.h"

namespace VUKO::VUKOCrond::Service {

/// The environment that a job of an account starts with, made anew: nothing of the service's own, its service manager's
/// variables above all, reaches a job. Of the service's variables, LANG and TZ are handed on, since they say what a
/// text or a time of day means on this system.
class JobEnvironment {
public:
    explicit JobEnvironment(const Account& account);

    /// As environ is. Lives as long as this object.
    char** Get() { return _vecPointers.data(); }

private:
    void Add(const char* szName, const std::string& strValue);

    std::vector<std::string> _vecEntries;
    std::vector<char*> _vecPointers;
};

} // namespace VUKO::VUKOCrond::Service
