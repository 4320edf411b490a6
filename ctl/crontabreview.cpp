#include "ctl/crontabreview.h"

#include <algorithm>
#include <charconv>
#include <set>
#include <utility>

#include "ctl/classic.h"
#include "ctl/fields.h"
#include "service/logtext.h"

namespace VUKO::VUKOCrond::Ctl {

namespace {

using Service::Quoted;

constexpr const char* FIELD_NAMES[] = {"minute", "hour", "day", "month", "weekday"};
constexpr const char* WHITE_SPACE = " \t\n\v\f\r";

/// What the library takes for fields; where that are not five, what is parted by anything like a blank.
std::vector<Piece> FieldsOf(const Piece& text) {
    std::vector<Piece> vecFields = PiecesOf(text, " ");
    return vecFields.size() == FIELD_COUNT ? vecFields : PiecesOf(text, WHITE_SPACE);
}

/// An item without what the library passes over around a number.
Piece WithoutWhiteSpace(const Piece& item) {
    const std::size_t uBegin = std::min(item.strText.find_first_not_of(WHITE_SPACE), item.strText.size());
    const std::size_t uEnd = item.strText.find_last_not_of(WHITE_SPACE) + 1;
    return uBegin < uEnd ? Piece{item.strText.substr(uBegin, uEnd - uBegin), item.uFrom + uBegin} : item;
}

/// Whether a classic crontab joins this day field to the other one by AND.
bool BeginsWithStar(const Piece& field) {
    return field.strText.front() == '*';
}

bool IsAny(const Piece& field) {
    const std::vector<Piece> vecItems = PiecesOf(field, ",");
    return std::any_of(vecItems.begin(), vecItems.end(), [](const Piece& item) { return item.strText[0] == '*'; });
}

bool HoldsLetter(const std::string& strText) {
    return std::any_of(strText.begin(), strText.end(),
                       [](char c) { return ('a' <= c && c <= 'z') || ('A' <= c && c <= 'Z'); });
}

/// "05", "+5" and "5" are the same value.
std::string ValueOf(const std::string& strItem) {
    int iValue = 0;
    const bool bPlus = strItem.size() > 1 && strItem[0] == '+' && strItem[1] != '-';
    const char* const pEndOfItem = strItem.data() + strItem.size();
    const auto [pEnd, eError] = std::from_chars(strItem.data() + (bPlus ? 1 : 0), pEndOfItem, iValue);
    const bool bNumber = eError == std::errc() && pEnd == pEndOfItem;
    return bNumber ? std::to_string(iValue) : strItem;
}

/// The days and months that two fields may come to, whatever is drawn for random items, and in the worst case.
struct Dates {
    std::set<int> setDays;
    std::set<int> setMonths;
    std::set<int> setLatestDays;
    std::set<int> setShortestMonths;
    bool bAnyDay = false;

    void AddDay(int iFrom, int iTo) {
        setDays.insert(iFrom); // the earlier one is, the more months have it
        setLatestDays.insert(iTo);
    }
    void AddMonths(int iFrom, int iTo, bool bOneIsDrawn) {
        int iShortest = iFrom;
        for (int iMonth = iFrom; iMonth <= iTo; ++iMonth) {
            setMonths.insert(iMonth);
            iShortest = LastDayOf(iMonth) < LastDayOf(iShortest) ? iMonth : iShortest;
            if (!bOneIsDrawn) {
                setShortestMonths.insert(iMonth);
            }
        }
        setShortestMonths.insert(iShortest);
    }
};

bool EverComes(const std::set<int>& setDays, const std::set<int>& setMonths) {
    return setDays.empty() || setMonths.empty() || std::any_of(setMonths.begin(), setMonths.end(), [&](int iMonth) {
               return *setDays.begin() <= LastDayOf(iMonth);
           });
}

Dates DatesOf(const FieldRanges& ranges) {
    Dates dates;
    for (const CronJob::Range& range : ranges[DAY]) {
        dates.AddDay(range.kind == ANY ? 1 : range.from, range.kind == VALUE ? range.from
                                                         : range.kind == ANY ? 1
                                                                             : range.to);
    }
    for (const CronJob::Range& range : ranges[MONTH]) {
        dates.AddMonths(range.kind == ANY ? 1 : range.from,
                        range.kind == ANY     ? 12
                        : range.kind == VALUE ? range.from
                                              : range.to,
                        range.kind == RANDOM);
    }
    return dates;
}

/// A text that is refused here may be a classic one.
Dates DatesOf(const ClassicText& text) {
    Dates dates;
    for (const int iDay : text.aFields[DAY].setValues) {
        dates.AddDay(iDay, iDay);
    }
    for (const int iMonth : text.aFields[MONTH].setValues) {
        dates.AddMonths(iMonth, iMonth, false);
    }
    return dates;
}

/// Collects the warnings about one text.
class CrontabReview {
public:
    explicit CrontabReview(const std::string& strCrontab)
        : _text{strCrontab}, _vecFields(FieldsOf(_text)), _rewrite(RewriteClassic(strCrontab)) {
        if (_rewrite && SplitWords(*_rewrite) == SplitWords(strCrontab) && !IsParted()) {
            _rewrite.reset(); // it says so already
        }
    }

    std::vector<Warning> Take() {
        if (IsParted()) {
            Warn("tab", {_text.strText, 0}, "the fields are parted by blanks here, and by nothing else");
        }
        if (_vecFields.size() == 1 && _vecFields[0].strText[0] == '@') {
            Warn("macro", _vecFields[0], Quoted(_vecFields[0].strText) + ": there are no such words here");
        }
        for (std::size_t u = 0; u < _vecFields.size() && _vecFields.size() == FIELD_COUNT; ++u) {
            LookAtField(u);
        }
        if (_vecFields.size() == FIELD_COUNT) {
            LookAtDays();
            LookAtDates();
        }
        return std::move(_vecWarnings);
    }

private:
    /// Whether there are five fields as soon as more than a blank parts them.
    bool IsParted() const { return _vecFields.size() == FIELD_COUNT && PiecesOf(_text, " ").size() != FIELD_COUNT; }

    void Warn(const char* szCode, const Piece& where, const std::string& strText) {
        if (_setTold.emplace(szCode, strText).second) {
            _vecWarnings.push_back(
                {szCode, strText, {"crontab", std::nullopt, where.uFrom, where.strText.size()}, _rewrite});
        }
    }
    void LookAtField(std::size_t uField);
    void LookAtItem(std::size_t uField, const Piece& item);
    void LookAtDays();
    void LookAtDates();

    Piece _text;
    std::vector<Piece> _vecFields;
    std::optional<std::string> _rewrite;
    std::vector<Warning> _vecWarnings;
    std::set<std::pair<std::string, std::string>> _setTold; ///< codes and texts
};

void CrontabReview::LookAtField(std::size_t uField) {
    const Piece& field = _vecFields[uField];
    const std::vector<Piece> vecItems = PiecesOf(field, ",");
    if (vecItems.empty()) {
        Warn("never", field, std::string("the ") + FIELD_NAMES[uField] + " has no value and never matches");
    }
    std::set<std::string> setItems;
    for (const Piece& whole : vecItems) {
        if (_vecWarnings.size() >= WARNINGS_MAX) {
            return;
        }
        const Piece item = WithoutWhiteSpace(whole);
        LookAtItem(uField, item);
        if (!setItems.insert(ValueOf(item.strText)).second && item.strText.find('~') == std::string::npos) {
            Warn("repeated-item", item, Quoted(item.strText) + " stands more than once in " + Quoted(field.strText));
        }
    }
}

void CrontabReview::LookAtItem(std::size_t uField, const Piece& item) {
    const std::string& strItem = item.strText;
    const std::string strShown = Quoted(strItem);
    if ((strItem[0] == '*' || strItem[0] == '~') && strItem.size() > 1) {
        Warn("tail-dropped", item,
             "what follows " + Quoted(strItem.substr(0, 1)) + " in " + strShown +
                 " is dropped: there are no steps here");
    } else if (HoldsLetter(strItem)) {
        Warn("name", item, strShown + ": there are no names of months and weekdays here");
    } else if (strItem.find('/') != std::string::npos) {
        Warn("step", item, strShown + ": there are no steps here");
    } else if (strItem.find('-', 1) != std::string::npos) {
        Warn("range", item, strShown + ": a range is no list of its values here; \"~\" makes a random value of it");
    } else if (uField == WEEKDAY && ValueOf(strItem) == "7") {
        Warn("sunday", item, "Sunday is 0 here, and only 0");
    }
}

void CrontabReview::LookAtDays() {
    const bool bJoinedByOrElsewhere = !BeginsWithStar(_vecFields[DAY]) && !BeginsWithStar(_vecFields[WEEKDAY]);
    const bool bAnyHere = IsAny(_vecFields[DAY]) && IsAny(_vecFields[WEEKDAY]); // then both mean every day
    if (bJoinedByOrElsewhere && !bAnyHere) {
        Warn("days-joined-by-and", _vecFields[WEEKDAY],
             "the day of the month and the weekday have to match both here; in a classic crontab one of them is "
             "enough");
    }
}

/// Days that no month has, for certain or only when an unlucky value is drawn.
void CrontabReview::LookAtDates() {
    const std::string strDates = "* * " + _vecFields[DAY].strText + " " + _vecFields[MONTH].strText + " *";
    Dates dates;
    if (const std::optional<FieldRanges> ranges = RangesOf(strDates)) {
        dates = DatesOf(*ranges);
    } else if (const std::optional<ClassicText> text = ReadClassic(strDates)) {
        dates = DatesOf(*text);
    }
    const std::string strMonths = Quoted(_vecFields[MONTH].strText);
    const std::string strDays = Quoted(_vecFields[DAY].strText);
    if (!EverComes(dates.setDays, dates.setMonths)) {
        Warn("never", _vecFields[DAY], "no month in " + strMonths + " has a day in " + strDays);
    } else if (!EverComes(dates.setLatestDays, dates.setShortestMonths)) {
        Warn("maybe-never", _vecFields[DAY],
             "a day in " + strDays + " and a month in " + strMonths + " may be drawn that never come together");
    }
}

} // namespace

std::vector<Warning> LookAtCrontab(const std::string& strCrontab) {
    return CrontabReview(strCrontab).Take();
}

} // namespace VUKO::VUKOCrond::Ctl
