#include "platform/linux/entropy.h"

#include <fcntl.h>
#include <sys/random.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <ctime>

#include "platform/linux/filedescriptor.h"
#include "platform/linux/interrupt.h"
#include "platform/linux/lasterror.h"

namespace VUKO::PLATFORM {

namespace {

/// Calls `source(place, room)`, which returns how much it gave, until the buffer is full or the source gives nothing.
template <typename Source>
bool FillFrom(Source source, char* pBuffer, std::size_t uSize) {
    std::size_t uFilled = 0;
    while (uFilled < uSize) {
        const ssize_t iGot = RetryInterrupted([&] { return source(pBuffer + uFilled, uSize - uFilled); });
        if (iGot <= 0) {
            return false;
        }
        uFilled += static_cast<std::size_t>(iGot);
    }
    return true;
}

bool FillFromKernel(char* pBuffer, std::size_t uSize) {
    return FillFrom([](char* pPlace, std::size_t uRoom) { return ::getrandom(pPlace, uRoom, 0); }, pBuffer, uSize);
}

bool FillFromDevice(char* pBuffer, std::size_t uSize) {
    const FileDescriptor fd(RetryInterrupted([] { return ::open("/dev/urandom", O_RDONLY | O_CLOEXEC | O_NOCTTY); }));
    return fd &&
           FillFrom([&fd](char* pPlace, std::size_t uRoom) { return ::read(fd.Get(), pPlace, uRoom); }, pBuffer, uSize);
}

std::uint64_t Nanoseconds(clockid_t clock) {
    struct timespec tsNow = {};
    ::clock_gettime(clock, &tsNow);
    return static_cast<std::uint64_t>(tsNow.tv_sec) * 1000000000U + static_cast<std::uint64_t>(tsNow.tv_nsec);
}

/// Stretches what differs between processes and calls over the buffer (the SplitMix64 sequence).
void FillFromCircumstances(char* pBuffer, std::size_t uSize) {
    std::uint64_t uState = Nanoseconds(CLOCK_REALTIME) ^ (Nanoseconds(CLOCK_MONOTONIC) << 20) ^
                           (static_cast<std::uint64_t>(::getpid()) << 40) ^ reinterpret_cast<std::uintptr_t>(pBuffer);
    for (std::size_t uFilled = 0; uFilled < uSize; uFilled += sizeof(uState)) {
        uState += 0x9E3779B97F4A7C15U;
        std::uint64_t uWord = uState;
        uWord = (uWord ^ (uWord >> 30)) * 0xBF58476D1CE4E5B9U;
        uWord = (uWord ^ (uWord >> 27)) * 0x94D049BB133111EBU;
        uWord ^= uWord >> 31;
        const std::size_t uLeft = uSize - uFilled;
        std::memcpy(pBuffer + uFilled, &uWord, uLeft < sizeof(uWord) ? uLeft : sizeof(uWord));
    }
}

} // namespace

void FillWithEntropy(void* pBuffer, std::size_t uSize) {
    const ErrnoKeeper keeper;
    char* const pBytes = static_cast<char*>(pBuffer);
    if (!FillFromKernel(pBytes, uSize) && !FillFromDevice(pBytes, uSize)) {
        FillFromCircumstances(pBytes, uSize);
    }
}

} // namespace VUKO::PLATFORM
