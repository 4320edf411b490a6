#pragma once

#include <memory>
#include <string>
#include <vector>

namespace VUKO::VUKOCrond::Service {

/// Tells when something in the definition folders may have changed: files written, renamed, removed or of another mode
/// or owner, sub-folders of packages that come and go, the folders themselves. It says no more than "look again": what
/// counts is what a scan finds. A folder further up that is renamed says nothing, and neither do network file systems
/// that another machine writes to: a slow rescan has to find those.
///
/// Whoever may write a package's folder can call for scans without end. The owner of this object decides how soon one
/// follows another; a short pause also spares a file that is made and then written a scan in between.
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
    /// Takes what was told off the descriptor, or as much of it as is read quickly: the descriptor stays readable when
    /// there is more. What concerns only names that a scan passes over is passed over. When the kernel has lost events,
    /// a scan is called for.
    ///
    /// @return whether a scan is called for.
    bool Consume();
    /// Folders that could not be watched, and why (the limit on watches is reached, ...), one line each, told once.
    std::vector<std::string> TakeProblems();

private:
    struct Private;
    std::unique_ptr<Private> _p;
};

} // namespace VUKO::VUKOCrond::Service
