#include "service/definitions/definitionpolicy.h"

#include "platform/vukosdk.h"
#include "service/definitions/definitionreason.h"
#include "service/logtext.h"

namespace VUKO::VUKOCrond::Service {

namespace {

constexpr std::size_t MAX_NAME_LENGTH = 128;

/// The name stands in log lines and file names.
std::string WhyBadName(const std::string& strName) {
    if (strName.empty()) {
        return "field \"name\": is empty";
    }
    if (strName.size() > MAX_NAME_LENGTH) {
        return "field \"name\": " + std::to_string(strName.size()) + " bytes are more than " +
               std::to_string(MAX_NAME_LENGTH);
    }
    if (strName.front() == '.') {
        return "field \"name\": " + Quoted(strName) + " begins with \".\"";
    }
    if (strName.find('/') != std::string::npos) {
        return "field \"name\": " + Quoted(strName) + " holds \"/\"";
    }
    if (HoldsControlCharacter(strName)) {
        return "field \"name\": " + Quoted(strName) + " holds a control character";
    }
    return std::string();
}

/// Account names stand in log lines, too: those of the library, which prints them as they are.
std::string WhyBadAccountName(const Json::Value& jsDefinition, const char* szField) {
    const Json::Value& jsAccount = jsDefinition[szField];
    if (jsAccount.isString() && HoldsControlCharacter(jsAccount.asString())) {
        return std::string("field \"") + szField + "\": " + Quoted(jsAccount.asString()) + " holds a control character";
    }
    return std::string();
}

bool HoldsNul(const Json::Value& jsText) {
    return jsText.asString().find('\0') != std::string::npos;
}

/// The library takes numbers and objects here and gives up in the child, when the job is due.
std::string WhyBadCommand(const Json::Value& jsDefinition) {
    if (!jsDefinition.isMember("cmd_list")) {
        return HoldsNul(jsDefinition["cmd"]) ? "field \"cmd\": holds a NUL character" : std::string();
    }
    const Json::Value& jsList = jsDefinition["cmd_list"];
    if (!jsList.isArray()) {
        return std::string("field \"cmd_list\": expected an array, found ") + KindOf(jsList);
    }
    for (Json::ArrayIndex i = 0; i < jsList.size(); ++i) {
        const std::string strElement = "field \"cmd_list\": element " + std::to_string(i + 1) + ": ";
        if (!jsList[i].isString()) {
            return strElement + "expected a text, found " + KindOf(jsList[i]);
        }
        if (HoldsNul(jsList[i])) {
            return strElement + "holds a NUL character";
        }
    }
    return std::string();
}

/// A package with an account of its own writes its definitions itself, so what they say about the account is checked:
/// never root, and nobody but the owner of the package's sub-folder.
std::string WhyBadPackageAccount(const Json::Value& jsDefinition, const DefinitionOrigin& origin) {
    const std::string strUser = jsDefinition["user"].asString();
    if (strUser != "package") {
        return "field \"user\": expected \"package\" in this folder, found " + Quoted(strUser);
    }
    const Json::Value& jsAccount = jsDefinition["package_username"];
    if (!jsAccount.isString()) {
        return std::string("field \"package_username\": expected a text, found ") + KindOf(jsAccount);
    }
    const std::string strAccount = jsAccount.asString();
    uid_t uid = 0;
    gid_t gid = 0;
    const bool bKnown = VUKOUserGetUGID(strAccount.c_str(), &uid, &gid) == 0;
    if (bKnown && uid == 0) {
        return "field \"package_username\": " + Quoted(strAccount) + " is root";
    }
    if (origin.uidPackage && (!bKnown || uid != *origin.uidPackage)) {
        return "field \"package_username\": " + Quoted(strAccount) +
               (bKnown ? " is not the account that owns the package's folder" : " is no known account");
    }
    return std::string(); // an account that is unknown now may be made before the job is due
}

} // namespace

std::string WhyRefused(const Json::Value& jsDefinition, const DefinitionOrigin& origin) {
    std::string strReason = WhyBadName(jsDefinition["name"].asString());
    for (const char* const szField : {"user", "package_username"}) {
        if (strReason.empty()) {
            strReason = WhyBadAccountName(jsDefinition, szField);
        }
    }
    if (strReason.empty()) {
        strReason = WhyBadCommand(jsDefinition);
    }
    if (strReason.empty() && origin.bOfPackageAccount) {
        strReason = WhyBadPackageAccount(jsDefinition, origin);
    }
    return strReason;
}

} // namespace VUKO::VUKOCrond::Service
