#pragma once

#include <json/json.h>

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "ctl/place.h"
#include "service/definitions/definitionscan.h"

namespace VUKO::VUKOCrond::Ctl {

/// A definition file by its place and its name without ".conf", which is how the library names it.
struct FileName {
    Place place;
    std::string strStem;

    auto operator<=>(const FileName&) const = default;

    std::string Path() const { return place.Path() + "/" + strStem + ".conf"; }
};

/// What a definition file holds at one moment.
struct FileContent {
    std::optional<Json::Value> document; ///< nothing: there is no file, or none that can be read
    std::string strReason;               ///< why a file that is there cannot be read; empty otherwise
    uid_t uidOwner = 0;                  ///< of a file that is there
    /// It is a regular file that the service would trust, so another one may take its place and inherit its mode.
    bool bIsSound = true;

    bool IsThere() const { return document.has_value() || !strReason.empty(); }
    bool operator==(const FileContent&) const = default;
};

/// Reads it as the service does: no link is followed, nothing but a regular file is opened.
FileContent ReadContent(const FileName& file);

/// The bytes of a definition file, whatever they are. @throws ToolError
std::string ReadText(const FileName& file);

/// Where a job stands.
struct Found {
    Service::JobId id;
    FileName file;
    /// Nothing: the file of that name holds something that the service refuses.
    std::optional<Json::Value> definition;
};

/// The jobs that the definition folders define, as the service sees them at this moment; it need not run.
class DefinedJobs {
public:
    DefinedJobs();

    /// Finds a job by FOLDER/NAME, FOLDER/PACKAGE/NAME, or its name alone where no other has it. An account that owns
    /// packages means a job of these first.
    ///
    /// @throws ToolError where there is none, or several.
    Found Find(const std::string& strJob) const;
    std::optional<Found> Find(const Service::JobId& id) const;
    /// The same for several, each of them once, all of which the caller may change. @throws ToolError
    std::vector<Found> FindToChange(const std::vector<std::string>& vecNames) const;
    /// All files that define the job, the first of which counts.
    std::vector<Found> FindAll(const Service::JobId& id) const;

    /// What is refused of a file and was not in `former`, or of its folder: a package that has too much.
    std::vector<std::string> NewRefusals(const DefinedJobs& former, const FileName& file) const;
    bool IsRefused(const FileName& file) const;
    /// The first thing that the service has against a file, which begins with its path; empty where it has nothing.
    std::string WhyRefused(const FileName& file) const;

private:
    std::optional<Found> FindRefused(const Service::JobId& id) const;
    std::vector<Found> FindByName(const std::string& strName, const std::vector<Place>& vecPlaces) const;

    Service::DefinitionScan _scan;
};

} // namespace VUKO::VUKOCrond::Ctl
