#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace VUKO::VUKOCrond::Ctl {

/// The folders that systemd reads the units of the system from, the one that wins first.
std::vector<std::string> UsualUnitFolders();

/// A unit as systemd would read it: its file, and the drop-ins that go with it.
class Unit {
public:
    /// The values that a setting was given, in order; an empty one takes back those before it, and is not among them.
    std::vector<std::string> Values(const std::string& strSection, const std::string& strKey) const;
    /// The last of them; empty where there is none.
    std::string Value(const std::string& strSection, const std::string& strKey) const;
    bool IsTrue(const std::string& strSection, const std::string& strKey) const;
    /// Names of the settings of a section.
    std::vector<std::string> Keys(const std::string& strSection) const;

    void ReadText(const std::string& strText);

private:
    std::map<std::string, std::map<std::string, std::vector<std::string>>> _mapSections;
};

/// The units of some folders.
class UnitFolders {
public:
    explicit UnitFolders(std::vector<std::string> vecFolders) : _vecFolders(std::move(vecFolders)) {}

    /// The file of a unit, of its template for an instance; an empty path where there is none.
    std::string FileOf(const std::string& strName) const;
    /// Whether the unit is masked: its file is empty or a link to /dev/null.
    bool IsMasked(const std::string& strName) const;
    /// The real name of an alias, else the name itself.
    std::string RealName(const std::string& strName) const;
    /// Reads file and drop-ins. Nothing where there is no file, or none that can be read.
    std::optional<Unit> Read(const std::string& strName) const;
    /// Units of a kind (".timer") that have a file, by name; instances that are wanted are among them.
    std::vector<std::string> Names(const std::string& strKind) const;
    /// Whether another unit wants it: it is started at boot, as far as files tell.
    bool IsWanted(const std::string& strName) const;
    /// Whether `systemctl disable` can take back that it is wanted: it is wanted in /etc.
    bool CanBeDisabled(const std::string& strName) const;

private:
    std::vector<std::string> DropIns(const std::string& strName) const;
    std::vector<std::string> WantedIn(const std::string& strFolder) const;

    std::vector<std::string> _vecFolders;
};

/// "foo@.timer" of "foo@bar.timer"; empty for what is no instance.
std::string TemplateOf(const std::string& strName);

} // namespace VUKO::VUKOCrond::Ctl
