#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "service/definitions/definitionfault.h"

namespace VUKO::VUKOCrond::Ctl {

/// More of one text, or of one kind, than anybody reads.
constexpr std::size_t WARNINGS_MAX = 100;

/// Something that is accepted, or nearly, and means something else than whoever wrote it may think.
struct Warning {
    std::string strCode; ///< stable, for programs
    std::string strText;
    Service::DefinitionPlace place;
    /// A five-field text that says here what the other says in a classic crontab.
    std::optional<std::string> rewrite = {};
};

} // namespace VUKO::VUKOCrond::Ctl
