#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace VUKO::VUKOCrond::Ctl {

/// A file of lines that grows under its reader, is rotated away, or emptied.
class LineFile {
public:
    explicit LineFile(std::string strPath);
    ~LineFile();
    LineFile(const LineFile&) = delete;
    LineFile& operator=(const LineFile&) = delete;

    /// The whole lines that have come since the last call. Where another file has taken the name, the rest of the
    /// former comes first. A file that is not there has none.
    ///
    /// @throws ToolError when it may not be read, or cannot be
    std::vector<std::string> Take();
    /// What there was at the last call of a line that has not ended, or never will; empty: nothing.
    const std::string& Begun() const { return _strBegun; }
    /// Whether it was there at the last call.
    bool IsThere() const { return _iFd >= 0; }
    /// Waits until there may be more lines. @return false when the reader is asked to end (SIGINT, SIGTERM), or nobody
    /// reads standard output any more.
    bool Wait();

private:
    void Open();
    void ReadOn(std::vector<std::string>& vecLines);
    bool IsReplaced() const;

    std::string _strPath;
    std::string _strBegun; ///< of a line whose end has not come
    int _iFd = -1;
    int _iNotify = -1;
    off_t _iRead = 0;
};

} // namespace VUKO::VUKOCrond::Ctl
