#include "tests/fake/call_record.h"

#include <sys/mman.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <new>
#include <stdexcept>

namespace fake {

namespace {

struct SharedRecord {
    std::atomic<std::size_t> uUsed;
    char aText[1 << 16];
};

SharedRecord& Record() {
    static SharedRecord* const pRecord = [] {
        void* const p = mmap(nullptr, sizeof(SharedRecord), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        if (p == MAP_FAILED) {
            throw std::runtime_error("mmap");
        }
        return new (p) SharedRecord();
    }();
    return *pRecord;
}

// Mapped before anything forks, so that all processes share it.
[[maybe_unused]] const bool g_bMapped = (Record(), true);

} // namespace

void RecordCall(const std::string& strCall) {
    const int iErrno = errno;
    SharedRecord& record = Record();
    const std::size_t uSize = strCall.size() + 1;
    const std::size_t uAt = record.uUsed.fetch_add(uSize);
    if (uAt + uSize > sizeof(record.aText)) {
        throw std::length_error("call record is full");
    }
    std::memcpy(record.aText + uAt, strCall.c_str(), uSize);
    errno = iErrno;
}

std::vector<std::string> Calls() {
    const SharedRecord& record = Record();
    std::vector<std::string> vecCalls;
    for (std::size_t uAt = 0; uAt < record.uUsed;) {
        vecCalls.emplace_back(record.aText + uAt);
        uAt += vecCalls.back().size() + 1;
    }
    return vecCalls;
}

void ClearCalls() {
    Record().uUsed = 0;
}

} // namespace fake
