#include "ctl/review.h"

#include <algorithm>
#include <cstdint>
#include <set>
#include <sstream>

#include "ctl/classic.h"
#include "ctl/jobs.h"
#include "ctl/toolerror.h"
#include "service/definitions/definitionpolicy.h"
#include "service/definitions/definitionreason.h"
#include "service/engine/schedule.h"

namespace VUKO::VUKOCrond::Ctl {

namespace {

constexpr const char* FIELD_CRONTAB = "crontab";
constexpr std::size_t DAY = 2;
constexpr std::size_t MONTH = 3;
constexpr std::size_t WEEK = 4;

std::vector<std::string> ItemsOf(const std::string& strField) {
    std::istringstream in(strField);
    std::vector<std::string> vecItems;
    for (std::string strItem; std::getline(in, strItem, ',');) {
        if (!strItem.empty()) { // here an empty piece does not count
            vecItems.push_back(strItem);
        }
    }
    return vecItems;
}

bool IsAny(const std::string& strField) {
    const std::vector<std::string> vecItems = ItemsOf(strField);
    return std::any_of(vecItems.begin(), vecItems.end(), [](const std::string& strItem) { return strItem[0] == '*'; });
}

bool HoldsLetter(const std::string& strText) {
    return std::any_of(strText.begin(), strText.end(),
                       [](char c) { return ('a' <= c && c <= 'z') || ('A' <= c && c <= 'Z'); });
}

/// Collects the warnings about one text.
class CrontabReview {
public:
    explicit CrontabReview(const std::string& strCrontab)
        : _vecFields(SplitWords(strCrontab)), _rewrite(RewriteClassic(strCrontab)) {
        if (_rewrite && SplitWords(*_rewrite) == _vecFields) {
            _rewrite.reset(); // it says so already
        }
    }

    std::vector<Warning> Take() {
        for (const std::string& strField : _vecFields) {
            LookAtField(strField);
        }
        if (_vecFields.size() == WEEK + 1) {
            LookAtDays();
        }
        return std::move(_vecWarnings);
    }

private:
    void Warn(const char* szCode, const std::string& strText) {
        const bool bToldAlready = std::any_of(_vecWarnings.begin(), _vecWarnings.end(), [&](const Warning& warning) {
            return warning.strCode == szCode && warning.strText == strText;
        });
        if (!bToldAlready) {
            _vecWarnings.push_back({szCode, FIELD_CRONTAB, strText, _rewrite});
        }
    }
    void LookAtField(const std::string& strField);
    void LookAtItem(const std::string& strField, const std::string& strItem);
    void LookAtDays();

    std::vector<std::string> _vecFields;
    std::optional<std::string> _rewrite;
    std::vector<Warning> _vecWarnings;
};

void CrontabReview::LookAtField(const std::string& strField) {
    std::set<std::string> setItems;
    for (const std::string& strItem : ItemsOf(strField)) {
        LookAtItem(strField, strItem);
        if (!setItems.insert(strItem).second && strItem.find('~') == std::string::npos) {
            Warn("repeated-item", "\"" + strItem + "\" stands more than once in \"" + strField + "\"");
        }
    }
}

void CrontabReview::LookAtItem(const std::string& strField, const std::string& strItem) {
    if ((strItem[0] == '*' || strItem[0] == '~') && strItem.size() > 1) {
        Warn("tail-dropped", "what follows \"" + strItem.substr(0, 1) + "\" in \"" + strItem +
                                 "\" is dropped: there are no steps here");
    } else if (HoldsLetter(strItem)) {
        Warn("name", "\"" + strItem + "\": there are no names of months and weekdays here");
    } else if (strItem.find('/') != std::string::npos) {
        Warn("step", "\"" + strItem + "\": there are no steps here");
    } else if (strItem.find('-', 1) != std::string::npos) {
        Warn("range", "\"" + strItem + "\": a range is no list of its values here; \"~\" makes a random value of it");
    } else if (_vecFields.size() == WEEK + 1 && &strField == &_vecFields[WEEK] && strItem == "7") {
        Warn("sunday", "Sunday is 0 here, and only 0");
    }
}

void CrontabReview::LookAtDays() {
    if (!IsAny(_vecFields[DAY]) && !IsAny(_vecFields[WEEK])) {
        Warn("days-joined-by-and", "the day of the month and the weekday have to match both here; in a classic crontab "
                                   "one of them is enough");
    }
    std::set<int> setDays;
    std::set<int> setMonths;
    const std::optional<ClassicText> text = ReadClassic("* * " + _vecFields[DAY] + " " + _vecFields[MONTH] + " *");
    if (text) {
        setDays = text->aFields[DAY].setValues;
        setMonths = text->aFields[MONTH].setValues;
    }
    const auto hasDay = [&](int iMonth) { return *setDays.begin() <= LastDayOf(iMonth); };
    if (!setDays.empty() && std::none_of(setMonths.begin(), setMonths.end(), hasDay)) {
        Warn("never", "no month in \"" + _vecFields[MONTH] + "\" has a day in \"" + _vecFields[DAY] + "\"");
    }
}

void LookAtPeriod(const std::string& strPeriod, std::vector<Warning>& vecWarnings) {
    static const std::pair<char, const char*> aKinds[] = {
        {'c', "crontab"}, {'d', "daily"}, {'h', "hourly"}, {'m', "monthly"}, {'w', "weekly"}};
    for (const auto& [cLetter, szKind] : aKinds) {
        if ((strPeriod.front() | 0x20) == cLetter && strPeriod != szKind) {
            vecWarnings.push_back({"period-letter", "period",
                                   "\"" + strPeriod + "\" is taken as " + szKind + ": only its first letter counts",
                                   std::nullopt});
        }
    }
}

void LookAtCommand(const Json::Value& jsDefinition, std::vector<Warning>& vecWarnings) {
    const bool bList = jsDefinition.isMember("cmd_list");
    const char* const szField = bList ? "cmd_list" : "cmd";
    const std::string strProgram =
        bList ? jsDefinition["cmd_list"][0].asString() : SplitWords(jsDefinition["cmd"].asString() + " ").front();
    if (strProgram.find('/') == std::string::npos) {
        vecWarnings.push_back({"program-without-slash", szField,
                               "\"" + strProgram + "\" is not looked for in PATH: give its whole path", std::nullopt});
    }
    if (!bList && jsDefinition["cmd"].asString().find_first_of("'\"") != std::string::npos) {
        vecWarnings.push_back({"quotes", szField,
                               "quotes are handed to the program as they are: there is no shell; use \"cmd_list\"",
                               std::nullopt});
    }
}

void LookAtUser(const std::string& strUser, std::vector<Warning>& vecWarnings) {
    for (const char* const szClass : {"package", "system", "root"}) {
        if (strUser == szClass) {
            return;
        }
        if (strUser.find(szClass) != std::string::npos) {
            vecWarnings.push_back({"user-class", "user",
                                   "\"" + strUser + "\" only contains \"" + szClass + "\" and is taken as such",
                                   std::nullopt});
            return;
        }
    }
}

void LookAtRest(const Json::Value& jsDefinition, std::vector<Warning>& vecWarnings) {
    constexpr std::int64_t MAX_HOURS = 596523;
    const std::int64_t iHours = jsDefinition.get("assure_execute", 0).asInt64();
    if (iHours > MAX_HOURS || iHours < -MAX_HOURS) {
        vecWarnings.push_back({"assure-wraps", "assure_execute",
                               std::to_string(iHours) + " hours are counted in 32-bit seconds, which wrap above " +
                                   std::to_string(MAX_HOURS),
                               std::nullopt});
    }
    constexpr const char* szSafe = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789._-";
    const std::string strName = jsDefinition["name"].asString();
    if (strName.find_first_not_of(szSafe) != std::string::npos || strName.front() == '-') {
        vecWarnings.push_back({"unsafe-name", "name",
                               "\"" + strName + "\" makes a file name that shells and scripts may stumble over",
                               std::nullopt});
    }
}

const char* const FIELD_NAMES[] = {"minute", "hour", "day", "month", "weekday"};

std::string FieldInWords(const std::string& strField, std::size_t uField) {
    const std::string strName = FIELD_NAMES[uField];
    if (IsAny(strField)) {
        return "every " + strName;
    }
    std::string strWords;
    for (const std::string& strItem : ItemsOf(strField)) {
        const std::size_t uTilde = strItem.find('~');
        strWords += strWords.empty() ? "" : " or ";
        if (uTilde == std::string::npos) {
            strWords += strName + " " + strItem;
        } else if (uTilde == 0) {
            strWords += "one " + strName + " drawn from all" + (uField == DAY ? " up to 28" : "");
        } else {
            strWords +=
                "one " + strName + " drawn from " + strItem.substr(0, uTilde) + " to " + strItem.substr(uTilde + 1);
        }
    }
    return strWords.empty() ? "never" : strWords;
}

} // namespace

Review ReviewCrontab(const std::string& strCrontab) {
    Review review;
    try {
        (void)JobOfCrontab(strCrontab);
    } catch (const ToolError& error) {
        review.vecErrors.push_back(error.what());
    }
    review.vecWarnings = CrontabReview(strCrontab).Take();
    return review;
}

Review ReviewDefinition(const Json::Value& jsDefinition) {
    Review review;
    const auto isText = [&](const char* szMember) {
        return jsDefinition.isObject() && jsDefinition[szMember].isString() &&
               !jsDefinition[szMember].asString().empty();
    };
    const std::string strInvalid = Service::WhyInvalid(jsDefinition);
    if (!strInvalid.empty()) {
        review.vecErrors.push_back(strInvalid);
    } else if (const std::string strRefused = Service::WhyRefused(jsDefinition, Service::DefinitionOrigin());
               !strRefused.empty()) {
        review.vecErrors.push_back(strRefused);
    }
    if (isText("period")) {
        LookAtPeriod(jsDefinition["period"].asString(), review.vecWarnings);
        if ((jsDefinition["period"].asString().front() | 0x20) == 'c' && isText("crontab")) {
            for (Warning& warning : CrontabReview(jsDefinition["crontab"].asString()).Take()) {
                review.vecWarnings.push_back(std::move(warning));
            }
        }
    }
    if (isText("user")) {
        LookAtUser(jsDefinition["user"].asString(), review.vecWarnings);
    }
    if (review.vecErrors.empty()) { // all else is of the right kind, then
        LookAtCommand(jsDefinition, review.vecWarnings);
        LookAtRest(jsDefinition, review.vecWarnings);
    }
    return review;
}

void PutReview(Json::Value& jsResult, const Review& review) {
    jsResult["errors"] = Json::Value(Json::arrayValue);
    for (const std::string& strError : review.vecErrors) {
        jsResult["errors"].append(strError);
    }
    jsResult["warnings"] = Json::Value(Json::arrayValue);
    for (const Warning& warning : review.vecWarnings) {
        Json::Value jsWarning(Json::objectValue);
        jsWarning["code"] = warning.strCode;
        jsWarning["field"] = warning.strField;
        jsWarning["text"] = warning.strText;
        jsWarning["rewrite"] = warning.rewrite ? Json::Value(*warning.rewrite) : Json::Value();
        jsResult["warnings"].append(jsWarning);
    }
}

std::string MeaningOf(const std::string& strCrontab) {
    const std::vector<std::string> vecFields = SplitWords(strCrontab);
    if (vecFields.size() != WEEK + 1) {
        return std::string();
    }
    std::string strMeaning = FieldInWords(vecFields[0], 0) + " of " + FieldInWords(vecFields[1], 1);
    if (!IsAny(vecFields[DAY])) {
        strMeaning += ", on " + FieldInWords(vecFields[DAY], DAY);
    }
    if (!IsAny(vecFields[WEEK])) {
        strMeaning += std::string(IsAny(vecFields[DAY]) ? ", on " : ", if that is ") +
                      FieldInWords(vecFields[WEEK], WEEK) + " (0 is Sunday)";
    }
    if (!IsAny(vecFields[MONTH])) {
        strMeaning += ", in " + FieldInWords(vecFields[MONTH], MONTH);
    }
    return strMeaning;
}

} // namespace VUKO::VUKOCrond::Ctl
