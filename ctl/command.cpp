#include "ctl/command.h"

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
    command.add_option("--tz", strZone, "Time zone (the system's)")->type_name("ZONE");
    const auto set = [&ePolicy](const std::string& strPolicy) {
        ePolicy = Service::ClockPolicyOf(strPolicy).value_or(ePolicy);
    };
    return command.add_option_function<std::string>("--policy", set, "literal or catchup (catchup)")
        ->type_name("POLICY")
        ->check(CLI::IsMember({"literal", "catchup"}).description(""));
}

CLI::Option* AddMaxDelayOption(CLI::App& command, int& iMaxDelay) {
    return command.add_option("--max-delay", iMaxDelay, "Seconds over which jobs of a random minute are spread (300)")
        ->type_name("SECONDS")
        ->check(CLI::NonNegativeNumber.description(""));
}

} // namespace VUKO::VUKOCrond::Ctl
