#pragma once

#include <string>
#include <vector>

namespace support {

/// Catches every syslog() of this process and of its forked children while it lives. Strict: a message that nobody took
/// fails the test. Messages are taken while nobody logs.
///
/// As with a real log daemon that cannot be reached, each call leaves errno changed, so that code which relies on errno
/// after a message is found out.
class CapturedSyslog {
public:
    CapturedSyslog();
    ~CapturedSyslog();
    CapturedSyslog(const CapturedSyslog&) = delete;
    CapturedSyslog& operator=(const CapturedSyslog&) = delete;

    /// The messages since the last call, each as "<PRIORITY>text", as in "<3>cronjob:166 parse error".
    std::vector<std::string> Take();

    /// The format strings that went with the messages of the last Take().
    const std::vector<std::string>& Formats() const;
};

} // namespace support
