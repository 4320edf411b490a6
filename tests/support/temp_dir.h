#pragma once

#include <filesystem>
#include <string>

namespace support {

/// A folder of the test's own, removed with everything in it.
class TempDir {
public:
    TempDir();
    /// In that folder, which is there.
    explicit TempDir(const std::string& strParent);
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    /// The path of an entry in it.
    std::string operator/(const std::string& strName) const;
    const std::string& Path() const { return _strPath; }

private:
    std::string _strPath;
};

/// The whole content; the empty string for a file that cannot be read.
std::string ReadFile(const std::string& strPath);
void WriteFile(const std::string& strPath, const std::string& strContent);
/// Permission bits, or -1 when there is no such file.
int ModeOf(const std::string& strPath);
bool Exists(const std::string& strPath);

} // namespace support
