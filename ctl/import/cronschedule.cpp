#include "ctl/import/cronschedule.h"

#include <algorithm>
#include <map>
#include <optional>
#include <sstream>

#include "ctl/classic.h"
#include "ctl/import/times.h"

namespace VUKO::VUKOCrond::Ctl {

namespace {

const char* const FIELD_NAMES[] = {"minute", "hour", "day of month", "month", "day of week"};

/// A text that has one field of interest, the others being open.
std::string Alone(const std::string& strField, std::size_t uField) {
    std::string strText;
    for (std::size_t u = 0; u < TIME_FIELDS; ++u) {
        strText += (u == 0 ? "" : " ") + (u == uField ? strField : std::string("*"));
    }
    return strText;
}

/// A single number or name of a field.
std::optional<int> ReadValue(const std::string& strValue, std::size_t uField) {
    if (strValue.find_first_of("*,-/") != std::string::npos) {
        return std::nullopt;
    }
    const std::optional<ClassicText> text = ReadClassic(Alone(strValue, uField));
    return text ? std::optional<int>(*text->aFields[uField].setValues.begin()) : std::nullopt;
}

/// One field, in two parts: what classic crontabs know, and the random items that some of them have.
class Field {
public:
    Field(const std::string& strField, std::size_t uField) : _uField(uField) {
        // An empty item is none, wherever it stands.
        _bGood = ("," + strField + ",").find(",,") == std::string::npos;
        std::istringstream items(strField);
        for (std::string strItem; std::getline(items, strItem, ',');) {
            if (strItem.find('~') == std::string::npos) {
                _strPlain += (_strPlain.empty() ? "" : ",") + strItem;
            } else if (!AddRandom(strItem)) {
                _bGood = false;
            }
        }
        const std::string strRead = _strPlain.empty() && !_strRandom.empty() ? "*" : _strPlain;
        const std::optional<ClassicText> text = ReadClassic(Alone(strRead, uField));
        _bGood = _bGood && text;
        if (_bGood && !_strPlain.empty()) {
            _field = text->aFields[uField];
        }
    }

    bool IsGood() const { return _bGood; }
    bool IsRandom() const { return !_strRandom.empty(); }
    bool HasStar() const { return _field.bStar; }
    const std::set<int>& Values() const { return _field.setValues; }

    /// With the values that are left to this part of the line.
    std::string Text(const Times& times) const {
        const std::string strPlain = FieldText(times, _uField);
        return _strRandom.empty() || strPlain == "*" ? strPlain : strPlain + (strPlain.empty() ? "" : ",") + _strRandom;
    }

private:
    /// "~", "A~", "~B" or "A~B". Written with both ends: a "~" alone leaves out the last days of the month here.
    bool AddRandom(const std::string& strItem) {
        const std::size_t uTilde = strItem.find('~');
        const std::string strFrom = strItem.substr(0, uTilde);
        const std::string strTo = strItem.substr(uTilde + 1);
        const std::optional<int> from =
            strFrom.empty() ? std::optional<int>(*EveryValue(_uField).begin()) : ReadValue(strFrom, _uField);
        const std::optional<int> to =
            strTo.empty() ? std::optional<int>(*EveryValue(_uField).rbegin()) : ReadValue(strTo, _uField);
        if (!from || !to || *to < *from) {
            return false;
        }
        _strRandom += (_strRandom.empty() ? "" : ",") + std::to_string(*from) + "~" + std::to_string(*to);
        return true;
    }

    std::size_t _uField;
    std::string _strPlain;
    std::string _strRandom;
    ClassicText::Field _field;
    bool _bGood = true;
};

/// A classic cron treats a line as one of fixed times unless its minutes or hours begin with "*"; here a field of all
/// values is what counts.
bool IsOpenHere(const std::string& strText) {
    const std::vector<std::string> vecFields = SplitWords(strText);
    return vecFields[MINUTE] == "*" || vecFields[HOUR] == "*";
}

bool HasRandom(const std::vector<Field>& vecFields) {
    return std::any_of(vecFields.begin(), vecFields.end(), [](const Field& field) { return field.IsRandom(); });
}

void AddNotes(const std::vector<Field>& vecFields, CronSchedule& schedule) {
    if (HasRandom(vecFields)) {
        schedule.vecNotes.push_back({"random-kept", "the random value is drawn once and kept, also over restarts"});
    }
    if (schedule.vecTexts.size() > 1) {
        schedule.vecNotes.push_back({"days-by-or", "the days of the month and the weekdays are joined by OR there and "
                                                   "by AND here: two jobs, which share no minute, say the same"});
    }
    const bool bOpenThere = vecFields[MINUTE].HasStar() || vecFields[HOUR].HasStar();
    if (bOpenThere != IsOpenHere(schedule.vecTexts.front())) {
        schedule.vecNotes.push_back({"clock-change", std::string("when the clock changes, it is taken for a job ") +
                                                         (bOpenThere ? "of fixed times" : "that follows the clock") +
                                                         " here, unlike there"});
    }
}

/// Two restricted day fields are joined by OR, unless one of them begins with "*".
bool IsJoinedByOr(const std::vector<Field>& vecFields) {
    return !vecFields[DAY].HasStar() && !vecFields[WEEK].HasStar();
}

/// The minutes of a line, in parts that no text need split. What is random is none of their values.
std::vector<Times> PartsOf(const std::vector<Field>& vecFields) {
    Times times;
    for (std::size_t uField = 0; uField < TIME_FIELDS; ++uField) {
        times.aSets[uField] = vecFields[uField].Values();
    }
    std::vector<Times> vecParts = {times};
    if (HasRandom(vecFields)) {
        return vecParts;
    }
    if (IsJoinedByOr(vecFields)) {
        vecParts.push_back(times);
        vecParts[0].aSets[WEEK] = EveryValue(WEEK);
        vecParts[1].aSets[DAY] = EveryValue(DAY);
    }
    vecParts = Disjoint(vecParts);
    return vecParts.empty() ? std::vector<Times>{times} : vecParts; // of what never comes, something is left
}

std::string Span(int iFrom, int iTo) {
    return std::to_string(iFrom) + (iFrom == iTo ? "" : "-" + std::to_string(iTo));
}

/// What to write for an item that crons do not read alike; empty where there is no telling what is meant.
std::string Advice(const std::string& strItem, std::size_t uField) {
    const std::size_t uDash = strItem.find('-');
    const std::size_t uSlash = strItem.find('/');
    const int iLast = *EveryValue(uField).rbegin();
    const std::optional<int> from = ReadValue(strItem.substr(0, std::min(uDash, uSlash)), uField);
    if (from && uDash == std::string::npos && uSlash != std::string::npos) {
        return "; of \"" + strItem + "\" some take the first value alone, others go on from there: write \"" +
               Span(*from, *from) + "\" or \"" + Span(*from, iLast) + strItem.substr(uSlash) + "\"";
    }
    const std::optional<int> to = uDash != std::string::npos ? ReadValue(strItem.substr(uDash + 1), uField) : from;
    if (from && to && *to < *from) {
        return "; \"" + strItem + "\" ends before it begins, which some take for nothing at all: write \"" +
               Span(*from, iLast) + "," + Span(*EveryValue(uField).begin(), *to) + "\"";
    }
    return std::string();
}

std::string WhyNoField(const std::string& strField, std::size_t uField) {
    std::string strWhy = std::string(FIELD_NAMES[uField]) + " \"" + strField +
                         "\" is no list of values, ranges and steps that every cron reads alike";
    std::istringstream items(strField);
    for (std::string strItem; std::getline(items, strItem, ',');) {
        strWhy += Advice(strItem, uField);
    }
    return strWhy;
}

} // namespace

CronSchedule ConvertFields(const std::vector<std::string>& vecTexts) {
    CronSchedule schedule;
    std::vector<Field> vecFields;
    for (std::size_t uField = 0; uField < TIME_FIELDS; ++uField) {
        vecFields.emplace_back(vecTexts.at(uField), uField);
        if (!vecFields.back().IsGood()) {
            schedule.strReason = WhyNoField(vecTexts[uField], uField);
            return schedule;
        }
    }
    if (HasRandom(vecFields) && IsJoinedByOr(vecFields)) {
        schedule.strReason = "the day of the month and the day of the week are both restricted, which takes two jobs "
                             "here, and a random value is drawn for each job";
        return schedule;
    }
    for (const Times& part : PartsOf(vecFields)) {
        std::string strText;
        for (std::size_t uField = 0; uField < TIME_FIELDS; ++uField) {
            strText += (uField == 0 ? "" : " ") + vecFields[uField].Text(part);
        }
        schedule.vecTexts.push_back(strText);
    }
    AddNotes(vecFields, schedule);
    return schedule;
}

CronSchedule ConvertMacro(const std::string& strMacro) {
    static const std::map<std::string, const char*> mapMacros = {
        {"@yearly", "0 0 1 1 *"}, {"@annually", "0 0 1 1 *"}, {"@monthly", "0 0 1 * *"}, {"@weekly", "0 0 * * 0"},
        {"@daily", "0 0 * * *"},  {"@midnight", "0 0 * * *"}, {"@hourly", "0 * * * *"}};
    if (const auto it = mapMacros.find(strMacro); it != mapMacros.end()) {
        return ConvertFields(SplitWords(it->second));
    }
    CronSchedule schedule;
    schedule.strReason = strMacro == "@reboot"
                             ? "a start at boot is no time of the clock: a unit of the service manager "
                               "can do that"
                             : "\"" + strMacro + "\" is no schedule that every cron knows";
    return schedule;
}

} // namespace VUKO::VUKOCrond::Ctl
