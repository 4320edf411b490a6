#pragma once

#include <json/json.h>

#include <iosfwd>
#include <string>
#include <vector>

#include "ctl/import/plan.h"

namespace VUKO::VUKOCrond::Ctl {

/// What an import has done, or would do.
struct ImportReport {
    std::string strSource; ///< the crontab, or "timers"
    Place place;
    std::vector<PlannedItem> vecItems;
    std::vector<Note> vecNotes; ///< about all of them
    bool bDryRun = false;
    bool bGood = false; ///< nothing keeps it from being stored
    bool bStored = false;

    std::size_t Count(PlannedJob::State eState) const;
    std::size_t CountRefused() const;
    /// Of jobs that are new, or take the place of others.
    std::size_t CountToStore() const { return Count(PlannedJob::State::New) + Count(PlannedJob::State::Replacing); }
};

Json::Value ReportJson(const ImportReport& report);

/// For people where standard output is a terminal, else a line for each thing that is told, which begins with where it
/// stands and what it is.
void PrintReport(std::ostream& out, const ImportReport& report);

} // namespace VUKO::VUKOCrond::Ctl
