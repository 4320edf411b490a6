#pragma once

#include <cstdlib>
#include <ctime>
#include <optional>
#include <string>

namespace support {

/// Pins the process's time zone while it lives.
class ScopedTz {
public:
    explicit ScopedTz(const std::string& strZone) {
        if (const char* const szOld = std::getenv("TZ")) {
            _strOld = szOld;
        }
        setenv("TZ", strZone.c_str(), 1);
        tzset();
    }
    ~ScopedTz() {
        if (_strOld) {
            setenv("TZ", _strOld->c_str(), 1);
        } else {
            unsetenv("TZ");
        }
        tzset();
    }
    ScopedTz(const ScopedTz&) = delete;
    ScopedTz& operator=(const ScopedTz&) = delete;

private:
    std::optional<std::string> _strOld;
};

} // namespace support
