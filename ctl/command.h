#pragma once

#include <CLI/CLI.hpp>

#include <functional>
#include <string>

#include "ctl/common.h"
#include "service/engine/clockpolicy.h"

namespace VUKO::VUKOCrond::Ctl {

/// Adds a command; `run` of `common` is set when it is chosen. Each stands in a file of its own.
CLI::App* AddCommand(CLI::App& app, Common& common, const std::string& strName, const std::string& strDescription,
                     std::function<ExitStatus()> run);

void AddNext(CLI::App& app, Common& common);
void AddCheck(CLI::App& app, Common& common);
void AddExplain(CLI::App& app, Common& common);
void AddSimulate(CLI::App& app, Common& common);
void AddTimeline(CLI::App& app, Common& common);
void AddStatus(CLI::App& app, Common& common);
void AddList(CLI::App& app, Common& common);
void AddShow(CLI::App& app, Common& common);
void AddWhy(CLI::App& app, Common& common);
void AddHistory(CLI::App& app, Common& common);
void AddLog(CLI::App& app, Common& common);
void AddRun(CLI::App& app, Common& common);
void AddAdd(CLI::App& app, Common& common);
void AddEdit(CLI::App& app, Common& common);
void AddRemove(CLI::App& app, Common& common);
/// enable and disable.
void AddEnableCommands(CLI::App& app, Common& common);
void AddImport(CLI::App& app, Common& common);
/// reload, reroll, role, template, drain: one request each.
void AddOneRequestCommands(CLI::App& app, Common& common);

/// Adds the options of all commands that look ahead: --tz and --policy. @return the latter
CLI::Option* AddClockOptions(CLI::App& command, std::string& strZone, Service::ClockPolicy& ePolicy);
/// Adds --max-delay.
CLI::Option* AddMaxDelayOption(CLI::App& command, int& iMaxDelay);

} // namespace VUKO::VUKOCrond::Ctl
