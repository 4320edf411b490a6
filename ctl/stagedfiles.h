#pragma once

#include <string>
#include <utility>
#include <vector>

#include "ctl/place.h"

namespace VUKO::VUKOCrond::Ctl {

/// New definition files of a folder that come all or not at all, whenever the tool is killed. The library writes them
/// under names that the service does not read; a mark decides; then they are given their own names.
///
/// Whoever uses it holds the lock of the folder. All is done with the rights of the folder's owner.
class StagedFiles {
public:
    /// @param place  a folder that is there. @throws ToolError for a package that has none.
    explicit StagedFiles(Place place) : _place(std::move(place)) {}

    /// The name under which a file is written first; empty where there is no room for one.
    static std::string HiddenStem(const std::string& strStem);

    /// Brings to its end what a tool that was killed had decided, and takes away what it had not.
    void Begin() const;
    /// Takes away what was written.
    void GiveUp() const;
    /// From here on they are to be there. @return 0 or the errno value of the failure: nothing is decided then.
    int Decide() const;
    /// Gives them their names, and takes the mark away. What has come meanwhile under one of the names stays.
    ///
    /// @param vecShown  the names that were given, without ".conf". @return 0 or the errno value of the first failure.
    int Show(std::vector<std::string>& vecShown) const;

    /// Brings to its end what a tool that was killed had decided, where nobody holds the lock.
    static void Complete(const Place& place);

private:
    Place _place;
};

} // namespace VUKO::VUKOCrond::Ctl
