#include "ctl/command.h"

#include <map>
#include <utility>

namespace VUKO::VUKOCrond::Ctl {

CLI::App* AddCommand(CLI::App& app, Common& common, const std::string& strName, const std::string& strDescription,
                     std::function<ExitStatus()> run) {
    CLI::App* const pCommand = app.add_subcommand(strName, strDescription);
    pCommand->add_flag("--json", common.bJson, "Print one JSON document");
    pCommand->callback([&common, run = std::move(run)] { common.run = run; });
    return pCommand;
}

CLI::Option* AddClockOptions(CLI::App& command, std::string& strZone, Service::ClockPolicy& ePolicy) {
    using Service::ClockPolicy;
    command.add_option("--tz", strZone, "Time zone (the system's)")->type_name("ZONE");
    return command.add_option("--policy", ePolicy, "literal or catchup (catchup)")
        ->type_name("POLICY")
        ->transform(CLI::CheckedTransformer(
            std::map<std::string, ClockPolicy>{{"catchup", ClockPolicy::CatchUp}, {"literal", ClockPolicy::Literal}}));
}

CLI::Option* AddMaxDelayOption(CLI::App& command, int& iMaxDelay) {
    return command.add_option("--max-delay", iMaxDelay, "Seconds over which jobs of a random minute are spread (300)")
        ->type_name("SECONDS")
        ->check(CLI::NonNegativeNumber.description(""));
}

} // namespace VUKO::VUKOCrond::Ctl
