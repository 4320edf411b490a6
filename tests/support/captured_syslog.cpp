#include "tests/support/captured_syslog.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>

#include "tests/support/shared_record.h"

namespace {

std::atomic<bool> g_bCapturing = false;
std::vector<std::string> g_vecFormats;

/// Shared with forked children, so that what a child logs is seen too. Each entry is the format and the message, with
/// a NUL between them.
support::SharedRecord& Messages() {
    static support::SharedRecord record;
    return record;
}

void Record(int iPriority, const char* szFormat, va_list args) {
    const int iErrno = errno;
    va_list argsCopy;
    va_copy(argsCopy, args);
    const int iLength = vsnprintf(nullptr, 0, szFormat, argsCopy);
    va_end(argsCopy);
    std::string strText(static_cast<std::size_t>(iLength) + 1, '\0');
    errno = iErrno; // for %m
    vsnprintf(strText.data(), strText.size(), szFormat, args);
    strText.pop_back();
    if (g_bCapturing) {
        Messages().Append(std::string(szFormat) + '\0' + "<" + std::to_string(iPriority) + ">" + strText);
    }
    errno = ENOTCONN; // what a log daemon that is gone leaves behind
}

} // namespace

// The program's own definitions come before the C library's, the fortified ones included.
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#undef syslog
#undef vsyslog
extern "C" {
void vsyslog(int iPriority, const char* szFormat, va_list args);
void vsyslog(int iPriority, const char* szFormat, va_list args) {
    Record(iPriority, szFormat, args);
}
void syslog(int iPriority, const char* szFormat, ...);
void syslog(int iPriority, const char* szFormat, ...) {
    va_list args;
    va_start(args, szFormat);
    Record(iPriority, szFormat, args);
    va_end(args);
}
void __vsyslog_chk(int iPriority, int iFlag, const char* szFormat, va_list args);
void __vsyslog_chk(int iPriority, int /*iFlag*/, const char* szFormat, va_list args) {
    Record(iPriority, szFormat, args);
}
void __syslog_chk(int iPriority, int iFlag, const char* szFormat, ...);
void __syslog_chk(int iPriority, int /*iFlag*/, const char* szFormat, ...) {
    va_list args;
    va_start(args, szFormat);
    Record(iPriority, szFormat, args);
    va_end(args);
}
}

namespace support {

CapturedSyslog::CapturedSyslog() {
    Messages().Clear();
    g_bCapturing = true;
}

CapturedSyslog::~CapturedSyslog() {
    g_bCapturing = false;
    for (const std::string& strMessage : Take()) {
        ADD_FAILURE() << "unexpected message: " << strMessage;
    }
}

std::vector<std::string> CapturedSyslog::Take() {
    std::vector<std::string> vecTexts;
    g_vecFormats.clear();
    for (const std::string& strEntry : Messages().Texts()) {
        const std::size_t uEnd = strEntry.find('\0');
        g_vecFormats.push_back(strEntry.substr(0, uEnd));
        vecTexts.push_back(strEntry.substr(uEnd + 1));
    }
    Messages().Clear();
    return vecTexts;
}

const std::vector<std::string>& CapturedSyslog::Formats() const {
    return g_vecFormats;
}

} // namespace support
