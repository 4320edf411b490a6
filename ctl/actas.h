#pragma once

#include <sys/types.h>

#include <vector>

namespace VUKO::VUKOCrond::Ctl {

/// Lets root act with an account's rights, and no others, while it lives: whatever that account has put in the way of a
/// write in its own folder then leads to nothing that it could not do itself, and what is made is the account's.
///
/// Where the process is not root, or may not become that account, it stays what it is.
class ActAs {
public:
    explicit ActAs(uid_t uid);
    ~ActAs();
    ActAs(const ActAs&) = delete;
    ActAs& operator=(const ActAs&) = delete;

private:
    void GoBack();

    std::vector<gid_t> _vecGroups;
    gid_t _gid = 0;
    bool _bChanged = false;
};

} // namespace VUKO::VUKOCrond::Ctl
