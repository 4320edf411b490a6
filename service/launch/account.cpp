#include <grp.h>
#include <linux/capability.h>
#include <pwd.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "platform/vukosdk.h"
#include "service/launch/launcher.h"

namespace VUKO::VUKOCrond::Service {

namespace {

void FillHomeAndShell(Account& account) {
    constexpr std::size_t LARGEST = std::size_t{1} << 20;
    struct passwd entry = {};
    struct passwd* pFound = nullptr;
    for (std::vector<char> vecBuffer(1024); vecBuffer.size() <= LARGEST; vecBuffer.resize(vecBuffer.size() * 4)) {
        const int iCode = getpwnam_r(account.strName.c_str(), &entry, vecBuffer.data(), vecBuffer.size(), &pFound);
        if (iCode == ERANGE) {
            continue;
        }
        if (pFound != nullptr) {
            account.strHome = entry.pw_dir == nullptr ? "" : entry.pw_dir;
            account.strShell = entry.pw_shell == nullptr ? "" : entry.pw_shell;
        }
        return;
    }
}

bool HasIdentityCapabilities() {
    struct __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
    struct __user_cap_data_struct aData[_LINUX_CAPABILITY_U32S_3] = {};
    constexpr std::uint32_t NEEDED = (1U << CAP_SETUID) | (1U << CAP_SETGID);
    return syscall(SYS_capget, &header, aData) == 0 && (aData[0].effective & NEEDED) == NEEDED;
}

/// Whether a user namespace knows an id: the lines of its map are FIRST FIRST-OUTSIDE COUNT.
bool IsMapped(const char* szMap, std::uint64_t uId) {
    std::ifstream fs(szMap);
    std::uint64_t uFirst = 0;
    std::uint64_t uOutside = 0;
    std::uint64_t uCount = 0;
    while (fs >> uFirst >> uOutside >> uCount) {
        if (uId >= uFirst && uId - uFirst < uCount) {
            return true;
        }
    }
    return false;
}

bool MaySetGroups() {
    std::ifstream fs("/proc/self/setgroups");
    std::string strWord;
    return !(fs >> strWord) || strWord != "deny";
}

} // namespace

std::optional<Account> FindAccount(const std::string& strName) {
    Account account;
    account.strName = strName;
    if (strName.find('\0') != std::string::npos || VUKOUserGetUGID(strName.c_str(), &account.uid, &account.gid) != 0) {
        return std::nullopt;
    }
    FillHomeAndShell(account);
    return account;
}

bool CanBecome(const Account& account) {
    if (geteuid() != 0 || account.uid == geteuid()) {
        return true;
    }
    return HasIdentityCapabilities() && IsMapped("/proc/self/uid_map", account.uid) &&
           IsMapped("/proc/self/gid_map", account.gid) && MaySetGroups();
}

} // namespace VUKO::VUKOCrond::Service
