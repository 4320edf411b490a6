#pragma once

#include <string>
#include <vector>

#include "crond/cronjob.h"

namespace VUKO::VUKOCrond::Service {

/// The schedule template in its file and its mirror: drawn once for the whole system, and kept.
class TemplateKeeper {
public:
    /// Reads the file, else the mirror, else draws a new template, and makes both hold it. A file that holds no
    /// template is set aside first.
    ///
    /// @param bMayWriteDisk  false while the disk is to sleep: the file is then written by a later Save().
    TemplateKeeper(std::string strPath, std::string strMirrorPath, bool bMayWriteDisk);

    /// One line each about what was met, fit for a log.
    std::vector<std::string> TakeNotes();

    int MaxDelay() const { return _template._iMaxDelay; }
    const ScheduleTemplate& Template() const { return _template; }

    /// Draws all values anew, or sets the delay: in the mirror at once, in the file by the next Save().
    ///
    /// @return the reason why that could not be kept, fit for a log line; empty when done.
    std::string Reroll();
    std::string SetMaxDelay(int iSeconds);
    /// Brings the file up to the mirror. Does nothing where it is. @return as above.
    std::string Save();

private:
    void SetAside(const std::string& strPath);
    std::string Keep();

    std::string _strPath;
    std::string _strMirrorPath;
    ScheduleTemplate _template;
    std::vector<std::string> _vecNotes;
    bool _bUnsaved = false;
};

} // namespace VUKO::VUKOCrond::Service
