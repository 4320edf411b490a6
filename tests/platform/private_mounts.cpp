#include "tests/platform/private_mounts.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace support {

namespace {

void Check(int iResult, const std::string& strWhat) {
    if (iResult < 0) {
        throw std::system_error(errno, std::generic_category(), strWhat);
    }
}

} // namespace

PrivateMounts::PrivateMounts()
    : _iOldNamespaceFd(open("/proc/self/ns/mnt", O_RDONLY | O_CLOEXEC)),
      _strOldFolder(std::filesystem::current_path().string()) {
    Check(_iOldNamespaceFd, "open the mount namespace");
    Check(unshare(CLONE_NEWNS), "unshare the mount namespace");
    Check(mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr), "make the mounts private");
}

PrivateMounts::~PrivateMounts() {
    if (setns(_iOldNamespaceFd, CLONE_NEWNS) != 0 || chdir(_strOldFolder.c_str()) != 0) {
        std::perror("back to the old mount namespace");
        std::abort(); // tests after this one would run in the wrong place
    }
    close(_iOldNamespaceFd);
}

void PrivateMounts::MountMemory(const std::string& strFolder, const std::string& strOptions) {
    const std::string strTarget = std::filesystem::canonical(strFolder).string();
    Check(mount("tmpfs", strTarget.c_str(), "tmpfs", 0, strOptions.c_str()), "mount a tmpfs on " + strTarget);
}

void PrivateMounts::Bind(const std::string& strSource, const std::string& strTarget) {
    const std::string strOnto = std::filesystem::canonical(strTarget).string();
    Check(mount(strSource.c_str(), strOnto.c_str(), nullptr, MS_BIND, nullptr), "bind " + strSource);
}

void PrivateMounts::MakeReadOnly(const std::string& strFolder) {
    Bind(strFolder, strFolder);
    Check(mount("none", strFolder.c_str(), nullptr, MS_BIND | MS_REMOUNT | MS_RDONLY, nullptr), "remount read-only");
}

} // namespace support
