#pragma once

#include <json/json.h>

#include <string>

#include "service/definitions/definitionfault.h"

namespace VUKO::VUKOCrond::Service {

/// Tells why the library would make an invalid job of a definition: which field, which value, and what was expected.
/// The library itself refuses some of this without a word, and what it logs names no file.
///
/// @return the first reason, in one line that is fit for a log; empty when CronJob({"config": jsDefinition}) is valid.
///         Changes, logs and throws nothing.
std::string WhyInvalid(const Json::Value& jsDefinition);

/// The same with its place in the definition.
DefinitionFault FindInvalid(const Json::Value& jsDefinition);

/// How one of several definitions in a file is named in a reason: by its number and, where it has one, its name.
///
/// @param uIndex  counted from 0.
std::string LabelOf(Json::ArrayIndex uIndex, const Json::Value& jsDefinition);

/// What a value is, in the words of a reason: "a text", "a number", "null", ...
const char* KindOf(const Json::Value& jsValue);

} // namespace VUKO::VUKOCrond::Service
