#pragma once

#include <string>
#include <utility>
#include <vector>

namespace VUKO::VUKOCrond::Service {

/// Puts every folder and file of the library's constants, the two execution log files included, below another folder
/// while it lives. Without a folder it does nothing.
///
/// Keep it for as long as the library is used: the constants point into it.
class RootDir {
public:
    /// @param strRoot  an existing folder, relative to the working directory or absolute; empty for none.
    explicit RootDir(const std::string& strRoot);
    ~RootDir();
    RootDir(const RootDir&) = delete;
    RootDir& operator=(const RootDir&) = delete;

    /// Makes what the service needs below the folder: the four definition folders and the folders of the PID file and
    /// the logs. Without a folder the system's own are there or not, and nothing is made.
    ///
    /// @return the reason why that failed, fit for a log line; empty when all is there.
    std::string MakeFolders() const;

    /// A path of the service's own, below the folder.
    std::string Path(const char* szPath) const { return _strPrefix + szPath; }

private:
    struct Moved {
        const char** pConstant;
        const char* szFormer;
        std::string strPath;
    };

    std::string _strRoot;
    std::string _strPrefix;
    std::vector<Moved> _vecMoved;
    std::pair<std::string, std::string> _FormerLogPaths;
};

} // namespace VUKO::VUKOCrond::Service
