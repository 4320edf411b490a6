#include "service/definitions/definitionpolicy.h"

#include <cstdint>
#include <limits>
#include <map>
#include <utility>
#include <vector>

#include "platform/vukosdk.h"
#include "platform/vukoutils.h"
#include "service/definitions/definitionreason.h"
#include "service/logtext.h"

namespace VUKO::VUKOCrond::Service {

namespace {

constexpr std::size_t NAME_CHARACTERS_MAX = 128;
/// A file name has 255 bytes at most, and ".conf" follows.
constexpr std::size_t NAME_BYTES_MAX = 250;
constexpr std::size_t ACCOUNT_BYTES_MAX = 255;
/// A package has one account. Whoever is mistaken, is so with one or two.
constexpr std::size_t OTHER_ACCOUNTS_MAX = 8;
/// The kernel takes no longer argument, its closing NUL included.
constexpr std::size_t ARGUMENT_BYTES_MAX = std::size_t{128} * 1024 - 1;

/// An empty reason stays none.
DefinitionFault InField(const char* szField, const std::string& strReason) {
    return strReason.empty() ? DefinitionFault()
                             : DefinitionFault{std::string("field \"") + szField + "\": " + strReason, {szField}};
}

DefinitionFault ExpectedText(const char* szField, const Json::Value& jsValue) {
    return InField(szField, std::string("expected a text, found ") + KindOf(jsValue));
}

std::string TooMany(std::size_t uCount, const char* szWhat, std::size_t uMax) {
    return std::to_string(uCount) + " " + szWhat + " are more than " + std::to_string(uMax);
}

/// The library looks for the word anywhere in the text.
bool IsOfPackage(const std::string& strUser) {
    return strUser.find("package") != std::string::npos;
}

std::string WhyBadAccountName(const std::string& strAccount) {
    if (strAccount.empty()) {
        return "is empty";
    }
    if (strAccount.size() > ACCOUNT_BYTES_MAX) {
        return TooMany(strAccount.size(), "bytes", ACCOUNT_BYTES_MAX);
    }
    if (HoldsControlCharacter(strAccount)) { // it stands in log lines, too
        return Quoted(strAccount) + " holds a control character";
    }
    if (strAccount.find_first_of("/: ") != std::string::npos) {
        return Quoted(strAccount) + " can name no account";
    }
    return std::string();
}

DefinitionFault WhyBadUser(const Json::Value& jsDefinition) {
    return InField("user", WhyBadAccountName(jsDefinition["user"].asString()));
}

/// Without a package's job the member is read by nobody; what it holds must only be fit to be printed.
DefinitionFault WhyBadPackageUser(const Json::Value& jsDefinition) {
    const Json::Value& jsAccount = jsDefinition["package_username"];
    std::string strReason;
    if (IsOfPackage(jsDefinition["user"].asString())) {
        if (!jsDefinition.isMember("package_username")) {
            return InField("package_username", "missing, expected an account name, as \"user\" contains \"package\"");
        }
        if (!jsAccount.isString()) {
            return ExpectedText("package_username", jsAccount);
        }
        strReason = WhyBadAccountName(jsAccount.asString());
    } else if (jsAccount.isString() && HoldsControlCharacter(jsAccount.asString())) {
        strReason = Quoted(jsAccount.asString()) + " holds a control character";
    }
    return InField("package_username", strReason);
}

std::string WhyBadSwitch(const Json::Value& jsValue) {
    return jsValue.isBool() ? std::string() : std::string("expected true or false, found ") + KindOf(jsValue);
}

std::string WhyBadOverlap(const Json::Value& jsValue) {
    if (jsValue == "skip" || jsValue == "allow") {
        return std::string();
    }
    return "expected \"skip\" or \"allow\", found " +
           (jsValue.isString() ? Quoted(jsValue.asString()) : std::string(KindOf(jsValue)));
}

std::string WhyBadTimeout(const Json::Value& jsValue) {
    if (!jsValue.isNumeric()) {
        return std::string("expected a whole number of seconds, found ") + KindOf(jsValue);
    }
    const double dSeconds = jsValue.asDouble();
    if (dSeconds < 0 || dSeconds > std::numeric_limits<std::int32_t>::max()) {
        return jsValue.asString() + " is not in 0.." + std::to_string(std::numeric_limits<std::int32_t>::max());
    }
    return jsValue.isInt() ? std::string() : "expected a whole number of seconds, found " + jsValue.asString();
}

std::string WhyBadDescription(const Json::Value& jsValue) {
    if (!jsValue.isString()) {
        return std::string("expected a text, found ") + KindOf(jsValue);
    }
    return HoldsControlCharacter(jsValue.asString()) ? "holds a control character" : std::string();
}

/// What only the service reads, and the library leaves alone.
DefinitionFault WhyBadOption(const Json::Value& jsDefinition) {
    constexpr std::pair<const char*, std::string (*)(const Json::Value&)> OPTIONS[] = {
        {"enabled", WhyBadSwitch},
        {"overlap", WhyBadOverlap},
        {"timeout", WhyBadTimeout},
        {"description", WhyBadDescription}};
    for (const auto& [szField, pRule] : OPTIONS) {
        const std::string strReason = jsDefinition.isMember(szField) ? pRule(jsDefinition[szField]) : std::string();
        if (!strReason.empty()) {
            return InField(szField, strReason);
        }
    }
    return {};
}

std::string WhyBadArgument(const std::string& strArgument) {
    if (strArgument.find('\0') != std::string::npos) {
        return "holds a NUL character";
    }
    return strArgument.size() > ARGUMENT_BYTES_MAX ? TooMany(strArgument.size(), "bytes", ARGUMENT_BYTES_MAX)
                                                   : std::string();
}

/// The arguments are what stands between blanks.
DefinitionFault WhyBadCommandText(const std::string& strCommand) {
    std::vector<std::string> vecArguments;
    VUKOUtils::StringExplode(vecArguments, strCommand, " ");
    for (const std::string& strArgument : vecArguments) {
        const std::string strReason = WhyBadArgument(strArgument);
        if (!strReason.empty()) {
            return InField("cmd", strReason);
        }
    }
    return {};
}

/// The library takes numbers and objects here and gives up in the child, when the job is due.
DefinitionFault WhyBadCommand(const Json::Value& jsDefinition) {
    if (!jsDefinition.isMember("cmd_list")) {
        return WhyBadCommandText(jsDefinition["cmd"].asString());
    }
    const Json::Value& jsList = jsDefinition["cmd_list"];
    if (!jsList.isArray()) {
        return InField("cmd_list", std::string("expected an array, found ") + KindOf(jsList));
    }
    for (Json::ArrayIndex i = 0; i < jsList.size(); ++i) {
        const std::string strReason = jsList[i].isString() ? WhyBadArgument(jsList[i].asString())
                                                           : std::string("expected a text, found ") + KindOf(jsList[i]);
        if (!strReason.empty()) {
            DefinitionFault fault = InField("cmd_list", "element " + std::to_string(i + 1) + ": " + strReason);
            fault.place.element = i;
            return fault;
        }
    }
    return {};
}

/// Whether one account name is root's or, where it has to be, not the folder's owner's.
std::string WhyOthersAccount(const std::string& strAccount, const DefinitionOrigin& origin) {
    const std::optional<uid_t> uid = origin.lookUp(strAccount);
    if (uid == uid_t{0}) {
        return Quoted(strAccount) + " is root";
    }
    if (origin.uidPackage && uid != origin.uidPackage) {
        return Quoted(strAccount) +
               (uid ? " is not the account that owns the package's folder" : " is no known account");
    }
    return std::string(); // an account that is unknown now may be made before the job is due
}

/// A package with an account of its own writes its definitions itself, so what they say about the account is checked:
/// never root, and nobody but the owner of the package's sub-folder.
DefinitionFault WhyBadPackageAccount(const Json::Value& jsDefinition, const DefinitionOrigin& origin) {
    const std::string strUser = jsDefinition["user"].asString();
    if (strUser != "package") {
        return InField("user", "expected \"package\" in this folder, found " + Quoted(strUser));
    }
    DefinitionFault fault = WhyBadPackageUser(jsDefinition);
    return fault ? fault
                 : InField("package_username", WhyOthersAccount(jsDefinition["package_username"].asString(), origin));
}

DefinitionFault WhyBadAccount(const Json::Value& jsDefinition, const DefinitionOrigin& origin) {
    if (origin.bOfPackageAccount) {
        return WhyBadPackageAccount(jsDefinition, origin);
    }
    DefinitionFault fault = WhyBadUser(jsDefinition);
    return fault ? fault : WhyBadPackageUser(jsDefinition);
}

} // namespace

std::optional<uid_t> LookUpAccount(const std::string& strAccount) {
    uid_t uid = 0;
    gid_t gid = 0;
    return VUKOUserGetUGID(strAccount.c_str(), &uid, &gid) == 0 ? std::optional<uid_t>(uid) : std::nullopt;
}

AccountLookup LookUpFewBeside(uid_t uid) {
    return [uid, uOthers = std::size_t{0},
            mapKnown = std::map<std::string, std::optional<uid_t>>()](const std::string& strAccount) mutable {
        const auto itKnown = mapKnown.find(strAccount);
        if (itKnown != mapKnown.end()) {
            return itKnown->second;
        }
        if (uOthers == OTHER_ACCOUNTS_MAX) {
            return std::optional<uid_t>();
        }
        const std::optional<uid_t> uidFound = LookUpAccount(strAccount);
        uOthers += uidFound == uid ? 0 : 1;
        mapKnown.emplace(strAccount, uidFound);
        return uidFound;
    };
}

std::string WhyBadName(const std::string& strName) {
    if (strName.empty()) {
        return "is empty";
    }
    if (CountCharacters(strName) > NAME_CHARACTERS_MAX) {
        return TooMany(CountCharacters(strName), "characters", NAME_CHARACTERS_MAX);
    }
    if (strName.size() > NAME_BYTES_MAX) {
        return TooMany(strName.size(), "bytes", NAME_BYTES_MAX);
    }
    if (strName.front() == '.') {
        return Quoted(strName) + " begins with \".\"";
    }
    if (strName.find('/') != std::string::npos) {
        return Quoted(strName) + " holds \"/\"";
    }
    return HoldsControlCharacter(strName) ? Quoted(strName) + " holds a control character" : std::string();
}

DefinitionFault FindRefused(const Json::Value& jsDefinition, const DefinitionOrigin& origin) {
    DefinitionFault fault = InField("name", WhyBadName(jsDefinition["name"].asString()));
    if (!fault) {
        fault = WhyBadAccount(jsDefinition, origin);
    }
    if (!fault) {
        fault = WhyBadCommand(jsDefinition);
    }
    return fault ? fault : WhyBadOption(jsDefinition);
}

std::string WhyRefused(const Json::Value& jsDefinition, const DefinitionOrigin& origin) {
    return FindRefused(jsDefinition, origin).strReason;
}

} // namespace VUKO::VUKOCrond::Service
