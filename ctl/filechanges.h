#pragma once

#include <json/json.h>

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "ctl/definitionfiles.h"

namespace VUKO::VUKOCrond::Ctl {

/// Changes of definitions that are made all or not at all. They are collected first, and nothing is written until all
/// are known; every write goes through the library's two stores.
class FileChanges {
public:
    /// Looks at a file now: what becomes of it until the commit is somebody else's change.
    void Watch(const FileName& file) { (void)ChangeOf(file); }
    /// Puts a definition in the place of another one, wherever that stands: in a file of several, the others stay.
    /// What is refused as a whole is written over, unless there are several. @throws ToolError
    void Replace(const Found& found, const Json::Value& jsDefinition);
    /// Takes a definition out of its file, also where it stands there several times; the file goes with the last one.
    /// A file that is refused goes as a whole.
    void Remove(const Found& found);
    /// Puts a definition into a file of its own, which is made. @throws ToolError where there is one already.
    void Add(const FileName& file, const Json::Value& jsDefinition);
    /// Puts a text for the whole of a file.
    void Rewrite(const FileName& file, const Json::Value& jsDocument);

    /// Writes. What is there when something fails, or when the service would refuse what was written, is what was there
    /// before; the message says so where that could not be had.
    ///
    /// @throws ToolError, also where a file was changed since it was looked at.
    void Commit();

private:
    struct Change {
        FileContent before;
        std::optional<Json::Value> after; ///< nothing: no file
    };

    Change& ChangeOf(const FileName& file);
    /// Whether all are new files of one folder, of which there are several.
    bool CanBeStaged() const;
    /// Both write all of it. @param vecWritten  what may have been written. @throws ToolError
    void WriteStaged(std::vector<FileName>& vecWritten);
    void WriteEach(std::vector<FileName>& vecWritten);
    void RequireUnchanged() const;
    /// @return what could not be put back, for the message; empty when all is as before.
    std::string TakeBack(const std::vector<FileName>& vecWritten);

    std::map<FileName, Change> _mapChanges;
};

} // namespace VUKO::VUKOCrond::Ctl
