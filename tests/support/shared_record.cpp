#include "tests/support/shared_record.h"

#include <sys/mman.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <stdexcept>

namespace support {

namespace {

constexpr std::size_t CAPACITY = std::size_t{1} << 23; // in words; address space only, until it is used

/// Words for a text: its size first, then its bytes.
constexpr std::size_t WordsFor(std::size_t uBytes) {
    return 1 + (uBytes + sizeof(std::uint64_t) - 1) / sizeof(std::uint64_t);
}

} // namespace

struct SharedRecord::Memory {
    std::uint64_t uUsed;
    std::uint64_t aWords[CAPACITY];

    std::atomic_ref<std::uint64_t> Used() { return std::atomic_ref<std::uint64_t>(uUsed); }
    /// The size plus 1 of the text there; 0 until the text behind it is whole, so that a reader never sees half of one.
    std::atomic_ref<std::uint64_t> SizeAt(std::size_t uAt) { return std::atomic_ref<std::uint64_t>(aWords[uAt]); }
};

SharedRecord::SharedRecord() : _pMemory(nullptr) {
    void* const p =
        mmap(nullptr, sizeof(Memory), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (p == MAP_FAILED) {
        throw std::runtime_error("mmap");
    }
    _pMemory = static_cast<Memory*>(p); // fresh pages are zero: nothing is used
}

void SharedRecord::Append(const std::string& strText) {
    const std::size_t uAt = _pMemory->Used().fetch_add(WordsFor(strText.size()));
    if (uAt + WordsFor(strText.size()) > CAPACITY) {
        throw std::length_error("record is full");
    }
    std::memcpy(_pMemory->aWords + uAt + 1, strText.data(), strText.size());
    _pMemory->SizeAt(uAt).store(strText.size() + 1, std::memory_order_release);
}

std::vector<std::string> SharedRecord::Texts() const {
    std::vector<std::string> vecTexts;
    const std::size_t uUsed = _pMemory->Used();
    for (std::size_t uAt = 0; uAt < uUsed;) {
        const std::size_t uSize = _pMemory->SizeAt(uAt).load(std::memory_order_acquire);
        if (uSize == 0) {
            break; // somebody is at it
        }
        vecTexts.emplace_back(reinterpret_cast<const char*>(_pMemory->aWords + uAt + 1), uSize - 1);
        uAt += WordsFor(uSize - 1);
    }
    return vecTexts;
}

void SharedRecord::Clear() {
    std::fill_n(_pMemory->aWords, std::min<std::size_t>(_pMemory->Used(), CAPACITY), 0);
    _pMemory->Used() = 0;
}

} // namespace support
