#include "ctl/newdefinition.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <sstream>

#include "ctl/toolerror.h"
#include "service/logtext.h"

namespace VUKO::VUKOCrond::Ctl {

namespace {

bool IsProgram(const std::string& strPath) {
    struct stat stFile = {};
    return stat(strPath.c_str(), &stFile) == 0 && S_ISREG(stFile.st_mode) && access(strPath.c_str(), X_OK) == 0;
}

} // namespace

std::string WholePathOf(const std::string& strProgram) {
    if (strProgram.find(' ') != std::string::npos && !IsProgram(strProgram)) {
        throw ToolError(EXIT_WRONG, "the command " + Service::Quoted(strProgram) +
                                        " is no program: give its arguments as words of their own, as jobs are started "
                                        "without a shell");
    }
    if (strProgram.find('/') != std::string::npos) {
        return std::filesystem::absolute(strProgram).lexically_normal().string();
    }
    const char* const szPath = getenv("PATH");
    std::istringstream in(szPath != nullptr ? szPath : "");
    for (std::string strFolder; std::getline(in, strFolder, ':');) {
        if (const std::string strFound = strFolder + "/" + strProgram;
            !strProgram.empty() && strFolder.starts_with('/') && IsProgram(strFound)) {
            return strFound;
        }
    }
    throw ToolError(EXIT_WRONG, "the command " + Service::Quoted(strProgram) +
                                    " is no program in PATH: name it with its whole path, as jobs are started without "
                                    "a shell");
}

Json::Value ToDefinition(const NewDefinition& wanted) {
    Json::Value jsDefinition(Json::objectValue);
    const std::pair<const char*, const std::string&> aTexts[] = {{"name", wanted.strName},
                                                                 {"user", wanted.strUser},
                                                                 {"package_username", wanted.strPackageUser},
                                                                 {"period", wanted.strPeriod},
                                                                 {"crontab", wanted.strCrontab},
                                                                 {"assure_execute_action", wanted.strAssureAction},
                                                                 {"overlap", wanted.strOverlap},
                                                                 {"description", wanted.strDescription}};
    for (const auto& [szMember, strText] : aTexts) {
        if (!strText.empty()) {
            jsDefinition[szMember] = strText;
        }
    }
    for (const auto& [szMember, iNumber] :
         {std::pair("assure_execute", wanted.iAssureHours), {"timeout", wanted.iTimeout}}) {
        if (iNumber != 0) {
            jsDefinition[szMember] = iNumber;
        }
    }
    if (wanted.bRunOnPassive) {
        jsDefinition["run_on_passive"] = true;
    }
    if (wanted.bDisabled) {
        jsDefinition["enabled"] = false;
    }
    jsDefinition["cmd_list"] = Json::Value(Json::arrayValue);
    for (const std::string& strArgument : wanted.vecCommand) {
        jsDefinition["cmd_list"].append(jsDefinition["cmd_list"].empty() ? WholePathOf(strArgument) : strArgument);
    }
    return jsDefinition;
}

} // namespace VUKO::VUKOCrond::Ctl
