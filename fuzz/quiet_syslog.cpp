/// Takes the place of syslog() in the fuzzers: renders each message, so that a wrong argument is found, and drops it.

#include <cstdarg>
#include <cstdio>

extern "C" void syslog(int iPriority, const char* szFormat, ...);
extern "C" void syslog(int /*iPriority*/, const char* szFormat, ...) {
    char aText[512];
    va_list args;
    va_start(args, szFormat);
    static_cast<void>(vsnprintf(aText, sizeof(aText), szFormat, args));
    va_end(args);
}
