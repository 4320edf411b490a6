#pragma once

#include <functional>
#include <optional>
#include <vector>

namespace support {

/// What a child does under trace. It must not return into the test runner by an exception; what it finds out it leaves
/// in a SharedRecord, for that takes no system call.
using TracedBody = std::function<void()>;

/// Runs the body in a child and kills the child at its N-th stop. Each system call makes two: one just before the
/// kernel carries it out, and one just after.
///
/// @param iStop  counted from 1.
/// @return false when the body was through before that stop: it has then run undisturbed.
bool KillAtStop(const TracedBody& body, int iStop);

/// What was done to a child whose system call was made to fail.
struct FailedCall {
    long lNumber;                ///< of the call that failed
    std::vector<long> vecBefore; ///< the calls that came before it, which were carried out
};

/// Runs the body in a child and lets the N-th of the system calls that are meant fail with an errno value, without
/// being carried out. The calls after it are carried out.
///
/// @param iCall    counted from 1, among those that are meant.
/// @param isMeant  by the call's number (SYS_openat, ...).
/// @return nothing when the body made fewer of these calls: it has then run undisturbed.
std::optional<FailedCall> FailCall(const TracedBody& body, int iCall, int iErrno,
                                   const std::function<bool(long)>& isMeant);

/// Runs the body in a child, undisturbed.
/// @return the numbers of its system calls, in order.
std::vector<long> SystemCallsOf(const TracedBody& body);

} // namespace support
