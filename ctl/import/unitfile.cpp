#include "ctl/import/unitfile.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <sstream>

namespace VUKO::VUKOCrond::Ctl {

namespace {

namespace fs = std::filesystem;

std::string Stripped(const std::string& strText) {
    const std::size_t uFrom = strText.find_first_not_of(" \t\r");
    return uFrom == std::string::npos ? std::string()
                                      : strText.substr(uFrom, strText.find_last_not_of(" \t\r") - uFrom + 1);
}

std::optional<std::string> ReadFile(const std::string& strPath) {
    std::error_code ecIgnored;
    std::ifstream in(strPath, std::ios::binary);
    if (!in || fs::is_directory(strPath, ecIgnored)) {
        return std::nullopt;
    }
    return std::string(std::istreambuf_iterator<char>(in), {});
}

/// The entries of a folder; none where there is no folder.
std::vector<fs::path> EntriesOf(const std::string& strFolder) {
    std::error_code ec;
    std::vector<fs::path> vecEntries;
    for (const fs::directory_entry& entry : fs::directory_iterator(strFolder, ec)) {
        vecEntries.push_back(entry.path());
    }
    return vecEntries;
}

bool EndsWith(const std::string& strText, const std::string& strEnd) {
    return strText.size() > strEnd.size() &&
           strText.compare(strText.size() - strEnd.size(), strEnd.size(), strEnd) == 0;
}

bool IsThere(const std::string& strPath) {
    std::error_code ecIgnored;
    return fs::symlink_status(strPath, ecIgnored).type() != fs::file_type::not_found;
}

std::string LinkTarget(const std::string& strPath) {
    std::error_code ec;
    const fs::path target = fs::read_symlink(strPath, ec);
    return ec ? std::string() : target.string();
}

/// The names whose ".d" folders go with a unit, the one that wins first: its own, its template's, those of its prefixes
/// ("a-b-.timer", "a-.timer"), and that of all of its kind.
std::vector<std::string> DropInNames(const std::string& strName) {
    std::vector<std::string> vecNames = {strName};
    if (const std::string strTemplate = TemplateOf(strName); !strTemplate.empty()) {
        vecNames.push_back(strTemplate);
    }
    const std::size_t uDot = strName.rfind('.');
    const std::string strKind = strName.substr(uDot);
    const std::string strStem = strName.substr(0, strName.find('@') == std::string::npos ? uDot : strName.find('@'));
    for (std::size_t u = strStem.rfind('-'); u != std::string::npos && u > 0; u = strStem.rfind('-', u - 1)) {
        if (u + 1 < strStem.size()) {
            vecNames.push_back(strStem.substr(0, u + 1) + strKind);
        }
    }
    vecNames.push_back(strKind.substr(1));
    return vecNames;
}

} // namespace

std::string TemplateOf(const std::string& strName) {
    const std::size_t uAt = strName.find('@');
    const std::size_t uDot = strName.rfind('.');
    const bool bInstance = uAt != std::string::npos && uDot != std::string::npos && uAt + 1 < uDot;
    return bInstance ? strName.substr(0, uAt + 1) + strName.substr(uDot) : std::string();
}

std::vector<std::string> UsualUnitFolders() {
    return {"/etc/systemd/system.control",   "/run/systemd/system.control",  "/run/systemd/transient",
            "/run/systemd/generator.early",  "/etc/systemd/system",          "/etc/systemd/system.attached",
            "/run/systemd/system",           "/run/systemd/system.attached", "/run/systemd/generator",
            "/usr/local/lib/systemd/system", "/usr/lib/systemd/system",      "/lib/systemd/system",
            "/run/systemd/generator.late"};
}

void Unit::ReadText(const std::string& strText) {
    std::istringstream in(strText.rfind("\xef\xbb\xbf", 0) == 0 ? strText.substr(3) : strText);
    std::string strSection;
    std::string strJoined;
    for (std::string strRaw; std::getline(in, strRaw);) {
        const std::string strLine = Stripped(strRaw);
        if (!strLine.empty() && (strLine.front() == '#' || strLine.front() == ';')) {
            continue; // also between the parts of a line
        }
        if (!strLine.empty() && strLine.back() == '\\') {
            strJoined += strLine.substr(0, strLine.size() - 1) + " ";
            continue;
        }
        const std::string strWhole = Stripped(strJoined + strLine);
        strJoined.clear();
        if (!strWhole.empty() && strWhole.front() == '[' && strWhole.back() == ']') {
            strSection = strWhole.substr(1, strWhole.size() - 2);
        } else if (const std::size_t uEqual = strWhole.find('='); uEqual != std::string::npos) {
            std::vector<std::string>& vecValues = _mapSections[strSection][Stripped(strWhole.substr(0, uEqual))];
            const std::string strValue = Stripped(strWhole.substr(uEqual + 1));
            if (strValue.empty()) {
                vecValues.clear();
            } else {
                vecValues.push_back(strValue);
            }
        }
    }
}

std::vector<std::string> Unit::Values(const std::string& strSection, const std::string& strKey) const {
    const auto itSection = _mapSections.find(strSection);
    if (itSection == _mapSections.end()) {
        return {};
    }
    const auto itKey = itSection->second.find(strKey);
    return itKey != itSection->second.end() ? itKey->second : std::vector<std::string>();
}

std::string Unit::Value(const std::string& strSection, const std::string& strKey) const {
    const std::vector<std::string> vecValues = Values(strSection, strKey);
    return vecValues.empty() ? std::string() : vecValues.back();
}

bool Unit::IsTrue(const std::string& strSection, const std::string& strKey) const {
    static const std::set<std::string> setTrue = {"1", "yes", "y", "true", "t", "on", "Yes", "True", "On"};
    return setTrue.count(Value(strSection, strKey)) != 0;
}

std::vector<std::string> Unit::Keys(const std::string& strSection) const {
    std::vector<std::string> vecKeys;
    if (const auto it = _mapSections.find(strSection); it != _mapSections.end()) {
        for (const auto& [strKey, vecValues] : it->second) {
            if (!vecValues.empty()) {
                vecKeys.push_back(strKey);
            }
        }
    }
    return vecKeys;
}

std::string UnitFolders::FileOf(const std::string& strName) const {
    for (const std::string& strOne : {strName, TemplateOf(strName)}) {
        for (const std::string& strFolder : _vecFolders) {
            if (!strOne.empty() && IsThere(strFolder + "/" + strOne)) {
                return strFolder + "/" + strOne;
            }
        }
    }
    return std::string();
}

bool UnitFolders::IsMasked(const std::string& strName) const {
    const std::string strFile = FileOf(strName);
    std::error_code ec;
    return LinkTarget(strFile) == "/dev/null" || (fs::is_regular_file(strFile, ec) && fs::file_size(strFile, ec) == 0);
}

std::string UnitFolders::RealName(const std::string& strName) const {
    std::string strReal = strName;
    for (int i = 0; i < 8; ++i) { // a link may lead in a circle
        const std::string strTarget = fs::path(LinkTarget(FileOf(strReal))).filename().string();
        if (!EndsWith(strTarget, strName.substr(strName.rfind('.'))) || strTarget == TemplateOf(strReal)) {
            break;
        }
        strReal = strTarget;
    }
    return strReal;
}

std::vector<std::string> UnitFolders::DropIns(const std::string& strName) const {
    // Of files of one name, the one in the folder that wins counts; all of them apply in the order of their names.
    std::map<std::string, std::string> mapFiles;
    for (const std::string& strOwner : DropInNames(strName)) {
        for (const std::string& strFolder : _vecFolders) {
            for (const fs::path& path : EntriesOf(strFolder + "/" + strOwner + ".d")) {
                if (EndsWith(path.filename().string(), ".conf")) {
                    mapFiles.emplace(path.filename().string(), path.string());
                }
            }
        }
    }
    std::vector<std::string> vecFiles;
    for (const auto& [strBase, strPath] : mapFiles) {
        vecFiles.push_back(strPath);
    }
    return vecFiles;
}

std::optional<Unit> UnitFolders::Read(const std::string& strName) const {
    const std::optional<std::string> text = ReadFile(FileOf(RealName(strName)));
    if (!text) {
        return std::nullopt;
    }
    Unit unit;
    unit.ReadText(*text);
    for (const std::string& strFile : DropIns(strName)) {
        if (const std::optional<std::string> more = ReadFile(strFile)) {
            unit.ReadText(*more);
        }
    }
    return unit;
}

std::vector<std::string> UnitFolders::WantedIn(const std::string& strFolder) const {
    std::vector<std::string> vecNames;
    for (const fs::path& path : EntriesOf(strFolder)) {
        const std::string strName = path.filename().string();
        if (EndsWith(strName, ".wants") || EndsWith(strName, ".requires") || EndsWith(strName, ".upholds")) {
            for (const fs::path& wanted : EntriesOf(path.string())) {
                vecNames.push_back(wanted.filename().string());
            }
        }
    }
    return vecNames;
}

std::vector<std::string> UnitFolders::Names(const std::string& strKind) const {
    std::set<std::string> setNames;
    for (const std::string& strFolder : _vecFolders) {
        for (const fs::path& path : EntriesOf(strFolder)) {
            setNames.insert(path.filename().string());
        }
        for (const std::string& strName : WantedIn(strFolder)) {
            setNames.insert(strName);
        }
    }
    std::vector<std::string> vecNames;
    std::copy_if(setNames.begin(), setNames.end(), std::back_inserter(vecNames),
                 [&](const std::string& strName) { return EndsWith(strName, strKind) && !FileOf(strName).empty(); });
    return vecNames;
}

bool UnitFolders::IsWanted(const std::string& strName) const {
    return std::any_of(_vecFolders.begin(), _vecFolders.end(), [&](const std::string& strFolder) {
        const std::vector<std::string> vecWanted = WantedIn(strFolder);
        return std::find(vecWanted.begin(), vecWanted.end(), strName) != vecWanted.end();
    });
}

bool UnitFolders::CanBeDisabled(const std::string& strName) const {
    const std::optional<Unit> unit = Read(strName);
    return unit && !unit->Keys("Install").empty();
}

} // namespace VUKO::VUKOCrond::Ctl
