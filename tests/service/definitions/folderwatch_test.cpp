#include "service/definitions/folderwatch.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "crond/cronjob.h"
#include "service/uniquefd.h"
#include "tests/service/service_fixture.h"

using namespace VUKO::VUKOCrond;
using namespace VUKO::VUKOCrond::Service;
namespace fs = std::filesystem;

namespace {

class FolderWatchTest : public testing::Test {
protected:
    FolderWatchTest() { _watch.Renew(); }

    /// Whether what has been done since the last question calls for a scan; the watches are renewed, as the service
    /// does it.
    bool CallsForScan() {
        const bool bScan = _watch.Consume();
        _watch.Renew();
        return bScan;
    }

    /// The watches that the kernel keeps for the descriptor.
    int Watches() const {
        std::ifstream fs("/proc/self/fdinfo/" + std::to_string(_watch.Descriptor()));
        int iWatches = 0;
        for (std::string strLine; std::getline(fs, strLine);) {
            iWatches += strLine.starts_with("inotify wd:") ? 1 : 0;
        }
        return iWatches;
    }

    std::string Package(const std::string& strName) const {
        return std::string(SZF_CRON_FOLDER_PKG_NONROOT) + "/" + strName;
    }

    service_test::ServiceFolders _folders;
    const std::string _strBuiltIn = SZF_CRON_FOLDER_BUILT_IN;
    FolderWatch _watch;
};

} // namespace

TEST_F(FolderWatchTest, IsSilentWhileNothingHappens) {
    EXPECT_FALSE(CallsForScan());
    support::ReadFile(_folders.PutText(_strBuiltIn, "a.conf", "x"));
    EXPECT_TRUE(CallsForScan());
    support::ReadFile(_strBuiltIn + "/a.conf");
    EXPECT_FALSE(CallsForScan());
}

TEST_F(FolderWatchTest, TellsWhatBecomesOfAFileInEachFolder) {
    fs::create_directory(Package("photos"));
    EXPECT_TRUE(CallsForScan());
    for (const std::string& strFolder : {_strBuiltIn, std::string(SZF_CRON_FOLDER_BUILT_IN_DYN),
                                         std::string(SZF_CRON_FOLDER_PKG), Package("photos")}) {
        const std::string strFile = strFolder + "/a.conf";
        support::WriteFile(strFile, "x");
        EXPECT_TRUE(CallsForScan()) << strFile << " made";
        std::ofstream(strFile, std::ios::app) << "y";
        EXPECT_TRUE(CallsForScan()) << strFile << " written";
        chmod(strFile.c_str(), 0604);
        EXPECT_TRUE(CallsForScan()) << strFile << " of another mode";
        fs::rename(strFile, strFolder + "/.hidden");
        EXPECT_TRUE(CallsForScan()) << strFile << " renamed away";
        fs::rename(strFolder + "/.hidden", strFile);
        EXPECT_TRUE(CallsForScan()) << strFile << " renamed here";
        fs::remove(strFile);
        EXPECT_TRUE(CallsForScan()) << strFile << " removed";
    }
}

TEST_F(FolderWatchTest, PassesOverWhatAScanPassesOver) {
    for (const char* const szName : {".a.conf.tmp", ".conf", "README", "a.conf~"}) {
        support::WriteFile(_strBuiltIn + "/" + szName, "x");
    }
    support::WriteFile(Package(".hidden"), "x");
    support::WriteFile(fs::path(_strBuiltIn).parent_path() / "beside", "x");
    EXPECT_FALSE(CallsForScan());
}

TEST_F(FolderWatchTest, FollowsPackagesThatComeAndGo) {
    const int iWatches = Watches();
    for (int i = 0; i < 20; ++i) {
        fs::create_directory(Package("photos"));
        EXPECT_TRUE(CallsForScan());
        EXPECT_EQ(Watches(), iWatches + 1);
        support::WriteFile(Package("photos/a.conf"), "x");
        EXPECT_TRUE(CallsForScan());
        fs::remove_all(Package("photos"));
        EXPECT_TRUE(CallsForScan());
        EXPECT_EQ(Watches(), iWatches);
        EXPECT_FALSE(CallsForScan());
    }
}

TEST_F(FolderWatchTest, LetsGoOfAPackageThatIsRenamedOutOfTheFolder) {
    const int iWatches = Watches();
    fs::create_directory(Package("photos"));
    EXPECT_TRUE(CallsForScan());
    fs::rename(Package("photos"), _folders.Root() / "elsewhere");
    EXPECT_TRUE(CallsForScan());
    EXPECT_EQ(Watches(), iWatches);
    support::WriteFile(_folders.Root() / "elsewhere/a.conf", "x");
    EXPECT_FALSE(CallsForScan());
}

TEST_F(FolderWatchTest, DoesNotFollowALinkInThePlaceOfAPackage) {
    const int iWatches = Watches();
    const support::TempDir dirOther;
    fs::create_directory_symlink(dirOther.Path(), Package("link"));
    EXPECT_TRUE(CallsForScan()); // a scan refuses it
    EXPECT_EQ(Watches(), iWatches);
    support::WriteFile(dirOther / "a.conf", "x");
    EXPECT_FALSE(CallsForScan());
}

TEST_F(FolderWatchTest, WaitsForAFolderThatIsMissing) {
    const std::string strTop = _folders.Root() / "usr";
    fs::rename(strTop, _folders.Root() / "kept");
    _watch.Renew();
    _watch.Consume();
    fs::create_directory(_folders.Root() / "other");
    EXPECT_FALSE(CallsForScan());
    fs::create_directory(strTop);
    EXPECT_TRUE(CallsForScan());
    fs::create_directories(fs::path(_strBuiltIn).parent_path());
    EXPECT_TRUE(CallsForScan());
    fs::create_directory(_strBuiltIn);
    EXPECT_TRUE(CallsForScan());
    support::WriteFile(_strBuiltIn + "/a.conf", "x");
    EXPECT_TRUE(CallsForScan());
}

TEST_F(FolderWatchTest, NoticesAFolderThatIsReplacedOrOfAnotherMode) {
    fs::create_directory(_strBuiltIn + ".new");
    EXPECT_FALSE(CallsForScan());
    fs::rename(_strBuiltIn, _strBuiltIn + ".old");
    fs::rename(_strBuiltIn + ".new", _strBuiltIn);
    EXPECT_TRUE(CallsForScan());
    support::WriteFile(_strBuiltIn + "/a.conf", "x");
    EXPECT_TRUE(CallsForScan());
    support::WriteFile(_strBuiltIn + ".old/a.conf", "x");
    EXPECT_FALSE(CallsForScan());
    chmod(_strBuiltIn.c_str(), 0700);
    EXPECT_TRUE(CallsForScan());
}

TEST_F(FolderWatchTest, WatchesTheSameFolderOnceHoweverOftenItIsRenewed) {
    const int iWatches = Watches();
    EXPECT_GT(iWatches, 4);
    for (int i = 0; i < 50; ++i) {
        _watch.Renew();
    }
    EXPECT_EQ(Watches(), iWatches);
    EXPECT_TRUE(_watch.TakeProblems().empty());
}

TEST_F(FolderWatchTest, CallsForAScanWhenTheKernelLostEvents) {
    int iQueue = 0;
    std::ifstream("/proc/sys/fs/inotify/max_queued_events") >> iQueue;
    ASSERT_GT(iQueue, 0);
    ASSERT_LT(iQueue, 1000000);
    // Names that are passed over, and never the same twice in a row: like ones are joined by the kernel.
    const UniqueFd fd(open(_strBuiltIn.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    for (int i = 0; i < iQueue / 2; ++i) {
        for (const char* const szName : {"one", "two"}) {
            const UniqueFd fdFile(openat(fd.Get(), szName, O_WRONLY | O_CREAT | O_CLOEXEC, 0644));
            ASSERT_TRUE(fdFile);
        }
    }
    const UniqueFd fdLast(openat(fd.Get(), "three", O_WRONLY | O_CREAT | O_CLOEXEC, 0644));
    int iReadings = 0;
    bool bScan = false;
    while (iReadings < 100 && !bScan) {
        bScan = _watch.Consume();
        ++iReadings;
    }
    EXPECT_TRUE(bScan);
    EXPECT_GT(iReadings, 1) << "one reading is to take a bounded part";
}
