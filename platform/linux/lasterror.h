#pragma once

#include <cerrno>

namespace VUKO::PLATFORM {

/// Makes `iCode` both errno and the calling thread's last platform error. Use VUKO_SET_ERROR.
///
/// @param szFile  a text that lives as long as the program.
void SetError(int iCode, const char* szFile, int iLine);

/// Puts errno back at the end of its scope. What a call meets on its way to a success (a folder that was there already,
/// an account source that had no answer) is no news to the caller, and the callers' messages take their form by errno.
class ErrnoKeeper {
public:
    ErrnoKeeper() : _iErrno(errno) {}
    ~ErrnoKeeper() {
        if (_bArmed) {
            errno = _iErrno;
        }
    }
    ErrnoKeeper(const ErrnoKeeper&) = delete;
    ErrnoKeeper& operator=(const ErrnoKeeper&) = delete;

    /// For a failure: errno stays what it is at the end of the scope.
    void LetGo() { _bArmed = false; }

private:
    const int _iErrno;
    bool _bArmed = true;
};

} // namespace VUKO::PLATFORM

/// Records a failure here. VUKO_SET_ERROR(errno) leaves errno as the failed call set it.
#define VUKO_SET_ERROR(iCode) ::VUKO::PLATFORM::SetError((iCode), __FILE_NAME__, __LINE__)
