#include "ctl/surroundings.h"

#include <grp.h>

namespace VUKO::VUKOCrond::Ctl {

namespace {

std::string GroupText(gid_t gid) {
    const struct group* const pGroup = getgrgid(gid);
    return std::to_string(gid) + (pGroup == nullptr ? "" : std::string(" (") + pGroup->gr_name + ")");
}

std::string LimitText(const Json::Value& jsLimit) {
    return jsLimit.isNull() ? "unlimited" : std::to_string(jsLimit.asUInt64());
}

std::string OutputText(const Json::Value& jsOutput) {
    const std::string strTo = jsOutput["to"].asString();
    return jsOutput["kind"] == "journal" ? "the journal, as " + strTo : strTo;
}

void AddLimits(Sheet& sheet, const Json::Value& jsLimits) {
    bool bFirst = true;
    for (const std::string& strName : jsLimits.getMemberNames()) {
        const std::string strSoft = LimitText(jsLimits[strName]["soft"]);
        const std::string strHard = LimitText(jsLimits[strName]["hard"]);
        const std::string strText = strName + " " + strSoft + (strSoft == strHard ? "" : ", at most " + strHard);
        if (bFirst) {
            sheet.Add("Limits", strText);
        } else {
            sheet.Continue(strText);
        }
        bFirst = false;
    }
}

} // namespace

void AddSurroundings(Sheet& sheet, const Json::Value& jsEffective, const std::string& strAccount) {
    if (!jsEffective.isObject()) {
        sheet.Add("Effective", {Style::Bad, "nothing: there is no account " + strAccount});
        return;
    }
    sheet.Add("User", std::to_string(jsEffective["uid"].asUInt()) + " (" + jsEffective["account"].asString() + ")");
    sheet.Add("Group", GroupText(jsEffective["gid"].asUInt()));
    std::string strGroups;
    for (const Json::Value& jsGroup : jsEffective["groups"]) {
        strGroups += (strGroups.empty() ? "" : ", ") + GroupText(jsGroup.asUInt());
    }
    sheet.Add("Groups", strGroups.empty() ? "none" : strGroups);
    sheet.Add("Directory", jsEffective["directory"].asString());
    sheet.Add("Umask", jsEffective["umask"].asString());
    sheet.Add("Input", jsEffective["input"].asString());
    sheet.Add("Output", OutputText(jsEffective["output"]));
    sheet.Add("Nice", std::to_string(jsEffective["nice"].asInt()));
    sheet.Add("OOM score", std::to_string(jsEffective["oomScoreAdjust"].asInt()));
    bool bFirst = true;
    for (const std::string& strName : jsEffective["environment"].getMemberNames()) {
        const std::string strEntry = strName + "=" + jsEffective["environment"][strName].asString();
        if (bFirst) {
            sheet.Add("Environment", strEntry);
        } else {
            sheet.Continue(strEntry);
        }
        bFirst = false;
    }
    AddLimits(sheet, jsEffective["limits"]);
}

} // namespace VUKO::VUKOCrond::Ctl
