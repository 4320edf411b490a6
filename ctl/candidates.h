#pragma once

#include <CLI/CLI.hpp>

#include <string>
#include <vector>

namespace VUKO::VUKOCrond::Ctl {

/// A word that may be written next.
struct Candidate {
    std::string strWord;
    std::string strDescription = {};
};

/// The words that an option or an argument takes, where it takes no others.
std::vector<Candidate> ChoicesOf(CLI::Option& option);

/// The jobs of the service: by their names where one name is enough. Nothing, and soon, where it does not answer.
///
/// @param strTyped  what stands there already: with a "/", or where no name begins like it, identities are given
std::vector<Candidate> JobCandidates(const std::string& strRoot, const std::string& strTyped);

/// The names of the zone database.
std::vector<Candidate> ZoneCandidates();

} // namespace VUKO::VUKOCrond::Ctl
