#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <iterator>
#include <string>

#include "tests/service/launch/launches.h"

using namespace VUKO::VUKOCrond;
using namespace VUKO::VUKOCrond::Service;
using launch_test::Texts;

namespace {

class LaunchedOutput : public launch_test::Launches {
protected:
    /// What tells the one output file of such a beginning from others alike.
    std::string MarkIn(const std::string& strBeginning) const {
        for (const auto& file : std::filesystem::directory_iterator(_site / "output")) {
            const std::string strStem = file.path().stem().string();
            if (strStem.starts_with(strBeginning)) {
                return strStem.substr(strBeginning.size());
            }
        }
        return std::string();
    }
};

TEST_F(LaunchedOutput, IsKeptInAFileThatIsBounded) {
    _site.StartShell(1, "echo out; echo err >&2");
    EXPECT_EQ(support::WaitFor(-1), 0);
    EXPECT_EQ(_site.Output("job"), "out\nerr\n");
    EXPECT_EQ(support::ModeOf(_site / "output/job.log"), 0600);
    EXPECT_EQ(support::ModeOf(_site / "output"), 0755);
    _site.StartShell(2, "head -c 5000000 /dev/zero | tr '\\0' x; echo; echo end");
    EXPECT_EQ(support::WaitFor(-1), 0);
    const std::string strOutput = _site.Output("job");
    EXPECT_LE(strOutput.size(), std::size_t{1} << 20);
    int iDropped = 0;
    int iLength = 0;
    sscanf(strOutput.c_str(), "vukocrond: %d bytes of older output were dropped\nxxxx%n", &iDropped, &iLength);
    EXPECT_GT(iLength, 0) << strOutput.substr(0, 60);
    EXPECT_GT(iDropped, 900000);
    EXPECT_LE(iDropped, 1 << 20);
    EXPECT_EQ(strOutput.substr(strOutput.size() - 6), "x\nend\n");
}

TEST_F(LaunchedOutput, DoesNotLeaveItsFolder) {
    CronJob job = launch_test::JobOf({"/bin/echo", "text"});
    LaunchOrder order = _site.Order(1);
    order.strIdentifier = "../a/b c\n";
    _site.TheLauncher().Start(job, order);
    support::WaitFor(-1);
    EXPECT_EQ(_site.Output("_.._a_b_c_-" + MarkIn("_.._a_b_c_-")), "text\n");
}

TEST_F(LaunchedOutput, IsSharedByNoTwoIdentities) {
    CronJob job = launch_test::JobOf({"/bin/echo", "text"});
    RunId uRun = 0;
    for (const char* const szIdentity : {"pkg_nonroot/a_b/c", "pkg_nonroot/a/b_c", "pkg/a b", "pkg/a_b", "pkg/a-b"}) {
        LaunchOrder order = _site.Order(++uRun);
        order.strIdentifier = szIdentity;
        _site.TheLauncher().Start(job, order);
        support::WaitFor(-1);
    }
    const std::filesystem::directory_iterator files(_site / "output");
    EXPECT_EQ(std::distance(begin(files), end(files)), 5);
    EXPECT_EQ(_site.Output("pkg_a-b"), "text\n"); // what cannot be mistaken keeps a plain name
}

TEST_F(LaunchedOutput, IsDroppedRatherThanWrittenThroughALink) {
    ASSERT_EQ(mkdir((_site / "output").c_str(), 0755), 0);
    support::WriteFile(_site / "target", "old");
    ASSERT_EQ(symlink((_site / "target").c_str(), (_site / "output/job.log").c_str()), 0);
    _site.StartShell(1, "echo text; readlink /proc/self/fd/2 > " + (_site / "where"));
    EXPECT_EQ(_site.AwaitEnd(1).iCode, 0);
    support::WaitFor(-1);
    EXPECT_EQ(support::ReadFile(_site / "target"), "old");
    EXPECT_EQ(support::ReadFile(_site / "where"), "/dev/null\n");
    EXPECT_EQ(_log.Take(), Texts{"<4>joboutput:1 the output of job is dropped: job.log: Too many levels of symbolic "
                                 "links"});
}

TEST_F(LaunchedOutput, IsDroppedRatherThanWrittenToAFolderOfOthers) {
    ASSERT_EQ(mkdir((_site / "output").c_str(), 0755), 0);
    ASSERT_EQ(chmod((_site / "output").c_str(), 0777), 0);
    _site.StartShell(1, "echo text");
    EXPECT_EQ(_site.AwaitEnd(1).iCode, 0);
    support::WaitFor(-1);
    EXPECT_EQ(_log.Take(),
              Texts{"<4>joboutput:1 the output of job is dropped: " + (_site / "output") + ": others can write in it"});
    EXPECT_FALSE(support::Exists(_site / "output/job.log"));
}

} // namespace
