#include "crond/cronjob/jobuser.h"

#include "base/syslog_line.h"
#include "crond/cronjob/logsource.h"
#include "platform/vukojson.h"
#include "platform/vukosdk.h"

namespace VUKO::VUKOCrond {

namespace {

/// The tests are for a part of the text, "package" first: "package-root" is a package's job, and "myroot" is looked up
/// as an account of that name. The stores compare "package" whole; the difference is meant.
std::optional<std::string> AccountName(const Json::Value& jsConf) {
    const std::string strUser = jsConf["user"].asString();
    const auto contains = [&strUser](const char* szWord) { return strUser.find(szWord) != std::string::npos; };
    if (contains("package")) {
        if (jsConf.isMember("package_username") && jsConf["package_username"].isString()) {
            return jsConf["package_username"].asString();
        }
        VUKO_LOG(LOG_ERR, 70, "you are not package! error user in config");
        return std::nullopt;
    }
    if (contains("system") || contains("root")) {
        return strUser;
    }
    const std::string strJobName = JSON::toString(jsConf["name"]);
    VUKO_LOG(LOG_ERR, 74, "wrong user %s! you can only specify root/system/package in config [%s]", strUser.c_str(),
             strJobName.c_str());
    return std::nullopt;
}

} // namespace

std::optional<JobUser> GetJobUser(const Json::Value& jsConf) {
    const std::optional<std::string> strName = AccountName(jsConf);
    if (!strName) {
        VUKO_LOG(LOG_ERR, 96, "Unable to determine user");
        return std::nullopt;
    }
    JobUser user{*strName, 0, 0};
    if (VUKOUserGetUGID(user.strName.c_str(), &user.uid, &user.gid) == -1) {
        VUKO_LOG(LOG_ERR, 104, "user %s not exist", user.strName.c_str());
        return std::nullopt;
    }
    return user;
}

} // namespace VUKO::VUKOCrond
