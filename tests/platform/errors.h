#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <vector>

#include "platform/vlibc.h"

namespace support {

/// A value that no failure leaves in errno: what is still there afterwards has not been touched.
constexpr int ERRNO_MARK = 4242;

/// What a failed call left behind: the errno value, which is also the last platform error, with the file and line of
/// one of the platform's own sources.
inline void ExpectFailedWith(int iErrno, int iExpected) {
    EXPECT_STREQ(strerror(iErrno), strerror(iExpected));
    EXPECT_EQ(VLIBCErrGet(), static_cast<unsigned>(iExpected));
    EXPECT_NE(std::strstr(VLIBCErrorGetFile(), ".cpp"), nullptr) << VLIBCErrorGetFile();
    EXPECT_EQ(std::strchr(VLIBCErrorGetFile(), '/'), nullptr) << VLIBCErrorGetFile();
    EXPECT_GT(VLIBCErrorGetLine(), 0);
}

/// Calls with errno marked; the mark is still there after a success.
template <typename Call>
auto WithMarkedErrno(Call call, int& iErrno) {
    errno = ERRNO_MARK;
    const auto result = call();
    iErrno = errno;
    return result;
}

/// Descriptors that are open in this process.
inline std::vector<int> OpenDescriptors() {
    std::vector<int> vecOpen;
    for (int iFd = 0; iFd < 1024; ++iFd) {
        if (dup2(iFd, iFd) == iFd) {
            vecOpen.push_back(iFd);
        }
    }
    return vecOpen;
}

} // namespace support
