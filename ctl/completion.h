#pragma once

#include <CLI/CLI.hpp>

#include <iosfwd>
#include <string>
#include <vector>

#include "ctl/toolerror.h"

namespace VUKO::VUKOCrond::Ctl {

/// The word in the place of a command by which a shell asks what may be written next. It is for the shells' own files
/// and stands in no help.
constexpr const char* COMPLETE = "__complete";

/// Answers a shell: a candidate a line, each ready to be written at the cursor ("bash") or as it is, a tab and what it
/// is ("zsh"); a last line ":files", ":folders" or ":commands" leaves the rest to the shell.
///
/// The commands and options are those of `app`, so what it offers is what the tool has.
///
/// @param vecArguments  "bash", the line up to the cursor, and the part of it that bash replaces; or "zsh" and the
/// words
///                      behind the tool's name, the last being the one at the cursor.
ExitStatus Complete(CLI::App& app, const std::vector<std::string>& vecArguments, std::ostream& out);

} // namespace VUKO::VUKOCrond::Ctl
