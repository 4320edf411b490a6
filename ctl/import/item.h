#pragma once

#include <json/json.h>

#include <string>
#include <vector>

namespace VUKO::VUKOCrond::Ctl {

/// Something that is not quite the same here.
struct Note {
    std::string strCode; ///< stable, for programs
    std::string strText;
};

/// What is made of one line of a crontab, or of one timer.
struct ImportItem {
    enum class Kind {
        Job,     ///< becomes `vecDefinitions`
        Setting, ///< holds for the lines that follow
        Passed,  ///< is none of what is moved: `strReason` says why
        Refused  ///< cannot be expressed: `strReason` says why
    };
    Kind eKind = Kind::Job;
    std::string strWhere; ///< "/etc/crontab:17", "apt-daily.timer"
    std::string strShort; ///< the same within its file: "line 17", "apt-daily"
    std::string strText;  ///< as it stands there
    std::string strReason;
    std::string strName;                     ///< that its jobs should have
    std::vector<Json::Value> vecDefinitions; ///< without their names
    std::vector<Note> vecNotes;

    void Refuse(const std::string& strWhy) {
        eKind = Kind::Refused;
        strReason = strWhy;
        vecDefinitions.clear();
        vecNotes.clear();
    }
};

/// What is made of a crontab or of the timers, in the order in which they stand there.
struct ImportItems {
    std::vector<ImportItem> vecItems;
    std::vector<Note> vecNotes; ///< about all of them
};

} // namespace VUKO::VUKOCrond::Ctl
