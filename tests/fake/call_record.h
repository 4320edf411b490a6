#pragma once

#include <string>
#include <vector>

namespace fake {

/// Notes one call. The record lies in memory shared with forked children, so the calls of a child are seen by the
/// parent, in the order in which they were made.
void RecordCall(const std::string& strCall);

/// The calls since the last ClearCalls().
std::vector<std::string> Calls();
void ClearCalls();

} // namespace fake
