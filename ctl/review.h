#pragma once

#include <json/json.h>

#include <string>
#include <vector>

#include "ctl/document.h"
#include "ctl/sourcetext.h"
#include "ctl/warning.h"
#include "service/definitions/definitionpolicy.h"

namespace VUKO::VUKOCrond::Ctl {

/// Why something is refused.
struct ReviewError {
    std::string strText;
    Service::DefinitionPlace place = {};
    std::string strBareText = {}; ///< where the text tells line and column itself: the text without them
    /// Where it stands in the text that was looked at, where that is known.
    std::optional<SourceSpan> span = {};
};

struct ReviewWarning : Warning {
    std::optional<SourceSpan> span = {};
    std::string strOf = {}; ///< what names the definition where it is one of several, with a colon behind it
};

struct Review {
    std::vector<ReviewError> vecErrors;
    std::vector<ReviewWarning> vecWarnings;
};

/// Looks at a five-field text.
Review ReviewCrontab(const std::string& strCrontab);

/// Looks at a definition: all that the library and the service have against it, and what may surprise.
///
/// @param origin  where it lies, as far as that bears on the account that it may run as.
Review ReviewDefinition(const Json::Value& jsDefinition,
                        const Service::DefinitionOrigin& origin = Service::DefinitionOrigin());

/// Why a text is no document, with its place.
ReviewError WhyNoDocument(const Document& document, const SourceText& source);

/// Finds where the definition that was looked at has what is told of it.
void FindSpans(Review& review, const Json::Value& jsDefinition, const SourceText& source);

/// Adds what there is to say about one of several definitions.
///
/// @param strOf  what names that one, with a colon behind it; empty where there is only one.
void TakeOver(Review& whole, Review part, const std::string& strOf);

/// "errors", "positions" (of the errors: an object with "line" and "column", or null) and "warnings" (with "line" and
/// "column" where these are known), as the machine interface has them.
void PutReview(Json::Value& jsResult, const Review& review, const SourceText& source);

/// The same without places.
void PutReview(Json::Value& jsResult, const Review& review);

} // namespace VUKO::VUKOCrond::Ctl
