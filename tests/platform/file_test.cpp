#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/vlibc.h"
#include "tests/platform/errors.h"
#include "tests/platform/nobody.h"
#include "tests/support/forked.h"
#include "tests/support/temp_dir.h"

namespace {

using support::ERRNO_MARK;
using support::TempDir;
using support::WithMarkedErrno;

/// What both functions say of a path, and the errno value that the second one left.
struct Answer {
    int iExists = 0;
    int iIsFolder = 0;
    int iErrno = 0;
};

Answer Ask(const std::string& strPath) {
    Answer answer;
    answer.iExists = VLIBCFileExist(strPath.c_str());
    answer.iIsFolder = WithMarkedErrno([&] { return VLIBCFileCheckDir(strPath.c_str()); }, answer.iErrno) != 0 ? 1 : 0;
    return answer;
}

void ExpectAnswer(const std::string& strPath, int iExists, int iIsFolder, int iErrno) {
    const Answer answer = Ask(strPath);
    EXPECT_EQ(answer.iExists, iExists) << strPath;
    EXPECT_EQ(answer.iIsFolder, iIsFolder) << strPath;
    EXPECT_EQ(answer.iErrno, iErrno) << strPath;
}

TEST(File, ExistsWhateverKindItIs) {
    const TempDir dir;
    support::WriteFile(dir / "file", "");
    ASSERT_EQ(mkfifo((dir / "pipe").c_str(), 0600), 0);
    ASSERT_EQ(symlink("file", (dir / "link").c_str()), 0);
    ASSERT_EQ(symlink(".", (dir / "folderlink").c_str()), 0);
    ASSERT_EQ(symlink("missing", (dir / "dangling").c_str()), 0);
    ExpectAnswer(dir.Path(), 1, 1, ERRNO_MARK);
    ExpectAnswer(dir / "", 1, 1, ERRNO_MARK);
    ExpectAnswer(dir / "file", 1, 0, ENOTDIR);
    ExpectAnswer(dir / "pipe", 1, 0, ENOTDIR);
    ExpectAnswer(dir / "link", 1, 0, ENOTDIR);
    ExpectAnswer(dir / "folderlink", 1, 1, ERRNO_MARK);
    ExpectAnswer(dir / "dangling", 0, 0, ENOENT);
    ExpectAnswer(dir / "missing", 0, 0, ENOENT);
    ExpectAnswer(dir / "file/under", 0, 0, ENOTDIR);
    ExpectAnswer("", 0, 0, ENOENT);
}

TEST(File, DoesNotExistAtANullPath) {
    int iErrno = 0;
    EXPECT_EQ(WithMarkedErrno([] { return VLIBCFileExist(nullptr); }, iErrno), 0);
    support::ExpectFailedWith(iErrno, EFAULT);
    EXPECT_EQ(WithMarkedErrno([] { return VLIBCFileCheckDir(nullptr); }, iErrno), 0);
    support::ExpectFailedWith(iErrno, EFAULT);
}

TEST(File, ExistenceLeavesErrnoAlone) {
    int iErrno = 0;
    EXPECT_EQ(WithMarkedErrno([] { return VLIBCFileExist("/"); }, iErrno), 1);
    EXPECT_EQ(iErrno, ERRNO_MARK);
}

TEST(File, IsNotSaidToExistWhereNobodyMayLook) {
    const TempDir dir;
    ASSERT_EQ(mkdir((dir / "closed").c_str(), 0700), 0);
    support::WriteFile(dir / "closed/file", "");
    const support::ChildEnd end = support::RunForked([&](int) {
        chmod(dir.Path().c_str(), 0755);
        chmod((dir / "closed").c_str(), 0000);
        support::BecomeNobody();
        const std::string strPath = dir / "closed/file";
        return VLIBCFileExist(strPath.c_str()) == 0 && errno == EACCES && VLIBCErrGet() == EACCES ? 0 : 1;
    });
    EXPECT_EQ(end.iExitStatus, 0);
    chmod((dir / "closed").c_str(), 0700);
}

TEST(File, IsRefusedWithALoopOfLinks) {
    const TempDir dir;
    ASSERT_EQ(symlink("loop", (dir / "loop").c_str()), 0);
    int iErrno = 0;
    EXPECT_EQ(WithMarkedErrno([&] { return VLIBCFileExist((dir / "loop").c_str()); }, iErrno), 0);
    support::ExpectFailedWith(iErrno, ELOOP);
}

} // namespace
