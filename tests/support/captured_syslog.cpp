#include "tests/support/captured_syslog.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <mutex>

namespace {

struct Message {
    std::string strText;
    std::string strFormat;
};

std::mutex g_mutex;
bool g_bCapturing = false;
std::vector<Message> g_vecMessages;
std::vector<std::string> g_vecFormats;

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
    const std::lock_guard<std::mutex> lock(g_mutex);
    if (g_bCapturing) {
        g_vecMessages.push_back({"<" + std::to_string(iPriority) + ">" + strText, szFormat});
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
    const std::lock_guard<std::mutex> lock(g_mutex);
    g_bCapturing = true;
    g_vecMessages.clear();
}

CapturedSyslog::~CapturedSyslog() {
    const std::lock_guard<std::mutex> lock(g_mutex);
    g_bCapturing = false;
    for (const Message& message : g_vecMessages) {
        ADD_FAILURE() << "unexpected message: " << message.strText;
    }
    g_vecMessages.clear();
}

std::vector<std::string> CapturedSyslog::Take() {
    const std::lock_guard<std::mutex> lock(g_mutex);
    std::vector<std::string> vecTexts;
    g_vecFormats.clear();
    for (const Message& message : g_vecMessages) {
        vecTexts.push_back(message.strText);
        g_vecFormats.push_back(message.strFormat);
    }
    g_vecMessages.clear();
    return vecTexts;
}

const std::vector<std::string>& CapturedSyslog::Formats() const {
    return g_vecFormats;
}

} // namespace support
