#include <csignal>
#include <iostream>
#include <memory>

#include "ctl/client.h"
#include "ctl/command.h"
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

ExitStatus Started(const std::string& strJob, const Common& common) {
    Json::Value jsMembers(Json::objectValue);
    jsMembers["job"] = strJob;
    const Json::Value jsResult = Client(common.strRoot).Ask("run", jsMembers);
    if (common.bJson) {
        PrintJson(jsResult);
    } else {
        std::cout << "Started " << jsResult["job"].asString() << "; \"vukocronctl show " << jsResult["job"].asString()
                  << "\" tells how it goes.\n";
    }
    return EXIT_DONE;
}

ExitStatus Awaited(const std::string& strJob, const Common& common) {
    Json::Value jsMembers(Json::objectValue);
    jsMembers["job"] = strJob;
    jsMembers["wait"] = true;
    Client client(common.strRoot);
    client.Send("run", jsMembers);
    if (!Waiting(strJob + " runs,", common.bJson).UntilReadable(client.Descriptor())) {
        std::cerr << "No longer waiting: the job goes on, see \"vukocronctl show " << strJob << "\".\n";
        return static_cast<ExitStatus>(SIGNALED_BASE + SIGINT);
    }
    const Json::Value jsResult = client.Receive();
    if (common.bJson) {
        PrintJson(jsResult);
    } else {
        std::cout << jsResult["job"].asString() << ": " << EndText(jsResult["end"], "kind") << " after "
                  << RunTimeText(jsResult["end"]["durationUsec"].asInt64()) << "\n";
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
