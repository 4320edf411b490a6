#include "platform/vukosdk.h"

#include <pwd.h>
#include <unistd.h>

#include <cstddef>
#include <memory>
#include <new>

#include "platform/linux/lasterror.h"

namespace VUKO::PLATFORM {

namespace {

constexpr std::size_t BUFFER_START = 1024;
constexpr std::size_t BUFFER_MAX = std::size_t{1} << 20;

/// All bits set stands for "leave it" in the calls that set ids: an account with such an id would silently run as
/// somebody else.
constexpr uid_t NO_UID = static_cast<uid_t>(-1);
constexpr gid_t NO_GID = static_cast<gid_t>(-1);

struct Account {
    bool bFound = false;
    uid_t uid = NO_UID;
    gid_t gid = NO_GID;
};

std::size_t FirstBufferSize() {
    const long lSize = ::sysconf(_SC_GETPW_R_SIZE_MAX);
    return lSize > 0 && static_cast<std::size_t>(lSize) <= BUFFER_MAX ? static_cast<std::size_t>(lSize) : BUFFER_START;
}

/// @return 0 when the sources answered, with or without an account; else their errno value.
int AskSources(const char* szName, Account& account) {
    for (std::size_t uSize = FirstBufferSize();;) {
        const std::unique_ptr<char[]> szBuffer(new (std::nothrow) char[uSize]);
        if (szBuffer == nullptr) {
            return ENOMEM;
        }
        struct passwd entry = {};
        struct passwd* pFound = nullptr;
        const int iCode = ::getpwnam_r(szName, &entry, szBuffer.get(), uSize, &pFound);
        if (iCode == ERANGE && uSize < BUFFER_MAX) {
            uSize *= 2;
        } else if (iCode != EINTR) {
            if (iCode == 0 && pFound != nullptr) {
                account = {true, pFound->pw_uid, pFound->pw_gid};
            }
            return iCode;
        }
    }
}

/// @return 0, or the errno value for the caller; `bNone` tells that there is simply no such account.
int LookUp(const char* szName, Account& account) {
    const int iCode = AskSources(szName, account);
    if (iCode != 0) {
        return iCode;
    }
    if (account.bFound && (account.uid == NO_UID || account.gid == NO_GID)) {
        return EINVAL;
    }
    return 0;
}

} // namespace

} // namespace VUKO::PLATFORM

int VUKOUserGetUGID(const char* name, uid_t* uid, gid_t* gid) {
    VUKO::PLATFORM::ErrnoKeeper keeper;
    if (name == nullptr || uid == nullptr || gid == nullptr) {
        VUKO_SET_ERROR(EFAULT);
        keeper.LetGo();
        return -1;
    }
    VUKO::PLATFORM::Account account;
    if (const int iCode = VUKO::PLATFORM::LookUp(name, account); iCode != 0) {
        VUKO_SET_ERROR(iCode);
        keeper.LetGo();
        return -1;
    }
    if (!account.bFound) {
        VUKO_SET_ERROR(ENOENT); // errno itself goes back: nothing failed
        return -1;
    }
    *uid = account.uid;
    *gid = account.gid;
    return 0;
}
