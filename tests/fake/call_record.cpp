#include "tests/fake/call_record.h"

#include <cerrno>

#include "tests/support/shared_record.h"

namespace fake {

namespace {

support::SharedRecord& Record() {
    static support::SharedRecord record;
    return record;
}

// Made before anything forks, so that all processes share it.
[[maybe_unused]] const bool g_bMade = (Record(), true);

} // namespace

void RecordCall(const std::string& strCall) {
    const int iErrno = errno;
    Record().Append(strCall);
    errno = iErrno;
}

std::vector<std::string> Calls() {
    return Record().Texts();
}

void ClearCalls() {
    Record().Clear();
}

} // namespace fake
