#pragma once

#include <functional>
#include <string>

namespace support {

/// How a child ended.
struct ChildEnd {
    int iExitStatus = -1;  ///< -1 when a signal ended it
    int iSignal = 0;       ///< 0 when it exited
    std::string strOutput; ///< what it wrote to the descriptor it was given
};

/// Runs a function in a child and waits for its end. The child never falls through into the test runner: it ends with
/// the function's result as its status, or with 99 when an exception came out.
///
/// @param body  gets a descriptor whose text comes back in ChildEnd::strOutput.
ChildEnd RunForked(const std::function<int(int iFdOut)>& body);

/// Waits for a child's end however often a signal interrupts it; returns the wait status, -1 when there is none.
int WaitFor(int iPid);

} // namespace support
