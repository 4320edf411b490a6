#include "service/launch/surroundings.h"

#include <grp.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>

#include "service/launch/launchchild.h"

namespace VUKO::VUKOCrond::Service {

namespace {

std::vector<gid_t> OwnGroups() {
    std::vector<gid_t> vecGroups(static_cast<std::size_t>(std::max(0, getgroups(0, nullptr))));
    vecGroups.resize(
        static_cast<std::size_t>(std::max(0, getgroups(static_cast<int>(vecGroups.size()), vecGroups.data()))));
    return vecGroups;
}

/// As initgroups() finds them.
std::vector<gid_t> GroupsOf(const Account& account) {
    constexpr int MOST = 65536;
    int iCount = 64;
    for (std::vector<gid_t> vecGroups;;) {
        vecGroups.resize(static_cast<std::size_t>(iCount));
        const int iRoom = iCount;
        if (getgrouplist(account.strName.c_str(), account.gid, vecGroups.data(), &iCount) >= 0) {
            vecGroups.resize(static_cast<std::size_t>(iCount));
            return vecGroups;
        }
        iCount = std::max(iCount, 2 * iRoom);
        if (iCount > MOST) {
            return {account.gid};
        }
    }
}

bool IsFolder(const std::string& strPath) {
    struct stat stFolder = {};
    return stat(strPath.c_str(), &stFolder) == 0 && S_ISDIR(stFolder.st_mode);
}

std::vector<Surroundings::Limit> OwnLimits() {
    constexpr std::pair<int, const char*> KINDS[] = {
        {RLIMIT_AS, "as"},           {RLIMIT_CORE, "core"},         {RLIMIT_CPU, "cpu"},
        {RLIMIT_DATA, "data"},       {RLIMIT_FSIZE, "fsize"},       {RLIMIT_LOCKS, "locks"},
        {RLIMIT_MEMLOCK, "memlock"}, {RLIMIT_MSGQUEUE, "msgqueue"}, {RLIMIT_NICE, "nice"},
        {RLIMIT_NOFILE, "nofile"},   {RLIMIT_NPROC, "nproc"},       {RLIMIT_RSS, "rss"},
        {RLIMIT_RTPRIO, "rtprio"},   {RLIMIT_RTTIME, "rttime"},     {RLIMIT_SIGPENDING, "sigpending"},
        {RLIMIT_STACK, "stack"}};
    std::vector<Surroundings::Limit> vecLimits;
    for (const auto& [iKind, szName] : KINDS) {
        struct rlimit limit = {};
        if (getrlimit(static_cast<__rlimit_resource_t>(iKind), &limit) == 0) {
            static_assert(RLIM_INFINITY == Surroundings::Limit::UNLIMITED);
            vecLimits.push_back({szName, limit.rlim_cur, limit.rlim_max});
        }
    }
    return vecLimits;
}

int OwnOomScoreAdjust() {
    std::ifstream fs("/proc/self/oom_score_adj");
    int iScore = 0;
    fs >> iScore;
    return iScore;
}

} // namespace

Surroundings SurroundingsOf(const LaunchPlan& plan, const LaunchOrder& order) {
    const Account& account = order.account;
    Surroundings found;
    found.strAccount = account.strName;
    found.uid = plan.bRoot ? account.uid : geteuid();
    found.gid = plan.bRoot ? account.gid : getegid();
    found.vecGroups = plan.bRoot ? GroupsOf(account) : OwnGroups();
    std::sort(found.vecGroups.begin(), found.vecGroups.end());
    JobEnvironment environment(account);
    for (char** pEntry = environment.Get(); *pEntry != nullptr; ++pEntry) {
        found.vecEnvironment.emplace_back(*pEntry);
    }
    found.strFolder = IsFolder(account.strHome) ? account.strHome : FOLDER_WITHOUT_HOME;
    found.vecLimits = OwnLimits();
    found.iNice = getpriority(PRIO_PROCESS, 0);
    found.iOomScoreAdjust = plan.bOomLowered ? 0 : OwnOomScoreAdjust();
    found.bJournal = plan.bJournal;
    found.strOutput =
        plan.bJournal ? order.strIdentifier : JobOutput::FileOf(order.strIdentifier, plan.strOutputFolder);
    return found;
}

} // namespace VUKO::VUKOCrond::Service
