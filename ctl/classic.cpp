#include "ctl/classic.h"

#include <algorithm>
#include <charconv>
#include <map>
#include <sstream>
#include <string_view>

namespace VUKO::VUKOCrond::Ctl {

namespace {

enum { MINUTE, HOUR, DAY, MONTH, WEEK };

struct Domain {
    int iFrom;
    int iTo;
};
constexpr std::array<Domain, 5> DOMAINS = {{{0, 59}, {0, 23}, {1, 31}, {1, 12}, {0, 7}}};

constexpr std::array<std::string_view, 12> MONTHS = {"jan", "feb", "mar", "apr", "may", "jun",
                                                     "jul", "aug", "sep", "oct", "nov", "dec"};
constexpr std::array<std::string_view, 7> WEEKDAYS = {"sun", "mon", "tue", "wed", "thu", "fri", "sat"};

/// What stands for five fields.
const std::map<std::string, const char*> WORDS = {
    {"@yearly", "0 0 1 1 *"}, {"@annually", "0 0 1 1 *"}, {"@monthly", "0 0 1 * *"}, {"@weekly", "0 0 * * 0"},
    {"@daily", "0 0 * * *"},  {"@midnight", "0 0 * * *"}, {"@hourly", "0 * * * *"}};

std::optional<int> ReadNumber(std::string_view strText) {
    int iValue = 0;
    const auto [pEnd, eError] = std::from_chars(strText.data(), strText.data() + strText.size(), iValue);
    const bool bWhole = eError == std::errc() && pEnd == strText.data() + strText.size();
    return bWhole && strText.front() != '-' ? std::optional<int>(iValue) : std::nullopt;
}

template <typename Names>
std::optional<int> ReadName(const Names& aNames, std::string_view strText, int iFirst) {
    std::string strLower(strText);
    std::transform(strLower.begin(), strLower.end(), strLower.begin(),
                   [](char c) { return 'A' <= c && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
    const auto it = std::find(aNames.begin(), aNames.end(), strLower);
    return it != aNames.end() ? std::optional<int>(static_cast<int>(it - aNames.begin()) + iFirst) : std::nullopt;
}

std::optional<int> ReadValue(std::string_view strText, std::size_t uField) {
    std::optional<int> value = ReadNumber(strText);
    if (!value && uField == MONTH) {
        value = ReadName(MONTHS, strText, 1);
    } else if (!value && uField == WEEK) {
        value = ReadName(WEEKDAYS, strText, 0);
    }
    return value && DOMAINS[uField].iFrom <= *value && *value <= DOMAINS[uField].iTo ? value : std::nullopt;
}

/// One item: "*", a value or a range, the first and the last with a step behind "/".
bool ReadItem(std::string_view strItem, std::size_t uField, std::set<int>& setValues) {
    int iStep = 1;
    bool bHasStep = false;
    if (const std::size_t uSlash = strItem.find('/'); uSlash != std::string_view::npos) {
        const std::optional<int> step = ReadNumber(strItem.substr(uSlash + 1));
        if (!step || *step < 1) {
            return false;
        }
        iStep = *step;
        bHasStep = true;
        strItem = strItem.substr(0, uSlash);
    }
    Domain range = DOMAINS[uField];
    range.iTo = uField == WEEK ? 6 : range.iTo;
    if (strItem != "*") {
        const std::size_t uDash = strItem.find('-');
        const std::optional<int> from = ReadValue(strItem.substr(0, uDash), uField);
        const std::optional<int> to =
            uDash == std::string_view::npos ? from : ReadValue(strItem.substr(uDash + 1), uField);
        if (!from || !to || *to < *from || (bHasStep && uDash == std::string_view::npos)) {
            return false;
        }
        range = {*from, *to};
    }
    for (int i = range.iFrom; i <= range.iTo; i += iStep) {
        setValues.insert(uField == WEEK ? i % 7 : i);
    }
    return true;
}

bool ReadField(const std::string& strField, std::size_t uField, ClassicText::Field& field) {
    field.bStar = strField.front() == '*';
    std::istringstream items(strField);
    for (std::string strItem; std::getline(items, strItem, ',');) {
        if (strItem.empty() || !ReadItem(strItem, uField, field.setValues)) {
            return false;
        }
    }
    return strField.back() != ',';
}

bool IsFull(const std::set<int>& setValues, std::size_t uField) {
    const int iTo = uField == WEEK ? 6 : DOMAINS[uField].iTo;
    return setValues.size() == static_cast<std::size_t>(iTo - DOMAINS[uField].iFrom + 1);
}

std::string Listed(const std::set<int>& setValues, std::size_t uField) {
    if (IsFull(setValues, uField)) {
        return "*";
    }
    std::string strList;
    for (const int iValue : setValues) {
        strList += (strList.empty() ? "" : ",") + std::to_string(iValue);
    }
    return strList;
}

/// Whether any of the days exists in any of the months.
bool EverComes(const ClassicText& text) {
    return std::any_of(text.aFields[MONTH].setValues.begin(), text.aFields[MONTH].setValues.end(),
                       [&](int iMonth) { return *text.aFields[DAY].setValues.begin() <= LastDayOf(iMonth); });
}

/// Makes AND of the classic rule for the two day fields. @return false where that cannot be said so.
bool JoinDays(ClassicText& text) {
    ClassicText::Field& day = text.aFields[DAY];
    ClassicText::Field& week = text.aFields[WEEK];
    if (day.bStar || week.bStar) {
        return true; // then it is AND there, too
    }
    if (IsFull(day.setValues, DAY) || IsFull(week.setValues, WEEK)) {
        for (int i = DOMAINS[DAY].iFrom; i <= DOMAINS[DAY].iTo; ++i) {
            day.setValues.insert(i);
        }
        week.setValues = {0, 1, 2, 3, 4, 5, 6};
        return true;
    }
    if (EverComes(text)) {
        return false;
    }
    day.setValues.clear(); // only the weekday ever matches
    for (int i = DOMAINS[DAY].iFrom; i <= DOMAINS[DAY].iTo; ++i) {
        day.setValues.insert(i);
    }
    return true;
}

} // namespace

std::vector<std::string> SplitWords(const std::string& strText) {
    std::istringstream words(strText);
    std::vector<std::string> vecWords;
    for (std::string strWord; words >> strWord;) {
        vecWords.push_back(strWord);
    }
    return vecWords;
}

int LastDayOf(int iMonth) {
    constexpr std::array<int, 12> aDays = {31, 29, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return aDays.at(static_cast<std::size_t>(iMonth - 1));
}

std::optional<ClassicText> ReadClassic(const std::string& strText) {
    const std::vector<std::string> vecFields = SplitWords(strText);
    ClassicText text;
    if (vecFields.size() != text.aFields.size()) {
        return std::nullopt;
    }
    for (std::size_t uField = 0; uField < vecFields.size(); ++uField) {
        if (!ReadField(vecFields[uField], uField, text.aFields[uField])) {
            return std::nullopt;
        }
    }
    return text;
}

std::optional<std::string> RewriteClassic(const std::string& strText) {
    const std::vector<std::string> vecWords = SplitWords(strText);
    const auto itWord = vecWords.size() == 1 ? WORDS.find(vecWords.front()) : WORDS.end();
    if (itWord != WORDS.end()) {
        return itWord->second;
    }
    std::optional<ClassicText> text = ReadClassic(strText);
    if (!text || !JoinDays(*text)) {
        return std::nullopt;
    }
    std::string strRewrite;
    for (std::size_t uField = 0; uField < text->aFields.size(); ++uField) {
        strRewrite += (uField == 0 ? "" : " ") + Listed(text->aFields[uField].setValues, uField);
    }
    return strRewrite;
}

} // namespace VUKO::VUKOCrond::Ctl
