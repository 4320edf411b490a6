// What the logger does where others may make files, too.

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "tests/logger/logger_fixture.h"

using support::Exists;
using support::WriteFile;

namespace {

class LogInASharedFolder : public LoggerOnFiles {
protected:
    LogInASharedFolder() {
        _logger._strMemLogPath = _strShared;
        std::filesystem::create_directory(_dir / "tmp");
        ::chmod((_dir / "tmp").c_str(), 01777);
        WriteFile(_strVictim, "precious\n");
    }

    const std::string _strShared = _dir / "tmp/staged.log";
    const std::string _strVictim = _dir / "victim";
};

TEST_F(LogInASharedFolder, WorksAsAnywhereElse) {
    _logger._ssLog << "one\n";
    _logger.SoftFlush();
    EXPECT_EQ(support::ReadFile(_strShared), "one\n");
    _logger._ssLog << "two\n";
    _logger.FlushAll();
    EXPECT_EQ(Log(), "one\ntwo\n");
    EXPECT_FALSE(Exists(_strShared));
}

TEST_F(LogInASharedFolder, WritesThroughNoLink) {
    ASSERT_EQ(symlink(_strVictim.c_str(), _strShared.c_str()), 0);
    _logger._ssLog << "line\n";
    _logger.FlushAll();
    EXPECT_EQ(Log(), "line\n");
    EXPECT_EQ(support::ReadFile(_strVictim), "precious\n");
    EXPECT_FALSE(std::filesystem::is_symlink(_strShared));
}

TEST_F(LogInASharedFolder, MakesNoFileThroughALinkToNothing) {
    ASSERT_EQ(symlink((_dir / "nothing").c_str(), _strShared.c_str()), 0);
    _logger._ssLog << "line\n";
    _logger.FlushAll();
    EXPECT_EQ(Log(), "line\n");
    EXPECT_FALSE(Exists(_dir / "nothing"));
}

TEST_F(LogInASharedFolder, CopiesNothingThroughALink) {
    ASSERT_EQ(symlink(_strVictim.c_str(), _strShared.c_str()), 0);
    _logger.Flush();
    EXPECT_EQ(_syslog.Take(), Messages{"<3>memorylogger:50 Failed [!fsMem], err=Operation not permitted (Operation not "
                                       "permitted)"});
    EXPECT_EQ(Log(), "");
    EXPECT_FALSE(std::filesystem::is_symlink(_strShared));
    EXPECT_TRUE(Exists(_strVictim));
}

TEST_F(LogInASharedFolder, NeitherWritesNorCopiesAFileOfTwoNames) {
    ASSERT_EQ(link(_strVictim.c_str(), _strShared.c_str()), 0);
    _logger._ssLog << "line\n";
    _logger.FlushAll();
    EXPECT_EQ(Log(), "line\n");
    EXPECT_EQ(support::ReadFile(_strVictim), "precious\n");
}

TEST_F(LogInASharedFolder, TakesAPipeAwayAndLosesNoLineToIt) {
    ASSERT_EQ(mkfifo(_strShared.c_str(), 0666), 0);
    _logger._ssLog << "line\n";
    _logger.FlushAll();
    EXPECT_EQ(Log(), "line\n");
}

TEST_F(LogInASharedFolder, KeepsTheLineWhereSomethingCannotBeTakenAway) {
    ASSERT_EQ(mkdir(_strShared.c_str(), 0700), 0);
    _logger._ulMemLogLimitKB = 1024; // a folder has a size, too
    _logger._ssLog << "line\n";
    errno = 0;
    _logger.FlushAll();
    EXPECT_EQ(_syslog.Take(),
              (Messages{"<3>memorylogger:68 open memory logger failed (Operation not permitted)",
                        "<3>memorylogger:50 Failed [!fsMem], err=Operation not permitted (Operation not permitted)"}));
    EXPECT_EQ(Buffered(), "line\n");
    ASSERT_EQ(rmdir(_strShared.c_str()), 0);
    _logger.FlushAll();
    EXPECT_EQ(Log(), "line\n");
}

} // namespace
