#include "ctl/actas.h"

#include <grp.h>
#include <pwd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

namespace VUKO::VUKOCrond::Ctl {

ActAs::ActAs(uid_t uid) {
    const passwd* const pAccount = uid != 0 && geteuid() == 0 ? getpwuid(uid) : nullptr;
    const int iGroups = pAccount != nullptr ? getgroups(0, nullptr) : -1;
    if (iGroups < 0) {
        return;
    }
    _vecGroups.resize(static_cast<std::size_t>(iGroups));
    if (getgroups(iGroups, _vecGroups.data()) != iGroups) {
        return;
    }
    _gid = getegid();
    _bChanged = true;
    const gid_t gid = pAccount->pw_gid;
    if (setgroups(1, &gid) != 0 || setegid(gid) != 0 || seteuid(uid) != 0) {
        GoBack();
    }
}

ActAs::~ActAs() {
    GoBack();
}

/// The user first, as the others need its rights. What was root can always be root again.
void ActAs::GoBack() {
    if (!_bChanged) {
        return;
    }
    const int iErrno = errno; // of what was done meanwhile
    _bChanged = false;
    if (seteuid(0) != 0) {
        std::abort();
    }
    (void)!setegid(_gid);
    (void)!setgroups(_vecGroups.size(), _vecGroups.data());
    errno = iErrno;
}

} // namespace VUKO::VUKOCrond::Ctl
