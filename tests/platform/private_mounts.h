#pragma once

#include <string>

namespace support {

/// A mount namespace of the test's own, for the life of the object; what is mounted in it is seen by nobody else and
/// goes with it. Needs root, and a process of one thread.
class PrivateMounts {
public:
    PrivateMounts();
    ~PrivateMounts();
    PrivateMounts(const PrivateMounts&) = delete;
    PrivateMounts& operator=(const PrivateMounts&) = delete;

    /// An empty file system in memory; options as in mount(8): "size=64k".
    void MountMemory(const std::string& strFolder, const std::string& strOptions = "");
    /// Shows one file or folder in the place of another.
    void Bind(const std::string& strSource, const std::string& strTarget);
    /// Shows a folder read-only.
    void MakeReadOnly(const std::string& strFolder);

private:
    int _iOldNamespaceFd;
    std::string _strOldFolder;
};

} // namespace support
