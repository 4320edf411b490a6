#pragma once

#include <json/json.h>

#include <map>
#include <string>

namespace VUKO::VUKOCrond::Ctl {

/// The variables that a crontab has set up to a line.
using CronEnvironment = std::map<std::string, std::string>;

/// The command of a line as cron runs it, as a "cmd_list": by the shell, in cron's environment, with what follows the
/// first "%" on standard input.
///
/// Always through the shell: what a shell makes of a text, only a shell makes of it.
Json::Value CronCommand(const std::string& strCommand, const CronEnvironment& mapEnvironment);

/// Why such a command cannot be had here; empty where it can.
std::string WhyNoCommand(const std::string& strCommand, const CronEnvironment& mapEnvironment);

/// Whether the command is given something on standard input.
bool HasInput(const std::string& strCommand);

/// Whether it holds two backslashes in a row, of which not every cron makes one.
bool HasTwoBackslashes(const std::string& strCommand);

/// A job's name for a command: what it runs, without shell words, wrappers and interpreters. Fit for a file name.
std::string NameOfCommand(const std::string& strCommand);

/// The same for any text: other characters than letters, digits and "._+-" become "-".
std::string SafeName(const std::string& strText);

} // namespace VUKO::VUKOCrond::Ctl
