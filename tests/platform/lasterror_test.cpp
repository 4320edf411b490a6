#include <gtest/gtest.h>

#include <thread>

#include "platform/vlibc.h"
#include "platform/vukosdk.h"
#include "tests/platform/errors.h"

namespace {

TEST(LastError, IsEmptyInAThreadWithoutFailures) {
    EXPECT_EQ(VLIBCExecv(nullptr, nullptr, 1), -1);
    std::thread([] {
        EXPECT_EQ(VLIBCErrGet(), 0U);
        EXPECT_STREQ(VLIBCErrorGetFile(), "");
        EXPECT_EQ(VLIBCErrorGetLine(), 0);
    }).join();
}

TEST(LastError, BelongsToTheThreadThatFailed) {
    EXPECT_EQ(VLIBCExecv(nullptr, nullptr, 1), -1);
    std::thread([] {
        int iStatus = 0;
        EXPECT_EQ(VUKOEvmgrStatusGet(99, &iStatus), -1);
        support::ExpectFailedWith(errno, EINVAL);
        EXPECT_STREQ(VLIBCErrorGetFile(), "systemstate.cpp");
    }).join();
    EXPECT_EQ(VLIBCErrGet(), static_cast<unsigned>(EFAULT));
    EXPECT_STREQ(VLIBCErrorGetFile(), "process.cpp");
}

TEST(LastError, OutlivesSuccesses) {
    EXPECT_EQ(VLIBCExecv(nullptr, nullptr, 1), -1);
    const int iLine = VLIBCErrorGetLine();
    EXPECT_EQ(VLIBCFileExist("/"), 1);
    EXPECT_EQ(VUKOFSMkdirP("/", 0, 0, 0, 0, 0700), 0);
    EXPECT_EQ(VLIBCErrGet(), static_cast<unsigned>(EFAULT));
    EXPECT_EQ(VLIBCErrorGetLine(), iLine);
}

TEST(LastError, IsReplacedByTheNextFailure) {
    EXPECT_EQ(VLIBCExecv(nullptr, nullptr, 1), -1);
    EXPECT_EQ(VUKOFSMkdirP("", 0, 0, 0, 0, 0700), -1);
    support::ExpectFailedWith(errno, ENOENT);
    EXPECT_STREQ(VLIBCErrorGetFile(), "folder.cpp");
}

TEST(LastError, IsNotAMatterOfWhatIsThereAndWhatIsNot) {
    EXPECT_EQ(VLIBCExecv(nullptr, nullptr, 1), -1);
    EXPECT_EQ(VLIBCFileExist("/nonexistent/file"), 0);
    EXPECT_EQ(VLIBCFileCheckDir("/dev/null"), 0);
    EXPECT_EQ(VLIBCErrGet(), static_cast<unsigned>(EFAULT));
}

} // namespace
