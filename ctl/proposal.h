#pragma once

#include <json/json.h>

#include <string>
#include <vector>

#include "ctl/place.h"
#include "ctl/review.h"
#include "ctl/sourcetext.h"

namespace VUKO::VUKOCrond::Ctl {

/// Definitions that are to be stored, and the text that they were read from.
struct Proposal {
    std::string strWhere; ///< stands before what is told of it: a file, or the job's name
    SourceText source{std::string()};
    bool bDenied = false; ///< one may not read it
    bool bArray = false;
    std::vector<Json::Value> vecDefinitions = {}; ///< none where there is no document
    Review review = {};                           ///< of the document, and of the definitions once they are judged
};

/// Reads a file of one definition or an array of them, "-" for standard input.
Proposal ReadProposal(const std::string& strFile);

/// Holds all definitions against what the service would refuse in a place, before anything is stored, and tells on
/// standard error all that is wrong and what may surprise, as `check` does.
///
/// @return whether all are good.
bool IsGood(Proposal& proposal, const Place& place);

} // namespace VUKO::VUKOCrond::Ctl
