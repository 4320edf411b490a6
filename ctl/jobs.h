#pragma once

#include <ctime>
#include <string>
#include <vector>

#include "service/engine/job.h"

namespace VUKO::VUKOCrond::Ctl {

/// A job of a definition, with its values drawn for the occasion.
///
/// @throws ToolError where the library or the service refuses it, with the reason.
Service::Job JobOfDefinition(const Json::Value& jsDefinition, const std::string& strWhere);

/// The job that a five-field text makes; its name is "crontab".
Service::Job JobOfCrontab(const std::string& strCrontab);

/// The jobs of a definition file, "-" for standard input: an object or an array of them.
std::vector<Service::Job> JobsOfFile(const std::string& strFile);

/// The installed jobs, or the one of that name, with the values that the service keeps for them.
std::vector<Service::Job> JobsOfService(const std::string& strRoot, const std::string& strJob);

/// What a simulation from an instant on is about: the jobs of definition files, known from that instant and not started
/// yet, or, where there are none, the installed ones with what the service knows of them; without their definitions.
std::vector<Service::Job> JobsToSimulate(const std::vector<std::string>& vecFiles, const std::string& strRoot,
                                         std::time_t tFrom);

/// What stands in the definition: its five fields, or those that its period means.
std::string CrontabOf(const Service::Job& job);

} // namespace VUKO::VUKOCrond::Ctl
