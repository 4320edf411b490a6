#pragma once

#include <chrono>
#include <string>

namespace VUKO {

/// Keeps other processes from appending to, copying or deleting the file at a path while this object lives.
///
/// Without it a line that one process appends between another's copying and deleting is lost, and a file that two
/// processes copy at once is in the log twice; that happens whenever several jobs start in the same minute. The lock is
/// advisory (flock) and lies on the file itself, so no further file is needed, and the kernel lifts it when a process
/// dies. Since the holder may delete the file, a lock counts only if the file still stands at the path.
///
/// Waiting is bounded: a holder that is stopped, or a stranger who may read the file and locks it out of malice, must
/// not keep jobs from starting. After that, and where the file cannot be opened, the owner goes on without the lock.
///
/// In a folder that others may write, as /tmp is, a stranger may have put something where the file is to stand: a link
/// to a file that is then written or copied, or a file that they read or write themselves. There only a regular file
/// counts that belongs to root or to the process's own account and has no second name. Anything else is not opened
/// through, not waited for, and taken away where the file is to be made. As nobody but its owner can replace a file in
/// such a folder (/tmp is sticky), what has been found good can be opened by its path while the lock is held.
class StagingLock {
public:
    enum class IfMissing {
        Create, ///< with the process's default mode
        Leave   ///< there is nothing to lock then
    };

    /// A holder needs microseconds; a minute's worth of jobs that start at once needs less than this. Only a holder
    /// that is stopped, or no honest one, is waited for in vain.
    static constexpr std::chrono::milliseconds PATIENCE{3000};

    /// Waits until nobody else holds the file. errno is left alone unless the file could not be opened.
    StagingLock(const std::string& strPath, IfMissing eIfMissing, std::chrono::milliseconds patience = PATIENCE);
    ~StagingLock();
    StagingLock(const StagingLock&) = delete;
    StagingLock& operator=(const StagingLock&) = delete;

    bool IsHeld() const { return _iFd != -1; }

    /// There was no such file. One that is there by now is another process's, which has just begun it.
    bool WasMissing() const { return _bMissing; }

    /// Something stands there that is a stranger's, and must not be used.
    bool IsForeign() const { return _bForeign; }

private:
    void Open(const std::string& strPath, int iFlags, bool bShared);
    void Close();

    int _iFd = -1;
    bool _bMissing = false;
    bool _bForeign = false;
};

} // namespace VUKO
