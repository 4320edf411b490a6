#pragma once

#include <memory>
#include <string>
#include <vector>

namespace VUKO::VUKOCrond::Service {

/// Tells when something in the definition folders may have changed: files written, renamed, removed or of another mode
/// or owner, sub-folders of packages that come and go, the folders themselves. It says no more than "look again": what
/// counts is what a scan finds.
class FolderWatch {
public:
    /// @throws std::system_error when the kernel gives no watch at all.
    FolderWatch();
    ~FolderWatch();
    FolderWatch(const FolderWatch&) = delete;
    FolderWatch& operator=(const FolderWatch&) = delete;

    /// Watches the folders that are there now, and for one that is missing its nearest existing parent. To be called
    /// before each scan, so that nothing is missed between the two. Does little where all is watched already.
    void Renew();

    int Descriptor() const;
    /// Takes what was told off the descriptor. @return whether a scan is called for.
    bool Consume();
    /// Folders that could not be watched, and why (the limit on watches is reached, ...), one line each, told once.
    std::vector<std::string> TakeProblems();

private:
    struct Private;
    std::unique_ptr<Private> _p;
};

} // namespace VUKO::VUKOCrond::Service
