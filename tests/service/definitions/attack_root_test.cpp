// What an account without rights can try in the definition folders. The worst that it may get is a refusal, told in one
// line.

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "crond/cronjob.h"
#include "service/definitions/definitionscan.h"
#include "service/definitions/folderwatch.h"
#include "tests/fake/fake_platform.h"
#include "tests/service/definitions/stranger.h"
#include "tests/service/service_fixture.h"
#include "tests/support/captured_syslog.h"

using namespace VUKO::VUKOCrond;
using namespace VUKO::VUKOCrond::Service;
using service_test::BusyStranger;
using service_test::JobDefinition;
using service_test::PutFile;
using service_test::STRANGER;
using service_test::StrangerCan;
using service_test::ToJson;
namespace fs = std::filesystem;

namespace {

constexpr const char* SECRET = "precious-word";

bool BindSocket(const std::string& strPath) {
    const UniqueFd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    strPath.copy(address.sun_path, sizeof(address.sun_path) - 1);
    return bind(fd.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0;
}

class AttackOnDefinitions : public testing::Test {
protected:
    void SetUp() override {
        if (geteuid() != 0) {
            GTEST_SKIP() << "needs root";
        }
        fake::Platform().mapAccounts = {
            {"root", {0, 0}}, {"toor", {0, 0}}, {"stranger", {STRANGER, STRANGER}}, {"other", {1002, 1002}}};
        chmod(_folders.Root().Path().c_str(), 0755); // the stranger gets as far as on a real system
        _strOwn = std::string(SZF_CRON_FOLDER_PKG_NONROOT) + "/strange";
        fs::create_directory(_strOwn);
        ASSERT_EQ(chown(_strOwn.c_str(), STRANGER, STRANGER), 0);
        _folders.Put(SZF_CRON_FOLDER_BUILT_IN, "system", JobDefinition("system"));
        _strSecret = _folders.Root() / "secret";
        support::WriteFile(_strSecret, "{\"name\": \"" + std::string(SECRET) + "\"");
        chmod(_strSecret.c_str(), 0600);
    }

    static Json::Value OwnDefinition(const std::string& strName) {
        Json::Value jsDefinition = JobDefinition(strName);
        jsDefinition["user"] = "package";
        jsDefinition["package_username"] = "stranger";
        return jsDefinition;
    }

    std::string Own(const std::string& strName) const { return _strOwn + "/" + strName; }

    static std::vector<std::string> Names(const DefinitionScan& scan) {
        std::vector<std::string> vecNames;
        for (const Service::Definition& definition : scan.vecDefinitions) {
            vecNames.push_back(definition.id.strName);
        }
        return vecNames;
    }

    /// Every refusal is one line that shows what it says, and gives nothing away.
    static void ExpectHonestLines(const DefinitionScan& scan) {
        for (const Refusal& refusal : scan.vecRefusals) {
            EXPECT_TRUE(std::all_of(refusal.strText.begin(), refusal.strText.end(), [](char c) {
                return ' ' <= c && c <= '~';
            })) << refusal.strText;
            EXPECT_EQ(refusal.strText.find(SECRET), std::string::npos) << refusal.strText;
            EXPECT_LT(refusal.strText.size(), 1000U);
        }
    }

    service_test::ServiceFolders _folders;
    std::string _strOwn;
    std::string _strSecret;

private:
    fake::ScopedPlatform _platform;
};

} // namespace

TEST_F(AttackOnDefinitions, PutsNothingIntoTheFoldersOfOthers) {
    const std::string strOther = std::string(SZF_CRON_FOLDER_PKG_NONROOT) + "/other";
    fs::create_directory(strOther);
    ASSERT_EQ(chown(strOther.c_str(), 1002, 1002), 0);
    for (const std::string& strFolder :
         {std::string(SZF_CRON_FOLDER_BUILT_IN), std::string(SZF_CRON_FOLDER_BUILT_IN_DYN),
          std::string(SZF_CRON_FOLDER_PKG), std::string(SZF_CRON_FOLDER_PKG_NONROOT), strOther}) {
        const std::string strFile = strFolder + "/x.conf";
        EXPECT_FALSE(StrangerCan([&] { return PutFile(strFile, ToJson(JobDefinition("x"))); })) << strFolder;
        EXPECT_FALSE(StrangerCan([&] { return symlink(_strSecret.c_str(), strFile.c_str()) == 0; })) << strFolder;
        EXPECT_FALSE(StrangerCan([&] { return mkdir((strFolder + "/sub").c_str(), 0755) == 0; })) << strFolder;
        EXPECT_FALSE(StrangerCan([&] { return rename(_strOwn.c_str(), (strFolder + "/mine").c_str()) == 0; }))
            << strFolder;
    }
    EXPECT_EQ(Names(ScanDefinitions()), std::vector<std::string>{"system"});
}

TEST_F(AttackOnDefinitions, GetsOneLineForEachThingThatIsNoDefinitionOfItsOwn) {
    const std::string strGood = ToJson(OwnDefinition("good"));
    ASSERT_TRUE(StrangerCan([&] {
        return PutFile(Own("good.conf"), strGood) && symlink(_strSecret.c_str(), Own("link.conf").c_str()) == 0 &&
               symlink("/proc/self/mem", Own("link-proc.conf").c_str()) == 0 &&
               symlink("link-loop.conf", Own("link-loop.conf").c_str()) == 0 && PutFile(Own("twice.conf"), strGood) &&
               link(Own("twice.conf").c_str(), Own("again.conf").c_str()) == 0 &&
               mkfifo(Own("pipe.conf").c_str(), 0644) == 0 && BindSocket(Own("socket.conf")) &&
               mkdir(Own("folder.conf").c_str(), 0755) == 0 && PutFile(Own("open.conf"), strGood) &&
               chmod(Own("open.conf").c_str(), 0646) == 0 && PutFile(Own("group.conf"), strGood) &&
               chmod(Own("group.conf").c_str(), 0664) == 0 &&
               PutFile(Own("large.conf"), strGood + std::string(256 * 1024 + 1 - strGood.size(), ' ')) &&
               PutFile(Own("as-root.conf"), ToJson(JobDefinition("as-root")));
    }));
    // What only root can make, should it ever come to lie there.
    ASSERT_EQ(mknod(Own("memory.conf").c_str(), S_IFCHR | 0644, makedev(1, 5)), 0);
    ASSERT_EQ(mknod(Own("disk.conf").c_str(), S_IFBLK | 0644, makedev(7, 77)), 0);
    ASSERT_EQ(link(_strSecret.c_str(), Own("hard.conf").c_str()), 0);
    _folders.PutText(_strOwn, "of-other.conf", strGood);
    ASSERT_EQ(chown(Own("of-other.conf").c_str(), 1002, 1002), 0);

    const DefinitionScan scan = ScanDefinitions();
    EXPECT_EQ(Names(scan), (std::vector<std::string>{"system", "good"}));
    std::map<std::string, std::string> mapLines;
    for (const Refusal& refusal : scan.vecRefusals) {
        EXPECT_TRUE(mapLines.emplace(fs::path(refusal.strFile).filename(), refusal.strText).second) << refusal.strText;
        EXPECT_TRUE(refusal.strText.starts_with(refusal.strFile + ": ")) << refusal.strText;
    }
    ExpectHonestLines(scan);
    const std::map<std::string, std::string> mapExpected = {
        {"link.conf", "is a symbolic link"},
        {"link-proc.conf", "is a symbolic link"},
        {"link-loop.conf", "is a symbolic link"},
        {"twice.conf", "has 2 hard links"},
        {"again.conf", "has 2 hard links"},
        {"hard.conf", "has 2 hard links"},
        {"pipe.conf", "is not a regular file"},
        {"socket.conf", "is not a regular file"},
        {"folder.conf", "is not a regular file"},
        {"memory.conf", "is not a regular file"},
        {"disk.conf", "is not a regular file"},
        {"open.conf", "is writable by group or others"},
        {"group.conf", "is writable by group or others"},
        {"large.conf", "is too large: 262145 bytes, at most 262144"},
        {"of-other.conf", "belongs to uid 1002, which may not define jobs here"},
        {"as-root.conf", R"(field "user": expected "package" in this folder, found "root")"},
    };
    EXPECT_EQ(mapLines.size(), mapExpected.size());
    for (const auto& [strName, strReason] : mapExpected) {
        EXPECT_EQ(mapLines[strName], Own(strName) + ": " + strReason);
    }
}

TEST_F(AttackOnDefinitions, DefinesNoJobOfAnotherAccount) {
    int iFile = 0;
    for (const char* const szUser : {"root", "system", "package", "packages", "package root", ""}) {
        for (const char* const szAccount : {"root", "toor", "other", "nobody-knows", "", "stranger\nroot", "0"}) {
            Json::Value jsDefinition = OwnDefinition("job");
            jsDefinition["user"] = szUser;
            jsDefinition["package_username"] = szAccount;
            ASSERT_TRUE(
                StrangerCan([&] { return PutFile(Own(std::to_string(iFile) + ".conf"), ToJson(jsDefinition)); }));
            ++iFile;
        }
    }
    const DefinitionScan scan = ScanDefinitions();
    EXPECT_EQ(Names(scan), std::vector<std::string>{"system"});
    EXPECT_EQ(scan.vecRefusals.size(), static_cast<std::size_t>(iFile));
    ExpectHonestLines(scan);
}

TEST_F(AttackOnDefinitions, ForgesNoLineThroughAnyField) {
    const std::vector<std::string> vecTexts = {"x\nvukocrond: all is well",
                                               "x\r\x1b[2K",
                                               "x\x7f\b\b",
                                               "x\xc2\x9b"
                                               "2J",
                                               "x\xe2\x80\xa8y",
                                               "x\xe2\x80\xaey",
                                               "../../etc/x",
                                               std::string("x\0y", 3),
                                               std::string(5000, '\n')};
    Json::Value jsList(Json::arrayValue);
    for (const std::string& strText : vecTexts) {
        for (const char* const szField : {"name", "user", "package_username", "period", "crontab", "overlap", "timeout",
                                          "enabled", "assure_execute", "run_on_passive", "cmd_list"}) {
            jsList.append(OwnDefinition("job"));
            Json::Value& jsDefinition = jsList[jsList.size() - 1];
            jsDefinition[szField] = strText;
            if (std::string(szField) == "crontab") {
                jsDefinition[szField] = strText.substr(0, 100) + " * * * *";
            }
        }
        jsList.append(OwnDefinition("job"));
        jsList[jsList.size() - 1]["cmd_list"].append(Json::objectValue);
        jsList[jsList.size() - 1]["name"] = strText;
    }
    const std::string strDuplicate = R"({"a\nvukocrond: all is well": 1, "a\nvukocrond: all is well": 2})";
    ASSERT_TRUE(StrangerCan([&] {
        return PutFile(Own("list\n\x1b[2J.conf"), ToJson(jsList)) && PutFile(Own("x\xe2\x80\xae.conf"), strDuplicate);
    }));
    const DefinitionScan scan = ScanDefinitions();
    EXPECT_EQ(Names(scan), std::vector<std::string>{"system"});
    EXPECT_EQ(scan.vecRefusals.size(), jsList.size() + 1);
    ExpectHonestLines(scan);
}

TEST_F(AttackOnDefinitions, SwapsAFileDuringReadingInVain) {
    const std::string strSwapped = Own("swapped.conf");
    Json::Value jsStolen = OwnDefinition("stolen");
    const std::string strStolen = _folders.Root() / "stolen";
    support::WriteFile(strStolen, ToJson(jsStolen));
    chmod(strStolen.c_str(), 0600);
    const std::string strGood = ToJson(OwnDefinition("good"));
    {
        const BusyStranger stranger([&] {
            PutFile(Own(".good"), strGood);
            rename(Own(".good").c_str(), strSwapped.c_str());
            (void)!symlink(strStolen.c_str(), Own(".link").c_str());
            rename(Own(".link").c_str(), strSwapped.c_str());
            mkfifo(Own(".pipe").c_str(), 0644);
            rename(Own(".pipe").c_str(), strSwapped.c_str());
        });
        for (int i = 0; i < 300 || stranger.Rounds() < 1000; ++i) {
            const DefinitionScan scan = ScanDefinitions();
            for (const std::string& strName : Names(scan)) {
                EXPECT_NE(strName, "stolen");
            }
            EXPECT_LE(scan.vecRefusals.size(), 1U);
            ExpectHonestLines(scan);
        }
    }
}

TEST_F(AttackOnDefinitions, GrowsAFileDuringReadingInVain) {
    const std::string strFile = Own("growing.conf");
    Json::Value jsLarge = OwnDefinition("large");
    jsLarge["description"] = std::string(300 * 1024, 'x');
    const std::string strLarge = ToJson(jsLarge);
    const std::string strSmall = ToJson(OwnDefinition("small"));
    {
        const BusyStranger stranger([&] {
            PutFile(strFile, strSmall);
            const UniqueFd fd(open(strFile.c_str(), O_WRONLY | O_CLOEXEC));
            (void)!pwrite(fd.Get(), strLarge.data(), strLarge.size(), 0);
        });
        for (int i = 0; i < 300 || stranger.Rounds() < 300; ++i) {
            const DefinitionScan scan = ScanDefinitions();
            for (const Service::Definition& definition : scan.vecDefinitions) {
                EXPECT_NE(definition.id.strName, "large");
                EXPECT_LE(definition.strText.size(), 256U * 1024U);
            }
            EXPECT_LE(scan.vecRefusals.size(), 1U);
            ExpectHonestLines(scan);
        }
    }
}

TEST_F(AttackOnDefinitions, RunsNothingAndLogsNothingWhileItIsLoaded) {
    const std::string strTouched = Own("touched");
    Json::Value jsDefinition = OwnDefinition("eager");
    jsDefinition["cmd"] = "/usr/bin/touch " + strTouched;
    Json::Value jsRooted = jsDefinition;
    jsRooted["user"] = "root";
    ASSERT_TRUE(StrangerCan([&] {
        return PutFile(Own("eager.conf"), ToJson(jsDefinition)) && PutFile(Own("rooted.conf"), ToJson(jsRooted));
    }));
    const support::CapturedSyslog log; // strict: a message would fail the test
    const DefinitionScan scan = ScanDefinitions();
    EXPECT_EQ(Names(scan), (std::vector<std::string>{"system", "eager"}));
    EXPECT_EQ(scan.vecRefusals.size(), 1U);
    EXPECT_FALSE(support::Exists(strTouched));
}

TEST_F(AttackOnDefinitions, FillsItsFolderAndHasNothingReadOfIt) {
    ASSERT_TRUE(StrangerCan([&] {
        const UniqueFd fd(open(_strOwn.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        bool bMade = PutFile(Own("good.conf"), ToJson(OwnDefinition("good")));
        for (std::size_t i = 0; i < PackageLimits::ENTRIES_MAX; ++i) {
            bMade = bMade && mknodat(fd.Get(), std::to_string(i).c_str(), S_IFREG | 0644, 0) == 0;
        }
        return bMade;
    }));
    const DefinitionScan scan = ScanDefinitions();
    EXPECT_EQ(Names(scan), std::vector<std::string>{"system"});
    ASSERT_EQ(scan.vecRefusals.size(), 1U);
    EXPECT_EQ(scan.vecRefusals[0].strText, _strOwn + ": holds more than 16384 entries");
}

/// Seen from the other side: what cannot be watched is told, once.
TEST_F(AttackOnDefinitions, IsToldOnceWhichFolderItMayNotWatch) {
    chmod(SZF_CRON_FOLDER_PKG, 0700);
    EXPECT_TRUE(StrangerCan([] {
        FolderWatch watch;
        watch.Renew();
        const std::vector<std::string> vecFirst = watch.TakeProblems();
        watch.Renew();
        return vecFirst == std::vector<std::string>{std::string(SZF_CRON_FOLDER_PKG) +
                                                    " cannot be watched: Permission denied"} &&
               watch.TakeProblems().empty();
    }));
}
