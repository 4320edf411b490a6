// What the logger says in the system log, to the byte, in both forms.

#include <cerrno>
#include <limits>

#include "crond/cronjob.h"
#include "tests/logger/logger_fixture.h"
#include "tests/support/case_name.h"

using support::Exists;
using support::WriteFile;

namespace {

/// One way for a step to fail: the errno that is there before, the one that the step leaves (0: it leaves none), and
/// the end of the message that follows.
struct Failure {
    const char* szName;
    int iBefore;
    int iLeft;
    const char* szOpenEnd;   ///< after "open memory logger failed"
    const char* szFailedEnd; ///< after "err="
};

class LogMessage : public LoggerOnFiles, public ::testing::WithParamInterface<Failure> {
protected:
    void FailOpening(const std::string& strPath) {
        fake::Files().strFailOpen = strPath;
        fake::Files().iOpenErrno = GetParam().iLeft;
    }
    Messages Failed(int iNumber, const std::string& strCondition) const {
        return {"<3>memorylogger:" + std::to_string(iNumber) + " Failed [" + strCondition +
                "], err=" + GetParam().szFailedEnd};
    }
    const char* FailedFormat() const {
        return GetParam().iBefore == 0 && GetParam().iLeft == 0 ? "%s:%d Failed [%s], err=%m"
                                                                : "%s:%d Failed [%s], err=%m (%m)";
    }
};

// A stale errno, left by somebody else long ago, is what errno says at the moment too.
INSTANTIATE_TEST_SUITE_P(ByErrno, LogMessage,
                         ::testing::Values(Failure{"NoReason", 0, 0, "", "Success"},
                                           Failure{"Reason", 0, EACCES, " (Permission denied)",
                                                   "Permission denied (Permission denied)"},
                                           Failure{"StaleReason", EXDEV, 0, " (Invalid cross-device link)",
                                                   "Invalid cross-device link (Invalid cross-device link)"},
                                           Failure{"ReasonOverAStaleOne", EXDEV, EROFS, " (Read-only file system)",
                                                   "Read-only file system (Read-only file system)"}),
                         support::CaseName());

TEST_P(LogMessage, SaysThatTheMemoryLogFileCannotBeOpened) {
    FailOpening(_strMemLog);
    errno = GetParam().iBefore;
    _logger.SoftFlush();
    EXPECT_EQ(_syslog.Take(),
              Messages{std::string("<3>memorylogger:68 open memory logger failed") + GetParam().szOpenEnd});
    EXPECT_EQ(_syslog.Formats(), Messages{*GetParam().szOpenEnd == '\0' ? "%s:%d open memory logger failed"
                                                                        : "%s:%d open memory logger failed (%m)"});
}

TEST_P(LogMessage, SaysThatTheLogCannotBeOpened) {
    WriteFile(_strMemLog, "staged\n");
    FailOpening(_strLog);
    errno = GetParam().iBefore;
    _logger.Flush();
    EXPECT_EQ(_syslog.Take(), Failed(49, "!fs"));
    EXPECT_EQ(_syslog.Formats(), Messages{FailedFormat()});
}

TEST_P(LogMessage, SaysThatTheMemoryLogFileCannotBeRead) {
    WriteFile(_strMemLog, "staged\n");
    FailOpening(_strMemLog);
    errno = GetParam().iBefore;
    _logger.Flush();
    EXPECT_EQ(_syslog.Take(), Failed(50, "!fsMem"));
    EXPECT_EQ(_syslog.Formats(), Messages{FailedFormat()});
}

TEST_P(LogMessage, SaysThatTheModeCannotBeSetAndGoesOn) {
    WriteFile(_strMemLog, "staged\n");
    fake::Files().bFailChmod = true;
    fake::Files().iChmodErrno = GetParam().iLeft;
    errno = GetParam().iBefore;
    _logger.Flush();
    EXPECT_EQ(_syslog.Take(), Failed(53, "chmod(_strLogPath.c_str(), 0600)"));
    EXPECT_EQ(_syslog.Formats(), Messages{FailedFormat()});
    EXPECT_EQ(Log(), "staged\n");
    EXPECT_FALSE(Exists(_strMemLog));
}

class LogMessages : public LoggerOnFiles {
protected:
    static constexpr const char* NO_STAGED_FILE =
        "<3>memorylogger:50 Failed [!fsMem], err=No such file or directory (No such file or directory)";
};

TEST_F(LogMessages, AreNoneWhenNothingFails) {
    _logger._ssLog << _logger.GetNewLine() << "text\n";
    errno = EXDEV;
    _logger.FlushAll();
    EXPECT_EQ(_syslog.Take(), NONE);
    EXPECT_EQ(errno, EXDEV) << "a later message of the caller's takes its form from errno";
}

TEST_F(LogMessages, NameTheMissingFolderOfTheMemoryLogFileAtEachStep) {
    _logger._strMemLogPath = _dir / "missing/staged.log";
    _logger._ssLog << "kept\n";
    _logger.FlushAll();
    EXPECT_EQ(_syslog.Take(),
              (Messages{"<3>memorylogger:68 open memory logger failed (No such file or directory)", NO_STAGED_FILE}));
    EXPECT_EQ(Buffered(), "kept\n");
}

TEST_F(LogMessages, NameTheMissingFolderOfTheLogAtEachFlush) {
    _logger._strLogPath = _dir / "missing/execute.log";
    for (int i = 0; i < 2; ++i) {
        _logger._ssLog << "line\n";
        _logger.FlushAll();
        EXPECT_EQ(_syslog.Take(), Messages{"<3>memorylogger:49 Failed [!fs], err=No such file or directory (No such "
                                           "file or directory)"});
        EXPECT_EQ(Buffered(), "");
        EXPECT_FALSE(Exists(_strMemLog));
    }
}

TEST_F(LogMessages, NameTheLogAloneWhenBothFilesCannotBeOpened) {
    _logger._strLogPath = _dir.Path(); // a folder
    _logger.Flush();
    EXPECT_EQ(_syslog.Take(), Messages{"<3>memorylogger:49 Failed [!fs], err=Is a directory (Is a directory)"})
        << "the reason is the log's, though the other file failed later and otherwise";
}

TEST_F(LogMessages, TellOfAMissingMemoryLogFileAtFlush) {
    errno = 0;
    _logger.Flush();
    EXPECT_EQ(_syslog.Take(), Messages{NO_STAGED_FILE});
}

TEST_F(LogMessages, ComeFromTheExportedFlushToo) {
    VUKO::MemoryLogger& logger = VUKO::VUKOCrond::CronJob::gLogger;
    logger._strLogPath = _strLog;
    logger._strMemLogPath = _strMemLog;
    logger._ssLog << std::string((1U << 20U) + 1, 'x'); // one byte over the limit of that logger
    VUKO::VUKOCrond::CronJob::FlushLog();
    EXPECT_EQ(_syslog.Take(), Messages{NO_STAGED_FILE});
    EXPECT_EQ(Log().size(), (1U << 20U) + 1);
}

} // namespace
