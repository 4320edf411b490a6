#include "tests/sim/zones/zonefiles.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>

namespace sim {

namespace {

constexpr const char* szZoneFolder = "/usr/share/zoneinfo";

constexpr std::time_t BEGIN_OF_2000 = 946'684'800;
constexpr std::time_t END_OF_2037 = 2'145'916'800;

long OffsetAt(std::time_t tInstant) {
    std::tm tmLocal = {};
    localtime_r(&tInstant, &tmLocal);
    return tmLocal.tm_gmtoff;
}

std::string Content(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

/// "posix" is the same again, and "right" counts leap seconds, which no machine's clock here does.
bool IsOtherTree(const std::filesystem::path& path) {
    return path.filename() == "posix" || path.filename() == "right";
}

} // namespace

std::vector<std::string> InstalledZones() {
    std::vector<std::string> vecNames;
    for (auto it = std::filesystem::recursive_directory_iterator(szZoneFolder);
         it != std::filesystem::recursive_directory_iterator(); ++it) {
        if (it->is_directory() && IsOtherTree(it->path())) {
            it.disable_recursion_pending();
        } else if (it->is_regular_file()) {
            vecNames.push_back(it->path().lexically_relative(szZoneFolder).string());
        }
    }
    std::sort(vecNames.begin(), vecNames.end());
    std::set<std::string> setContents;
    std::vector<std::string> vecDistinct;
    for (const std::string& strName : vecNames) {
        const std::string strContent = Content(std::filesystem::path(szZoneFolder) / strName);
        if (strContent.compare(0, 4, "TZif") == 0 && setContents.insert(strContent).second) {
            vecDistinct.push_back(strName);
        }
    }
    return vecDistinct;
}

std::vector<Transition> Transitions(std::time_t iStep) {
    std::vector<Transition> vecTransitions;
    long iBefore = OffsetAt(BEGIN_OF_2000);
    for (std::time_t tFrom = BEGIN_OF_2000; tFrom < END_OF_2037; tFrom += iStep) {
        const long iAfter = OffsetAt(tFrom + iStep);
        if (iAfter == iBefore) {
            continue;
        }
        std::time_t tOld = tFrom;
        std::time_t tNew = tFrom + iStep;
        while (tNew - tOld > 1) {
            const std::time_t tMiddle = tOld + (tNew - tOld) / 2;
            (OffsetAt(tMiddle) == iBefore ? tOld : tNew) = tMiddle;
        }
        vecTransitions.push_back({tNew, iBefore, OffsetAt(tNew)});
        iBefore = iAfter;
    }
    return vecTransitions;
}

} // namespace sim
