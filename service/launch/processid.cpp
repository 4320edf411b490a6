#include "service/launch/processid.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "service/uniquefd.h"

namespace VUKO::VUKOCrond::Service {

namespace {

struct ProcessState {
    char cState = 'X';
    std::uint64_t uStartTime = 0;
};

/// Reads /proc/PID/stat. Its second field is the program's name in parentheses, which may hold anything; what is
/// wanted comes behind the last of them: the state is the 3rd field, the start time the 22nd.
ProcessState ReadState(pid_t pid) {
    constexpr int FIELDS_BETWEEN = 19;
    char szText[1024];
    snprintf(szText, sizeof(szText), "/proc/%d/stat", static_cast<int>(pid));
    const UniqueFd fd(open(szText, O_RDONLY | O_CLOEXEC));
    const ssize_t iRead = fd ? read(fd.Get(), szText, sizeof(szText) - 1) : -1;
    if (iRead <= 0) {
        return {};
    }
    szText[iRead] = '\0';
    const char* szField = strrchr(szText, ')');
    if (szField == nullptr || strlen(szField) < 3) {
        return {};
    }
    ProcessState state;
    state.cState = szField[2];
    szField += 2;
    for (int i = 0; i < FIELDS_BETWEEN && szField != nullptr; ++i) {
        szField = strchr(szField + 1, ' ');
    }
    state.uStartTime = szField == nullptr ? 0 : strtoull(szField, nullptr, 10);
    return state;
}

} // namespace

std::uint64_t StartTimeOf(pid_t pid) {
    return ReadState(pid).uStartTime;
}

bool IsRunning(pid_t pid, std::uint64_t uStartTime) {
    if (pid <= 0) {
        return false;
    }
    const ProcessState state = ReadState(pid);
    return state.uStartTime == uStartTime && state.cState != 'Z' && state.cState != 'X';
}

} // namespace VUKO::VUKOCrond::Service
