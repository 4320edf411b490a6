#pragma once

#include <json/json.h>

#include <string>
#include <vector>

/// The document of a daily job with this command as its argument vector.
inline Json::Value ListCommandJob(const std::string& strName, const std::string& strUser,
                                  const std::vector<std::string>& vecCommand) {
    Json::Value jsJob(Json::objectValue);
    Json::Value& jsConf = jsJob["config"];
    jsConf["name"] = strName;
    jsConf["user"] = strUser;
    jsConf["period"] = "daily";
    jsConf["cmd_list"] = Json::Value(Json::arrayValue);
    for (const std::string& strPiece : vecCommand) {
        jsConf["cmd_list"].append(strPiece);
    }
    return jsJob;
}

/// The same for the command as one text.
inline Json::Value TextCommandJob(const std::string& strName, const std::string& strUser,
                                  const std::string& strCommand) {
    Json::Value jsJob = ListCommandJob(strName, strUser, {});
    jsJob["config"].removeMember("cmd_list");
    jsJob["config"]["cmd"] = strCommand;
    return jsJob;
}
