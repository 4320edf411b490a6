#include "ctl/import/timers.h"

#include <algorithm>
#include <map>
#include <optional>

#include "ctl/import/calendar.h"
#include "ctl/import/croncommand.h"
#include "ctl/import/times.h"
#include "ctl/import/timespan.h"
#include "ctl/text.h"
#include "ctl/toolerror.h"
#include "ctl/zone.h"

namespace VUKO::VUKOCrond::Ctl {

namespace {

constexpr const char* TIMER = "Timer";
constexpr const char* KIND = ".timer";
constexpr const char* A_TEMPLATE = "it is a template: name an instance with --unit";

bool EndsWith(const std::string& strText, const std::string& strEnd) {
    return strText.size() >= strEnd.size() &&
           strText.compare(strText.size() - strEnd.size(), strEnd.size(), strEnd) == 0;
}

/// The name of a timer without ".timer".
std::string StemOf(const std::string& strTimer) {
    return strTimer.substr(0, strTimer.size() - std::string(KIND).size());
}

/// "%i" and its like, for the few that mean something in a timer. Nothing where another one is used.
std::optional<std::string> WithoutSpecifiers(const std::string& strText, const std::string& strUnit) {
    const std::size_t uDot = strUnit.rfind('.');
    const std::size_t uAt = std::min(strUnit.find('@'), uDot);
    const std::map<char, std::string> mapSpecifiers = {{'%', "%"},
                                                       {'i', uAt < uDot ? strUnit.substr(uAt + 1, uDot - uAt - 1) : ""},
                                                       {'p', strUnit.substr(0, uAt)},
                                                       {'n', strUnit},
                                                       {'N', strUnit.substr(0, uDot)}};
    std::string strResult;
    for (std::size_t u = 0; u < strText.size(); ++u) {
        if (strText[u] != '%') {
            strResult += strText[u];
            continue;
        }
        const auto it = ++u < strText.size() ? mapSpecifiers.find(strText[u]) : mapSpecifiers.end();
        if (it == mapSpecifiers.end()) {
            return std::nullopt;
        }
        strResult += it->second;
    }
    return strResult;
}

class TimerConverter {
public:
    TimerConverter(const UnitFolders& folders, std::string strName) : _folders(folders), _strName(std::move(strName)) {}

    /// @param bAskedFor  by name: then it is refused and not passed over where it has no calendar.
    ImportItem Convert(bool bAskedFor);

private:
    void Note(const char* szCode, const std::string& strText) { _item.vecNotes.push_back({szCode, strText}); }
    bool ReadTimer(bool bAskedFor);
    bool ReadTimes();
    bool ReadTarget();
    void SpreadOut();
    void LookAtRest();
    void Persist();
    bool Is(const char* szKey) const { return _timer.IsTrue(TIMER, szKey); }

    const UnitFolders& _folders;
    std::string _strName;
    Unit _timer;
    std::string _strTarget;
    bool _bWait = true;
    std::vector<Times> _vecTimes;
    std::string _strRandom; ///< five fields with a random value in the place of those of the only one of the times
    ImportItem _item;
};

bool TimerConverter::ReadTimer(bool bAskedFor) {
    const std::optional<Unit> timer = _folders.Read(_strName);
    if (!timer || _folders.IsMasked(_strName)) {
        _item.Refuse(timer ? "it is masked: systemd never starts it" : "it cannot be read");
        _item.eKind = bAskedFor ? ImportItem::Kind::Refused : ImportItem::Kind::Passed;
        return false;
    }
    _timer = *timer;
    for (const std::string& strValue : _timer.Values(TIMER, "OnCalendar")) {
        _item.strText += (_item.strText.empty() ? "" : "; ") + strValue;
    }
    std::string strOther;
    std::string strKeys;
    for (const char* const szKey : {"OnActiveSec", "OnBootSec", "OnStartupSec", "OnUnitActiveSec", "OnUnitInactiveSec",
                                    "OnClockChange", "OnTimezoneChange"}) {
        const std::string strValue = _timer.Value(TIMER, szKey);
        const bool bSwitchedOff = std::string(szKey).find("Change") != std::string::npos && !Is(szKey);
        if (!strValue.empty() && !bSwitchedOff) {
            strOther += (strOther.empty() ? "" : "; ") + std::string(szKey) + "=" + strValue;
            strKeys += (strKeys.empty() ? "" : ", ") + std::string(szKey) + "=";
        }
    }
    if (!_item.strText.empty() && strOther.empty()) {
        return true;
    }
    const bool bNoCalendar = _item.strText.empty();
    _item.strText += (bNoCalendar || strOther.empty() ? "" : "; ") + strOther;
    _item.Refuse(strOther.empty() ? "it has no OnCalendar=" : strKeys + ": no time of the clock");
    _item.eKind = bNoCalendar && !bAskedFor ? ImportItem::Kind::Passed : ImportItem::Kind::Refused;
    return false;
}

bool TimerConverter::ReadTimes() {
    for (const std::string& strRaw : _timer.Values(TIMER, "OnCalendar")) {
        const std::optional<std::string> value = WithoutSpecifiers(strRaw, _strName);
        const CalendarTimes calendar =
            value ? ReadCalendar(*value, ZoneName(std::string()))
                  : CalendarTimes{{}, {}, "it holds a specifier that is only known where the timer is loaded"};
        if (!calendar.strReason.empty()) {
            _item.Refuse("OnCalendar=" + Readable(strRaw) + ": " + calendar.strReason);
            return false;
        }
        _vecTimes.insert(_vecTimes.end(), calendar.vecTimes.begin(), calendar.vecTimes.end());
        _item.vecNotes.insert(_item.vecNotes.end(), calendar.vecNotes.begin(), calendar.vecNotes.end());
    }
    const Times first = _vecTimes.front();
    _vecTimes = Disjoint(_vecTimes);
    if (_vecTimes.empty()) {
        _vecTimes = {first}; // it never comes, there and here
    }
    if (_vecTimes.size() > 1) {
        Note("several", "no five fields say all of it: " + std::to_string(_vecTimes.size()) +
                            " jobs, no two of which share a minute, do");
    }
    return true;
}

bool TimerConverter::ReadTarget() {
    const std::string strUnit = _timer.Value(TIMER, "Unit");
    const std::optional<std::string> target = WithoutSpecifiers(strUnit, _strName);
    const bool bGood = target && target->find_first_of(" /") == std::string::npos;
    if (!bGood) {
        _item.Refuse("Unit=" + strUnit + " is not known before the timer is loaded");
        return false;
    }
    _strTarget = target->empty() ? StemOf(_strName) + ".service" : *target;
    const std::optional<Unit> unit = _folders.Read(_strTarget);
    if (!unit) {
        Note("no-unit", "there is no " + _strTarget + " in the folders: each start will fail");
    }
    _bWait = unit && EndsWith(_strTarget, ".service") && !unit->IsTrue("Service", "RemainAfterExit");
    if (!_bWait) {
        Note("no-wait", "the job ends when " + _strTarget + " is started, whatever becomes of it then");
    }
    return true;
}

/// A random delay becomes a random minute, of those that the delay allows.
void TimerConverter::SpreadOut() {
    const std::string strDelay = _timer.Value(TIMER, "RandomizedDelaySec");
    const double dDelay = strDelay.empty() ? 0 : ReadTimeSpan(strDelay);
    if (dDelay == 0) {
        return;
    }
    const Times& times = _vecTimes.front();
    const bool bOneMinute = _vecTimes.size() == 1 && times.aSets[MINUTE].size() == 1;
    const int iMinute = *times.aSets[MINUTE].begin();
    const int iLast = std::min(59, iMinute + static_cast<int>(std::min(dDelay, 3600.0) / 60));
    if (!bOneMinute || iLast <= iMinute) {
        Note("random-delay", "RandomizedDelaySec=" + strDelay + " is not kept: it starts on the minute");
        return;
    }
    const int iHours = static_cast<int>(std::min(dDelay, 86400.0) / 3600);
    std::string strHours = FieldText(times, HOUR);
    if (iMinute == 0 && iHours > 1 && times.aSets[HOUR].size() == 1) {
        const int iHour = *times.aSets[HOUR].begin();
        strHours =
            iHour == 23 ? strHours : std::to_string(iHour) + "~" + std::to_string(std::min(23, iHour + iHours - 1));
    }
    _strRandom = std::to_string(iMinute) + "~" + std::to_string(iLast) + " " + strHours;
    for (const std::size_t uField : {DAY, MONTH, WEEK}) {
        _strRandom += " " + FieldText(times, uField);
    }
    Note("random-delay",
         "RandomizedDelaySec=" + strDelay + " becomes a random time, drawn once and kept: \"" + _strRandom + "\"");
}

void TimerConverter::LookAtRest() {
    if (Is("WakeSystem")) {
        Note("wake", "WakeSystem=: a machine that sleeps is not woken");
    }
    for (const std::string& strKey : _timer.Keys("Unit")) {
        if (strKey.rfind("Condition", 0) == 0 || strKey.rfind("Assert", 0) == 0) {
            Note("condition", strKey + "= of the timer is not looked at");
        }
    }
    if (_folders.IsWanted(_strName)) {
        Note("twice", std::string("the timer goes on as well: systemctl ") +
                          (_folders.CanBeDisabled(_strName) ? "disable" : "mask") + " --now " + _strName);
    } else {
        Note("not-enabled", "the timer is not enabled: so far nothing has started at these times");
    }
}

/// A timer that makes up for what it missed while the machine was off is a job that has to have run within the longest
/// time between two of its starts. Of several jobs, each has its own.
void TimerConverter::Persist() {
    std::string strHours;
    for (std::size_t u = 0; u < _vecTimes.size(); ++u) {
        const int iGap = LongestGapHours({_vecTimes[u]});
        Json::Value& jsDefinition = _item.vecDefinitions[u];
        if (iGap > 0) {
            jsDefinition["assure_execute"] = iGap + 1;
            jsDefinition["assure_execute_action"] = "run";
            strHours += (strHours.empty() ? "" : ", ") + std::to_string(iGap + 1);
        }
    }
    const bool bSeveral = _vecTimes.size() > 1;
    Note("persistent", strHours.empty() ? "Persistent=: what is missed while the machine is off is not made up for"
                                        : "Persistent=: " + std::string(bSeveral ? "the jobs have" : "it has") +
                                              " to have run within " + strHours + " hours (assure_execute), else " +
                                              (bSeveral ? "each of them is started at once, where the timer starts once"
                                                        : "it is started at once"));
}

ImportItem TimerConverter::Convert(bool bAskedFor) {
    _item.strWhere = _strName;
    _item.strShort = StemOf(_strName);
    if (!ReadTimer(bAskedFor) || !ReadTimes() || !ReadTarget()) {
        return std::move(_item);
    }
    SpreadOut();
    _item.strName = SafeName(StemOf(_strName));
    for (const Times& times : _vecTimes) {
        Json::Value jsDefinition(Json::objectValue);
        jsDefinition["user"] = "root";
        jsDefinition["period"] = "crontab";
        jsDefinition["crontab"] = _strRandom.empty() ? TimesText(times) : _strRandom;
        for (const char* const szWord : {"/usr/bin/systemctl", "start", "--wait"}) {
            if (_bWait || szWord[0] != '-') {
                jsDefinition["cmd_list"].append(szWord);
            }
        }
        jsDefinition["cmd_list"].append("--");
        jsDefinition["cmd_list"].append(_strTarget);
        jsDefinition["description"] = Readable("imported from " + _strName + ", there \"" + _item.strText + "\"");
        _item.vecDefinitions.push_back(jsDefinition);
    }
    if (Is("Persistent")) {
        Persist();
    }
    LookAtRest();
    return std::move(_item);
}

bool IsTemplate(const std::string& strName) {
    return strName.find("@.") != std::string::npos;
}

ImportItem NotConverted(const std::string& strName, ImportItem::Kind eKind, const std::string& strWhy) {
    ImportItem item;
    item.strWhere = strName;
    item.strShort = StemOf(strName);
    item.Refuse(strWhy);
    item.eKind = eKind;
    return item;
}

std::string TimerName(const std::string& strName) {
    return EndsWith(strName, KIND) ? strName : strName + KIND;
}

} // namespace

ImportItems ConvertTimers(const UnitFolders& folders, const std::vector<std::string>& vecNames) {
    ImportItems items;
    for (const std::string& strAsked : vecNames) {
        const std::string strName = folders.RealName(TimerName(strAsked));
        if (strName.find('/') != std::string::npos || folders.FileOf(strName).empty()) {
            throw ToolError(EXIT_WRONG, "there is no timer " + strName + " in the folders of units");
        }
        items.vecItems.push_back(IsTemplate(strName) ? NotConverted(strName, ImportItem::Kind::Refused, A_TEMPLATE)
                                                     : TimerConverter(folders, strName).Convert(true));
    }
    for (const std::string& strName : vecNames.empty() ? folders.Names(KIND) : std::vector<std::string>()) {
        if (folders.RealName(strName) != strName) {
            continue; // an alias: the timer itself is there, too
        }
        if (IsTemplate(strName)) {
            items.vecItems.push_back(NotConverted(strName, ImportItem::Kind::Passed, A_TEMPLATE));
        } else if (folders.IsWanted(strName) || folders.IsMasked(strName)) {
            items.vecItems.push_back(TimerConverter(folders, strName).Convert(false));
        } else {
            items.vecItems.push_back(NotConverted(strName, ImportItem::Kind::Passed,
                                                  "it is not enabled: name it with --unit to import it all the same"));
        }
    }
    items.vecNotes = {{"unit", "the job starts the timer's unit, so all that the unit says still holds"},
                      {"clock", "minutes that nobody looked at are made up for, up to three hours of them"}};
    return items;
}

} // namespace VUKO::VUKOCrond::Ctl
