#include "base/syslog_line.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/captured_syslog.h"
#include "tests/unit/messages.h"

namespace {

constexpr const char* szLogSource = "somewhere";

using Lines = std::vector<std::string>;

} // namespace

TEST(SyslogLine, TakesTheFormThatErrnoSelects) {
    unit::ExpectInBothForms([] { VUKO_LOG(LOG_ERR, 7, "nothing to do"); }, {{7, "nothing to do"}}, "somewhere");
}

TEST(SyslogLine, PrintsItsArgumentsInBothForms) {
    unit::ExpectInBothForms([] { VUKO_LOG(LOG_ERR, 8, "%s has %d, wants %ld", "he", 3, 4L); },
                            {{8, "he has 3, wants 4"}}, "somewhere");
}

TEST(SyslogLine, KeepsErrnoBetweenTwoMessagesAboutOneFailure) {
    support::CapturedSyslog log;
    errno = ENOENT;
    VUKO_LOG(LOG_ERR, 1, "first");
    VUKO_LOG(LOG_ERR, 2, "second");
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(log.Take(), (Lines{"<3>somewhere:1 first (No such file or directory)",
                                 "<3>somewhere:2 second (No such file or directory)"}));
}

TEST(SyslogLine, PassesThePriorityOn) {
    support::CapturedSyslog log;
    errno = 0;
    for (int iPriority = LOG_EMERG; iPriority <= LOG_DEBUG; ++iPriority) {
        VUKO_LOG(iPriority, 5, "level");
    }
    EXPECT_EQ(log.Take(),
              (Lines{"<0>somewhere:5 level", "<1>somewhere:5 level", "<2>somewhere:5 level", "<3>somewhere:5 level",
                     "<4>somewhere:5 level", "<5>somewhere:5 level", "<6>somewhere:5 level", "<7>somewhere:5 level"}));
}

TEST(SyslogLine, EvaluatesItsArgumentsOnceWhateverTheForm) {
    for (const int iErrno : {0, EIO}) {
        support::CapturedSyslog log;
        int iCalls = 0;
        errno = iErrno;
        VUKO_LOG(LOG_ERR, 6, "call %d", ++iCalls);
        EXPECT_EQ(iCalls, 1);
        EXPECT_EQ(log.Take().size(), 1U);
    }
}

TEST(SyslogLine, IsOneStatement) {
    support::CapturedSyslog log;
    errno = 0;
    const bool bLog = !log.Take().empty();
    if (bLog)
        VUKO_LOG(LOG_ERR, 1, "then");
    else
        VUKO_LOG(LOG_ERR, 2, "else");
    EXPECT_EQ(log.Take(), Lines{"<3>somewhere:2 else"});
}

TEST(PlainSyslogLine, HasOneFormWhateverErrnoSays) {
    for (const int iErrno : {0, EIO}) {
        support::CapturedSyslog log;
        errno = iErrno;
        VUKO_LOG_PLAIN(LOG_INFO, 9, "%d jobs", 3);
        EXPECT_EQ(errno, iErrno);
        EXPECT_EQ(log.Take(), Lines{"<6>somewhere:9 3 jobs"});
        EXPECT_EQ(log.Formats(), Lines{"%s:%d %d jobs"});
    }
}

TEST(FailedCondition, IsQuotedAsItIsWrittenAndGivesTheReasonTwiceWhenErrnoIsSet) {
    const std::string strUser = "nobody";
    unit::ExpectInBothForms([&] { EXPECT_TRUE(VUKO_FAILED(42, strUser.empty() || "nobody" == strUser)); },
                            {unit::Failed(42, "strUser.empty() || \"nobody\" == strUser")}, "somewhere");
}

TEST(FailedCondition, SpellsOutTheReasonTwice) {
    support::CapturedSyslog log;
    errno = EIO;
    EXPECT_TRUE(VUKO_FAILED(1, true));
    EXPECT_EQ(log.Take(), Lines{"<3>somewhere:1 Failed [true], err=Input/output error (Input/output error)"});
    EXPECT_EQ(log.Formats(), Lines{"%s:%d Failed [%s], err=%m (%m)"});
    errno = 0;
    EXPECT_TRUE(VUKO_FAILED(1, true));
    EXPECT_EQ(log.Take(), Lines{"<3>somewhere:1 Failed [true], err=Success"});
    EXPECT_EQ(log.Formats(), Lines{"%s:%d Failed [%s], err=%m"});
}

TEST(FailedCondition, SaysNothingWhenTheConditionDoesNotHold) {
    support::CapturedSyslog log;
    errno = EIO;
    EXPECT_FALSE(VUKO_FAILED(42, 1 > 2));
    EXPECT_EQ(errno, EIO);
    EXPECT_EQ(log.Take(), Lines{});
}

TEST(FailedCondition, IsEvaluatedOnce) {
    support::CapturedSyslog log;
    errno = 0;
    int iCalls = 0;
    EXPECT_TRUE(VUKO_FAILED(42, ++iCalls > 0));
    EXPECT_EQ(iCalls, 1);
    EXPECT_EQ(log.Take(), Lines{"<3>somewhere:42 Failed [++iCalls > 0], err=Success"});
}

TEST(FailedCondition, MayHoldCommasAndPercentSigns) {
    const std::vector<int> vecValues{4, 6};
    unit::ExpectInBothForms(
        [&] {
            EXPECT_TRUE(VUKO_FAILED(43, vecValues[0] % 2 == 0 && vecValues == std::vector<int>{4, 6}));
        },
        {unit::Failed(43, "vecValues[0] % 2 == 0 && vecValues == std::vector<int>{4, 6}")}, "somewhere");
}
