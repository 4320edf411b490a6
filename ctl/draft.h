#pragma once

#include <string>

namespace VUKO::VUKOCrond::Ctl {

/// A text in a private file, for an editor. The file goes with this object unless it is kept.
class Draft {
public:
    /// @param strName  of the file, for whoever sees it in the editor. @throws ToolError
    Draft(const std::string& strName, const std::string& strText);
    ~Draft();
    Draft(const Draft&) = delete;
    Draft& operator=(const Draft&) = delete;

    const std::string& Path() const { return _strPath; }
    /// Lets the user edit it, with $VUKOCRONCTL_EDITOR, $VISUAL or $EDITOR, else what is usual.
    ///
    /// @throws ToolError where there is no editor, or it fails.
    void Edit() const;
    /// Leaves the file to the user. @return where it is.
    const std::string& Keep();

private:
    std::string _strFolder;
    std::string _strPath;
    bool _bKept = false;
};

} // namespace VUKO::VUKOCrond::Ctl
