#include "platform/linux/lasterror.h"

#include "platform/vlibc.h"

namespace VUKO::PLATFORM {

namespace {

struct LastError {
    int iCode = 0;
    const char* szFile = "";
    int iLine = 0;
};

LastError& LastErrorOfThread() {
    static thread_local LastError lastError;
    return lastError;
}

} // namespace

void SetError(int iCode, const char* szFile, int iLine) {
    LastErrorOfThread() = {iCode, szFile, iLine};
    errno = iCode;
}

} // namespace VUKO::PLATFORM

unsigned VLIBCErrGet(void) {
    return static_cast<unsigned>(VUKO::PLATFORM::LastErrorOfThread().iCode);
}

const char* VLIBCErrorGetFile(void) {
    return VUKO::PLATFORM::LastErrorOfThread().szFile;
}

int VLIBCErrorGetLine(void) {
    return VUKO::PLATFORM::LastErrorOfThread().iLine;
}
