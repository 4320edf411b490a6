#pragma once

#include <sys/types.h>

#include <functional>
#include <map>
#include <string>
#include <utility>

namespace fake {

/// What a call of the platform is to do next. A test sets what it needs; everything else succeeds.
struct PlatformState {
    enum class Fork {
        Real,      ///< a real child
        Fail,      ///< -1 with iForkErrno
        ActAsChild ///< 0 in this very process
    };
    Fork eFork = Fork::Real;
    int iForkErrno = 0;

    int iExecvResult = 0; ///< what VLIBCExecv() returns
    int iExecvErrno = 0;  ///< and leaves in errno, when not 0
    int iExecResult = 0;  ///< what VLIBCExec() returns

    std::map<std::string, std::pair<uid_t, gid_t>> mapAccounts = {{"root", {0, 0}}};
    int iAccountResult = 0; ///< what a look-up that finds the account returns
    int iAccountErrno = 0;  ///< errno after a look-up that finds nothing, when not 0

    int iInitgroupsErrno = 0; ///< not 0: the call fails with it
    int iSetgidErrno = 0;
    int iSetuidErrno = 0;

    bool bNoMemoryForVectors = false; ///< new (std::nothrow) T[n] gives a null pointer

    std::function<void()> onCall; ///< looks at the world just before each call is noted
};

PlatformState& Platform();

/// A fresh platform and an empty call record for one test.
class ScopedPlatform {
public:
    ScopedPlatform();
    ~ScopedPlatform();
    ScopedPlatform(const ScopedPlatform&) = delete;
    ScopedPlatform& operator=(const ScopedPlatform&) = delete;
};

} // namespace fake
