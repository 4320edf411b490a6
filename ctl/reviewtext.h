#pragma once

#include <iosfwd>
#include <string>

#include "ctl/review.h"

namespace VUKO::VUKOCrond::Ctl {

/// Tells people what a review found, a line each: "WHERE:LINE:COLUMN: error: ...", as compilers do. On a terminal the
/// text that is meant stands below, with a mark under it.
///
/// @param strWhere  what the lines begin with: a file; empty where there is only one text, whose lines are not counted.
void PrintReview(std::ostream& out, const std::string& strWhere, const Review& review, const SourceText& source);

} // namespace VUKO::VUKOCrond::Ctl
