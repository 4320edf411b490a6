#pragma once

#include <syslog.h>

#include <cerrno>

namespace VUKO {

/// Logs "Failed [condition], err=..." at LOG_ERR, in the form that errno selects, and returns true.
/// errno is read once, first, and is the same on return.
bool ReportFailedCondition(const char* szSource, int iNumber, const char* szCondition);

} // namespace VUKO

/// Logs one message: `szLogSource` and the number lead it, and " (%m)" ends it when errno is set at this moment.
///
/// Both forms are literals joined here, so the compiler checks the arguments against each of them, and a text that is
/// no literal does not compile. syslog() is called directly, never through a helper with a va_list: a program that
/// defines syslog() then sees every message with its own format. errno survives, because the call may change it (no
/// log daemon) and a second message about the same failure must still take the same form.
///
/// `__extension__` stands before the call because ISO C++ knows no %m.
#define VUKO_LOG(iPriority, iNumber, szText, ...)                                                                      \
    do {                                                                                                               \
        const int iErrnoToLog_ = errno;                                                                                \
        if (iErrnoToLog_ != 0) {                                                                                       \
            __extension__ syslog((iPriority), "%s:%d " szText " (%m)", szLogSource,                                    \
                                 static_cast<int>(iNumber) __VA_OPT__(, ) __VA_ARGS__);                                \
        } else {                                                                                                       \
            __extension__ syslog((iPriority), "%s:%d " szText, szLogSource,                                            \
                                 static_cast<int>(iNumber) __VA_OPT__(, ) __VA_ARGS__);                                \
        }                                                                                                              \
        errno = iErrnoToLog_;                                                                                          \
    } while (false)

/// The same for a message that has one form only, whatever errno says.
#define VUKO_LOG_PLAIN(iPriority, iNumber, szText, ...)                                                                \
    do {                                                                                                               \
        const int iErrnoToLog_ = errno;                                                                                \
        __extension__ syslog((iPriority), "%s:%d " szText, szLogSource,                                                \
                             static_cast<int>(iNumber) __VA_OPT__(, ) __VA_ARGS__);                                    \
        errno = iErrnoToLog_;                                                                                          \
    } while (false)

/// True, with a message that quotes the condition's own text, when the condition holds; the `return` stays with the
/// caller, where it can be seen: `if (VUKO_FAILED(181, !jsConf.isMember("user"))) { return false; }`
#define VUKO_FAILED(iNumber, ...) ((__VA_ARGS__) && ::VUKO::ReportFailedCondition(szLogSource, (iNumber), #__VA_ARGS__))
