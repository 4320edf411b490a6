#pragma once

#include <json/json.h>

#include <optional>
#include <string>
#include <vector>

#include "ctl/definitionfiles.h"
#include "ctl/import/item.h"
#include "ctl/place.h"

namespace VUKO::VUKOCrond::Ctl {

struct ImportOptions {
    Place place;
    std::string strPrefix; ///< of the jobs' names
    bool bDisabled = false;
    bool bReplace = false;
};

/// A job that an item becomes.
struct PlannedJob {
    enum class State { New, Existing, Replacing, Conflict };
    State eState = State::New;
    Json::Value jsDefinition; ///< with its name
    std::optional<Found> found;

    std::string Name() const { return jsDefinition["name"].asString(); }
    /// Of the file that it stands in, or will.
    std::string Path(const Place& place) const { return found ? found->file.Path() : FileName{place, Name()}.Path(); }
};

struct PlannedItem {
    ImportItem item;
    std::vector<PlannedJob> vecJobs;
};

/// Gives the items' jobs their names, finds those that were imported before, and holds every definition against what
/// the service takes: an item of which one is refused is refused.
///
/// The names are made of what a job runs, with a number where that is not enough. A job that says the same as one that
/// is there under one of these names is that one; whether that is enabled does not count.
std::vector<PlannedItem> PlanImport(std::vector<ImportItem> vecItems, const ImportOptions& options);

/// Stores what is new or replaces something, all of it or nothing. @throws ToolError
void StorePlan(const std::vector<PlannedItem>& vecItems, const Place& place);

} // namespace VUKO::VUKOCrond::Ctl
