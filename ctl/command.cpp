#include "ctl/command.h"

#include <iostream>
#include <utility>

namespace VUKO::VUKOCrond::Ctl {

CLI::App* AddCommand(CLI::App& app, Common& common, const std::string& strName, const std::string& strDescription,
                     std::function<ExitStatus()> run) {
    CLI::App* const pCommand = app.add_subcommand(strName, strDescription);
    pCommand->add_flag("--json", common.bJson, "Print one JSON document");
    pCommand->callback([&common, run = std::move(run)] { common.run = run; });
    return pCommand;
}

void PrintJson(const Json::Value& jsValue) {
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "  ";
    std::cout << Json::writeString(builder, jsValue) << "\n";
}

} // namespace VUKO::VUKOCrond::Ctl
