#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

namespace VUKO::VUKOCrond::Service {

struct LaunchOrder;
struct LaunchPlan;

/// The umask that every program starts with.
constexpr mode_t JOB_UMASK = 022;
/// Where a program begins whose account has no home, or may not enter it.
constexpr const char* FOLDER_WITHOUT_HOME = "/";
/// What every program reads.
constexpr const char* JOB_INPUT = "/dev/null";

/// What a program would find around it, were it started now.
struct Surroundings {
    struct Limit {
        static constexpr std::uint64_t UNLIMITED = ~std::uint64_t{0};
        const char* szName = "";
        std::uint64_t uSoft = 0;
        std::uint64_t uHard = 0;
    };

    std::string strAccount;
    uid_t uid = 0;
    gid_t gid = 0;
    std::vector<gid_t> vecGroups;            ///< all of them, sorted
    std::vector<std::string> vecEnvironment; ///< NAME=VALUE
    std::string strFolder;                   ///< FOLDER_WITHOUT_HOME instead, where the account may not enter it
    std::vector<Limit> vecLimits;            ///< inherited from the service
    int iNice = 0;                           ///< the same
    int iOomScoreAdjust = 0;
    bool bJournal = false; ///< where standard output and standard error go: to the journal, or to a file
    std::string strOutput; ///< the identifier there, or the file
};

/// Tells of a launch what its child will do, out of the same sources.
Surroundings SurroundingsOf(const LaunchPlan& plan, const LaunchOrder& order);

} // namespace VUKO::VUKOCrond::Service
