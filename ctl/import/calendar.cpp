#include "ctl/import/calendar.h"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <map>
#include <optional>
#include <stdexcept>

#include "ctl/classic.h"
#include "ctl/zone.h"

namespace VUKO::VUKOCrond::Ctl {

namespace {

/// So many days every month has.
constexpr int DAYS_FROM_END_MAX = 28;

/// Ends the reading with the reason why it cannot go on.
struct CannotSay : std::runtime_error {
    using std::runtime_error::runtime_error;
};

std::string Lower(std::string strText) {
    std::transform(strText.begin(), strText.end(), strText.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return strText;
}

/// FROM[..TO][/STEP]; `iTo` is -1 where it is not said.
struct Item {
    int iFrom = 0;
    int iTo = -1;
    int iStep = 0;
};

/// One component: any value, or items.
struct Component {
    bool bAny = false;
    std::vector<Item> vecItems;
};

class Reader {
public:
    explicit Reader(const std::string& strText) : _strText(strText) {}

    std::set<int> ReadWeekdays();
    /// [[YEAR-]MONTH-]DAY, where the last "-" may be "~".
    void ReadDate();
    /// HOUR:MINUTE[:SECOND]
    void ReadTime();

    bool AtEnd() const { return _uPos == _strText.size(); }
    bool HasTime() const { return _strText.find(':', _uPos) != std::string::npos; }

    Component year{true, {}};
    Component month{true, {}};
    Component day{true, {}};
    Component hour;
    Component minute;
    Component second;
    bool bFromEnd = false; ///< days are counted from the end of the month
    bool bFraction = false;

private:
    [[noreturn]] static void Fail() { throw CannotSay("it is no calendar expression that systemd takes"); }
    char Peek(std::size_t uAhead = 0) const {
        return _uPos + uAhead < _strText.size() ? _strText[_uPos + uAhead] : '\0';
    }
    bool Skip(char c) {
        const bool bThere = Peek() == c;
        _uPos += bThere ? 1 : 0;
        return bThere;
    }
    void SkipBlanks() {
        while (Skip(' ')) {
        }
    }
    int ReadNumber();
    Component ReadComponent();
    std::optional<int> ReadWeekday();

    const std::string& _strText;
    std::size_t _uPos = 0;
};

int Reader::ReadNumber() {
    if (std::isdigit(static_cast<unsigned char>(Peek())) == 0) {
        Fail();
    }
    int iValue = 0;
    for (; std::isdigit(static_cast<unsigned char>(Peek())) != 0; ++_uPos) {
        iValue = iValue < 100000 ? iValue * 10 + (Peek() - '0') : iValue;
    }
    if (Peek() == '.' && std::isdigit(static_cast<unsigned char>(Peek(1))) != 0) { // of a second
        bFraction = true;
        for (++_uPos; std::isdigit(static_cast<unsigned char>(Peek())) != 0; ++_uPos) {
        }
    }
    return iValue;
}

Component Reader::ReadComponent() {
    Component component;
    if (Skip('*')) {
        component.bAny = true;
        return component;
    }
    do {
        Item item;
        item.iFrom = ReadNumber();
        if (Peek() == '.' && Peek(1) == '.') {
            _uPos += 2;
            item.iTo = ReadNumber();
            item.iStep = 1;
        }
        if (Skip('/') && (item.iStep = ReadNumber()) == 0 && !bFraction) {
            Fail();
        }
        component.vecItems.push_back(item);
    } while (Skip(','));
    return component;
}

std::optional<int> Reader::ReadWeekday() {
    static const std::vector<std::string> vecDays = {"sunday",   "monday", "tuesday", "wednesday",
                                                     "thursday", "friday", "saturday"};
    std::size_t uEnd = _uPos;
    while (uEnd < _strText.size() && std::isalpha(static_cast<unsigned char>(_strText[uEnd])) != 0) {
        ++uEnd;
    }
    const std::string strWord = Lower(_strText.substr(_uPos, uEnd - _uPos));
    for (std::size_t u = 0; u < vecDays.size(); ++u) {
        if (strWord == vecDays[u] || strWord == vecDays[u].substr(0, 3)) {
            _uPos = uEnd;
            return static_cast<int>(u);
        }
    }
    return std::nullopt;
}

std::set<int> Reader::ReadWeekdays() {
    const auto fromMonday = [](int iDay) { return (iDay + 6) % 7; };
    std::set<int> setDays;
    for (std::optional<int> first = ReadWeekday(); first; first = ReadWeekday()) {
        int iLast = *first;
        const bool bDots = Peek() == '.' && Peek(1) == '.';
        if (bDots || Peek() == '-') {
            _uPos += bDots ? 2 : 1;
            const std::optional<int> last = ReadWeekday();
            if (!last || fromMonday(*last) < fromMonday(*first)) {
                Fail();
            }
            iLast = *last;
        }
        for (int i = fromMonday(*first); i <= fromMonday(iLast); ++i) {
            setDays.insert((i + 1) % 7);
        }
        if (!Skip(',')) {
            break;
        }
    }
    if (!setDays.empty() && !AtEnd() && Peek() != ' ') {
        Fail();
    }
    SkipBlanks();
    return setDays.empty() ? EveryValue(WEEK) : setDays;
}

void Reader::ReadDate() {
    if (Peek() == '@') {
        throw CannotSay("it is a single instant");
    }
    const auto separated = [this] {
        bFromEnd = bFromEnd || Peek() == '~';
        return Skip('-') || Skip('~');
    };
    const std::size_t uBegin = _uPos;
    const Component first = ReadComponent();
    if (Peek() == ':' || (AtEnd() && uBegin == _uPos)) {
        _uPos = uBegin; // it was the hour
        return;
    }
    if (!separated()) {
        Fail();
    }
    const Component next = ReadComponent();
    if (AtEnd() || Peek() == ' ') {
        month = first;
        day = next;
    } else {
        if (bFromEnd || !separated()) {
            Fail();
        }
        year = first;
        month = next;
        day = ReadComponent();
    }
    if (!AtEnd() && Peek() != ' ') {
        Fail();
    }
    SkipBlanks();
}

void Reader::ReadTime() {
    hour = ReadComponent();
    if (!Skip(':')) {
        Fail();
    }
    minute = ReadComponent();
    second.vecItems = {Item()};
    if (Skip(':')) {
        second = ReadComponent();
    }
    if (!AtEnd()) {
        Fail();
    }
}

/// The values of a component. @throws CannotSay where systemd refuses it.
std::set<int> ValuesOf(const Component& component, int iFrom, int iTo) {
    std::set<int> setValues;
    for (const Item& item : component.vecItems) {
        const bool bGood = iFrom <= item.iFrom && item.iFrom <= iTo && (item.iTo < 0 || item.iTo <= iTo) &&
                           (item.iTo < 0 || item.iFrom <= item.iTo) &&
                           (item.iTo >= 0 || item.iStep == 0 || item.iFrom + item.iStep <= iTo);
        if (!bGood) {
            throw CannotSay("it is no calendar expression that systemd takes");
        }
        const int iLast = item.iTo >= 0 ? item.iTo : item.iStep > 0 ? iTo : item.iFrom;
        for (int i = item.iFrom; i <= iLast; i += std::max(item.iStep, 1)) {
            setValues.insert(i);
        }
    }
    if (component.bAny) {
        for (int i = iFrom; i <= iTo; ++i) {
            setValues.insert(i);
        }
    }
    return setValues;
}

/// Days that are counted from the end of the month, where its end is always the same one. With a step they go on to the
/// end of the month.
std::set<int> DaysFromEnd(const Component& component, int iMonth) {
    const int iEnd = LastDayOf(iMonth) + 1;
    std::set<int> setDays;
    for (const Item& item : component.vecItems) {
        const int iStep = std::max(item.iStep, 1);
        const bool bRange = item.iTo >= 0;
        // Both ends of a range are reached: the steps count from the end that is written first.
        const int iFirst = iEnd - (bRange ? item.iTo - (item.iTo - item.iFrom) % iStep : item.iFrom);
        const int iLast = bRange || item.iStep == 0 ? iEnd - item.iFrom : iEnd - 1;
        for (int i = iFirst; i <= iLast; i += iStep) {
            if (i >= 1) {
                setDays.insert(i);
            }
        }
    }
    return setDays;
}

std::vector<Times> TimesOf(const Reader& reader, const std::set<int>& setWeekdays) {
    Times times;
    const bool bFromEnd = reader.bFromEnd && !reader.day.bAny;
    times.aSets = {ValuesOf(reader.minute, 0, 59), ValuesOf(reader.hour, 0, 23),
                   ValuesOf(reader.day, 1, bFromEnd ? DAYS_FROM_END_MAX : 31), ValuesOf(reader.month, 1, 12),
                   setWeekdays};
    if (!bFromEnd) {
        return {times};
    }
    std::vector<Times> vecTimes;
    for (const int iMonth : times.aSets[MONTH]) {
        if (iMonth == 2) {
            throw CannotSay("the last days of February are not the same in every year");
        }
        Times ofMonth = times;
        ofMonth.aSets[MONTH] = {iMonth};
        ofMonth.aSets[DAY] = DaysFromEnd(reader.day, iMonth);
        vecTimes.push_back(ofMonth);
    }
    return vecTimes;
}

/// Takes a zone from the end. @throws CannotSay for one that schedules are not in.
void TakeZone(std::string& strText, const std::string& strOwn) {
    const std::size_t uBlank = strText.rfind(' ');
    const std::string strLast = uBlank == std::string::npos ? strText : strText.substr(uBlank + 1);
    const bool bZone = std::isalpha(static_cast<unsigned char>(strLast.front())) != 0 && uBlank != std::string::npos &&
                       (Lower(strLast) == "utc" || strLast.find('/') != std::string::npos ||
                        std::filesystem::is_regular_file("/usr/share/zoneinfo/" + strLast));
    if (!bZone) {
        return;
    }
    const std::string strZone = Lower(strLast) == "utc" ? "UTC" : strLast;
    if (!IsSameZone(strZone, strOwn)) {
        throw CannotSay("its times are those of the zone " + strZone + ", and here all are those of " + strOwn);
    }
    strText.resize(uBlank);
}

/// The longer form of a shorthand; any other text as it is.
std::string Expanded(const std::string& strText) {
    static const std::map<std::string, const char*> mapShorthands = {{"minutely", "*-*-* *:*:00"},
                                                                     {"hourly", "*-*-* *:00:00"},
                                                                     {"daily", "*-*-* 00:00:00"},
                                                                     {"monthly", "*-*-01 00:00:00"},
                                                                     {"weekly", "Mon *-*-* 00:00:00"},
                                                                     {"yearly", "*-01-01 00:00:00"},
                                                                     {"annually", "*-01-01 00:00:00"},
                                                                     {"anually", "*-01-01 00:00:00"},
                                                                     {"quarterly", "*-01,04,07,10-01 00:00:00"},
                                                                     {"semiannually", "*-01,07-01 00:00:00"},
                                                                     {"semi-annually", "*-01,07-01 00:00:00"},
                                                                     {"biannually", "*-01,07-01 00:00:00"},
                                                                     {"bi-annually", "*-01,07-01 00:00:00"}};
    const auto it = mapShorthands.find(Lower(strText));
    return it != mapShorthands.end() ? it->second : strText;
}

/// A single second of the minute can be left out; several are several starts in a minute.
void LookAtSeconds(const Reader& reader, std::vector<Note>& vecNotes) {
    if (reader.bFraction || reader.second.bAny || ValuesOf(reader.second, 0, 59).size() != 1) {
        throw CannotSay("it asks for seconds, and here the shortest step is a minute");
    }
    if (reader.second.vecItems.front().iFrom != 0) {
        vecNotes.push_back({"seconds", "it starts at the beginning of the minute, " +
                                           std::to_string(reader.second.vecItems.front().iFrom) + " s earlier"});
    }
}

} // namespace

CalendarTimes ReadCalendar(const std::string& strExpression, const std::string& strZone) {
    CalendarTimes result;
    try {
        std::string strText = strExpression;
        if (strText.empty()) {
            throw CannotSay("it is empty");
        }
        TakeZone(strText, strZone);
        strText = Expanded(strText);
        Reader reader(strText);
        const std::set<int> setWeekdays = reader.ReadWeekdays();
        reader.hour.vecItems = reader.minute.vecItems = reader.second.vecItems = {Item()};
        if (!reader.AtEnd()) {
            reader.ReadDate();
        }
        if (!reader.AtEnd()) {
            reader.ReadTime();
        }
        LookAtSeconds(reader, result.vecNotes);
        if (!reader.year.bAny) {
            throw CannotSay("it names years, and here all years are alike");
        }
        result.vecTimes = TimesOf(reader, setWeekdays);
    } catch (const CannotSay& reason) {
        result.strReason = reason.what();
    }
    return result;
}

} // namespace VUKO::VUKOCrond::Ctl
