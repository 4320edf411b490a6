#pragma once

#include <json/json.h>

#include <string>

namespace VUKO::VUKOCrond::Ctl {

/// "3min 20s", "2h 5min", "4d 3h"; two units at most.
std::string DurationText(std::int64_t iSeconds);
/// The same for what may be short: "12ms", "1.250s", then as above.
std::string RunTimeText(std::int64_t iUsec);
/// How a run ended, of an "end" or a "last" object of the service: "exit 0", "signal 9", "running", ...
std::string EndText(const Json::Value& jsEnd, const char* szKindMember);
/// What became of a due minute, of an entry of the ledger: "started", "skipped: overlap with process 12", ...
std::string OutcomeText(const Json::Value& jsOutcome);
/// Why jobs may not start for now whatever their schedules say, in whole sentences; empty: nothing keeps them.
std::string StandstillText(bool bPassive, bool bDraining);
/// "2.0 MiB"
std::string MemoryText(std::int64_t iKib);

} // namespace VUKO::VUKOCrond::Ctl
