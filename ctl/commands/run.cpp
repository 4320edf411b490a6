#include <csignal>
#include <cstring>
#include <iostream>
#include <memory>

#include "ctl/client.h"
#include "ctl/command.h"
#include "ctl/text.h"
#include "ctl/waiting.h"
#include "ctl/words.h"

namespace VUKO::VUKOCrond::Ctl {

namespace {

struct Asked {
    std::string strJob;
    bool bWait = false;
};

constexpr int SIGNALED_BASE = 128;

/// The tool's own status is that of the job, as with a command that is run by hand.
ExitStatus StatusOf(const Json::Value& jsEnd) {
    const int iCode = jsEnd["code"].asInt();
    if (jsEnd["kind"] == "exited") {
        return static_cast<ExitStatus>(iCode);
    }
    return jsEnd["kind"] == "signaled" ? static_cast<ExitStatus>(SIGNALED_BASE + iCode) : EXIT_WRONG;
}

/// How it ended, in one line.
std::string EndSentence(const std::string& strJob, const Json::Value& jsEnd) {
    const std::string strKind = jsEnd["kind"].asString();
    if (strKind == "not-started") {
        return strJob + " could not be started: " + std::strerror(jsEnd["code"].asInt());
    }
    if (strKind != "exited" && strKind != "signaled") {
        return strJob + ": its end is not known (" + strKind + ")";
    }
    return strJob + ": " + EndText(jsEnd, "kind") + " after " + RunTimeText(jsEnd["durationUsec"].asInt64());
}

/// The job outlives a service that goes away meanwhile.
Json::Value EndOf(Client& client, const std::string& strJob) {
    try {
        return client.Receive();
    } catch (const ToolError& error) {
        if (error.Status() != EXIT_UNREACHABLE) {
            throw;
        }
        throw ToolError(EXIT_UNREACHABLE, std::string(error.what()) +
                                              "; what was started goes on, and once the service is back, \"vukocronctl "
                                              "show " +
                                              strJob + "\" tells of it");
    }
}

ExitStatus Started(const std::string& strJob, const Common& common) {
    Json::Value jsMembers(Json::objectValue);
    jsMembers["job"] = strJob;
    const Json::Value jsResult = Client(common.strRoot).Ask("run", jsMembers);
    if (common.bJson) {
        PrintJson(jsResult);
    } else {
        const std::string strId = Readable(Spelled(jsResult["job"].asString()));
        std::cout << "Started " << strId << "; \"vukocronctl show " << strId << "\" tells how it goes.\n";
    }
    return EXIT_DONE;
}

ExitStatus Awaited(const std::string& strJob, const Common& common) {
    Json::Value jsMembers(Json::objectValue);
    jsMembers["job"] = strJob;
    jsMembers["wait"] = true;
    Client client(common.strRoot);
    client.Send("run", jsMembers);
    if (!Waiting(Readable(strJob) + " runs,", common.bJson).UntilReadable(client.Descriptor())) {
        std::cerr << "No longer waiting: the job goes on, see \"vukocronctl show " << Readable(strJob) << "\".\n";
        return static_cast<ExitStatus>(SIGNALED_BASE + SIGINT);
    }
    const Json::Value jsResult = EndOf(client, strJob);
    if (common.bJson) {
        PrintJson(jsResult);
    } else {
        std::cout << Readable(EndSentence(Spelled(jsResult["job"].asString()), jsResult["end"])) << "\n";
    }
    return StatusOf(jsResult["end"]);
}

} // namespace

void AddRun(CLI::App& app, Common& common) {
    const auto asked = std::make_shared<Asked>();
    const Command command = AddCommand(app, common, "run", "Start a job now", [asked, &common] {
        return asked->bWait ? Awaited(asked->strJob, common) : Started(asked->strJob, common);
    });
    command.Option("JOB", asked->strJob, "Its name, or FOLDER/NAME, or FOLDER/PACKAGE/NAME").Required();
    command.Flag("--wait", asked->bWait, "Wait for its end, and end with its status");
}

} // namespace VUKO::VUKOCrond::Ctl
