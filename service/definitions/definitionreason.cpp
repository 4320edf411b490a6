#include "service/definitions/definitionreason.h"

#include <array>
#include <limits>
#include <locale>
#include <optional>
#include <sstream>
#include <vector>

#include "platform/vukoutils.h"
#include "service/logtext.h"

namespace VUKO::VUKOCrond::Service {

namespace {

struct FieldDomain {
    const char* szName;
    int iFrom;
    int iTo;
};

/// In the order in which a schedule text has them.
constexpr std::array<FieldDomain, 5> FIELDS = {
    {{"minute", 0, 59}, {"hour", 0, 23}, {"day", 1, 31}, {"month", 1, 12}, {"week", 0, 6}}};

DefinitionFault InField(const std::string& strField, const std::string& strReason) {
    return {"field " + Quoted(strField) + ": " + strReason, {strField}};
}

/// "expected WHAT, found KIND", or that the field is not there at all.
DefinitionFault Unexpected(const Json::Value& jsDefinition, const std::string& strField,
                           const std::string& strExpected) {
    if (!jsDefinition.isMember(strField)) {
        return InField(strField, "missing, expected " + strExpected);
    }
    return InField(strField, "expected " + strExpected + ", found " + KindOf(jsDefinition[strField]));
}

/// One decimal int with blanks around it and nothing else.
std::optional<int> ReadNumber(const std::string& strText) {
    std::istringstream ss(strText);
    ss.imbue(std::locale::classic());
    int iValue = 0;
    if (!(ss >> iValue)) {
        return std::nullopt;
    }
    if (!ss.eof()) {
        ss >> std::ws;
    }
    return ss.eof() ? std::optional<int>(iValue) : std::nullopt;
}

std::string WhyNoValue(const FieldDomain& field, const std::string& strText) {
    const std::optional<int> number = ReadNumber(strText);
    if (!number) {
        return Quoted(strText) + " is no number";
    }
    if (*number < field.iFrom || *number > field.iTo) {
        return std::to_string(*number) + " is not in " + std::to_string(field.iFrom) + ".." + std::to_string(field.iTo);
    }
    return std::string();
}

std::string WhyNoRandomRange(const FieldDomain& field, const std::string& strPiece) {
    std::vector<std::string> vecParts;
    VUKOUtils::StringExplode(vecParts, strPiece, "~");
    if (vecParts.size() != 2) {
        return Quoted(strPiece) + " is not of the form A~B";
    }
    for (const std::string& strPart : vecParts) {
        const std::string strReason = WhyNoValue(field, strPart);
        if (!strReason.empty()) {
            return strReason + " (in " + Quoted(strPiece) + ")";
        }
    }
    if (*ReadNumber(vecParts[1]) < *ReadNumber(vecParts[0])) {
        return Quoted(strPiece) + " ends before it begins";
    }
    return std::string();
}

/// One of the pieces of a text between separators, of which empty ones do not count.
struct Piece {
    std::string strText;
    std::size_t uFrom; ///< where it begins in the text
};

std::vector<Piece> PiecesOf(const std::string& strText, const char* szSeparator) {
    std::vector<std::string> vecTexts;
    VUKOUtils::StringExplode(vecTexts, strText, szSeparator);
    std::vector<Piece> vecPieces;
    std::size_t uFrom = 0;
    for (const std::string& strPiece : vecTexts) {
        uFrom = strText.find(strPiece, uFrom);
        vecPieces.push_back({strPiece, uFrom});
        uFrom += strPiece.size();
    }
    return vecPieces;
}

/// The first item of a field that is no good, with its place in the whole text.
DefinitionFault WhyNoField(const FieldDomain& field, const Piece& text) {
    for (const Piece& piece : PiecesOf(text.strText, ",")) {
        const std::string& strPiece = piece.strText;
        if (strPiece.front() == '~' || strPiece.front() == '*') {
            continue; // whatever follows is not read
        }
        const std::string strReason =
            strPiece.find('~') == std::string::npos ? WhyNoValue(field, strPiece) : WhyNoRandomRange(field, strPiece);
        if (!strReason.empty()) {
            DefinitionFault fault = InField("crontab", std::string(field.szName) + ": " + strReason);
            fault.place.uFrom = text.uFrom + piece.uFrom;
            fault.place.uCount = strPiece.size();
            return fault;
        }
    }
    return {};
}

/// A number in the place of the text is converted by the library, but never into five fields.
DefinitionFault WhyNoCrontab(const Json::Value& jsDefinition) {
    if (!jsDefinition["crontab"].isString()) {
        return Unexpected(jsDefinition, "crontab", "a text of five fields");
    }
    const std::vector<Piece> vecFields = PiecesOf(jsDefinition["crontab"].asString(), " ");
    if (vecFields.size() != FIELDS.size()) {
        return InField("crontab",
                       "expected five fields separated by blanks, found " + std::to_string(vecFields.size()));
    }
    for (std::size_t i = 0; i < FIELDS.size(); ++i) {
        DefinitionFault fault = WhyNoField(FIELDS[i], vecFields[i]);
        if (fault) {
            return fault;
        }
    }
    return {};
}

/// The first letter of "period" chooses the kind, in either case; a period that holds the whole word "crontab" needs
/// the field "crontab" whatever its first letter is.
DefinitionFault WhyNoPeriod(const Json::Value& jsDefinition) {
    if (!jsDefinition["period"].isString()) {
        return Unexpected(jsDefinition, "period", "a text");
    }
    const std::string strPeriod = jsDefinition["period"].asString();
    if (strPeriod.empty() || std::string("cdhmwCDHMW").find(strPeriod.front()) == std::string::npos) {
        return InField("period", "expected a text that begins with c, d, h, m or w, found " + Quoted(strPeriod));
    }
    const bool bByCrontab = strPeriod.front() == 'c' || strPeriod.front() == 'C';
    if (bByCrontab) {
        return WhyNoCrontab(jsDefinition);
    }
    if (strPeriod.find("crontab") != std::string::npos && !jsDefinition["crontab"].isString()) {
        return Unexpected(jsDefinition, "crontab", "a text, as \"period\" speaks of a crontab");
    }
    return {};
}

DefinitionFault WhyNoCommand(const Json::Value& jsDefinition) {
    const Json::Value& jsList = jsDefinition["cmd_list"];
    if (!jsDefinition.isMember("cmd_list")) {
        return jsDefinition["cmd"].isString() ? DefinitionFault()
                                              : Unexpected(jsDefinition, "cmd", "a text (or an array in \"cmd_list\")");
    }
    if (!jsList.isArray() && !(jsList.isObject() && jsDefinition["cmd"].isString())) {
        return Unexpected(jsDefinition, "cmd_list", "an array");
    }
    std::size_t uElement = 0;
    for (const Json::Value& jsArgument : jsList) {
        ++uElement;
        if (!jsArgument.isConvertibleTo(Json::stringValue)) {
            DefinitionFault fault = InField("cmd_list", "element " + std::to_string(uElement) +
                                                            ": expected a text, found " + KindOf(jsArgument));
            fault.place.element = static_cast<Json::ArrayIndex>(uElement - 1);
            return fault;
        }
    }
    return uElement == 0 ? InField("cmd_list", "expected at least one element, found none") : DefinitionFault();
}

DefinitionFault WhyNoAccount(const Json::Value& jsDefinition) {
    if (!jsDefinition["user"].isString()) {
        return Unexpected(jsDefinition, "user", "a text");
    }
    if (jsDefinition["user"].asString() == "package" && !jsDefinition.isMember("package_username")) {
        return Unexpected(jsDefinition, "package_username", "an account name, as \"user\" is \"package\"");
    }
    return {};
}

DefinitionFault WhyNoSettings(const Json::Value& jsDefinition) {
    const Json::Value& jsHours = jsDefinition["assure_execute"];
    if (!jsHours.isConvertibleTo(Json::intValue)) {
        if (!jsHours.isNumeric()) {
            return Unexpected(jsDefinition, "assure_execute", "a number of hours");
        }
        return InField("assure_execute", jsHours.asString() + " is not in " +
                                             std::to_string(std::numeric_limits<int>::min()) + ".." +
                                             std::to_string(std::numeric_limits<int>::max()));
    }
    if (!jsDefinition["run_on_passive"].isConvertibleTo(Json::booleanValue)) {
        return Unexpected(jsDefinition, "run_on_passive", "true or false");
    }
    return {};
}

DefinitionFault WhyNoName(const Json::Value& jsDefinition) {
    return jsDefinition["name"].isString() ? DefinitionFault() : Unexpected(jsDefinition, "name", "a text");
}

} // namespace

std::string LabelOf(Json::ArrayIndex uIndex, const Json::Value& jsDefinition) {
    const std::string strLabel = "definition " + std::to_string(uIndex + 1);
    const bool bHasName = jsDefinition.isObject() && jsDefinition["name"].isString();
    return bHasName ? strLabel + " " + Quoted(jsDefinition["name"].asString()) : strLabel;
}

const char* KindOf(const Json::Value& jsValue) {
    switch (jsValue.type()) {
    case Json::nullValue:
        return "null";
    case Json::intValue:
    case Json::uintValue:
    case Json::realValue:
        return "a number";
    case Json::stringValue:
        return "a text";
    case Json::booleanValue:
        return "a boolean";
    case Json::arrayValue:
        return "an array";
    case Json::objectValue:
        return "an object";
    }
    return "something else";
}

DefinitionFault FindInvalid(const Json::Value& jsDefinition) {
    if (!jsDefinition.isObject()) {
        return {std::string("expected an object, found ") + KindOf(jsDefinition), {}};
    }
    for (const auto pRule : {WhyNoName, WhyNoAccount, WhyNoPeriod, WhyNoCommand, WhyNoSettings}) {
        DefinitionFault fault = pRule(jsDefinition);
        if (fault) {
            return fault;
        }
    }
    return {};
}

std::string WhyInvalid(const Json::Value& jsDefinition) {
    return FindInvalid(jsDefinition).strReason;
}

} // namespace VUKO::VUKOCrond::Service
