/// A program that tells what it inherited, as JSON, into the file that is its first argument; it exits with the status
/// that is its second argument (0 without one).

#include <dirent.h>
#include <grp.h>
#include <json/json.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <fstream>
#include <vector>

extern char** environ;

namespace {

Json::Value Signals(bool bBlocked) {
    Json::Value jsSignals(Json::arrayValue);
    sigset_t setBlocked;
    sigprocmask(SIG_SETMASK, nullptr, &setBlocked);
    for (int i = 1; i < NSIG; ++i) {
        struct sigaction action = {};
        const bool bIgnored = sigaction(i, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
        if (bBlocked ? sigismember(&setBlocked, i) == 1 : bIgnored) {
            jsSignals.append(i);
        }
    }
    return jsSignals;
}

Json::Value Groups() {
    std::vector<gid_t> vecGroups(static_cast<std::size_t>(getgroups(0, nullptr)));
    getgroups(static_cast<int>(vecGroups.size()), vecGroups.data());
    Json::Value jsGroups(Json::arrayValue);
    for (const gid_t gid : vecGroups) {
        jsGroups.append(gid);
    }
    return jsGroups;
}

Json::Value Descriptors() {
    Json::Value jsDescriptors(Json::arrayValue);
    DIR* const pDir = opendir("/proc/self/fd");
    while (const struct dirent* const pEntry = readdir(pDir)) {
        const int iFd = atoi(pEntry->d_name);
        if (pEntry->d_name[0] != '.' && iFd != dirfd(pDir)) {
            jsDescriptors.append(iFd);
        }
    }
    closedir(pDir);
    return jsDescriptors;
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        return 98;
    }
    Json::Value js(Json::objectValue);
    for (int i = 0; i < argc; ++i) {
        js["argv"].append(argv[i]);
    }
    for (char** pEntry = environ; *pEntry != nullptr; ++pEntry) {
        js["environ"].append(*pEntry);
    }
    uid_t aUids[3] = {};
    getresuid(&aUids[0], &aUids[1], &aUids[2]);
    gid_t aGids[3] = {};
    getresgid(&aGids[0], &aGids[1], &aGids[2]);
    for (int i = 0; i < 3; ++i) {
        js["uids"].append(aUids[i]);
        js["gids"].append(aGids[i]);
    }
    js["groups"] = Groups();
    js["blocked"] = Signals(true);
    js["ignored"] = Signals(false);
    js["descriptors"] = Descriptors();
    char* const szCwd = getcwd(nullptr, 0);
    js["cwd"] = szCwd == nullptr ? "" : szCwd;
    free(szCwd);
    const mode_t uMask = umask(0);
    umask(uMask);
    js["umask"] = uMask;
    js["pid"] = getpid();
    js["ppid"] = getppid();
    js["pgid"] = getpgid(0);
    js["sid"] = getsid(0);
    std::ofstream fs(argv[1]);
    fs << js;
    fs.close();
    return argc > 2 ? atoi(argv[2]) : 0;
}
