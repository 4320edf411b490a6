// What an account without rights can put where root writes in /tmp: the memory log file and the folder of staged
// programs.

#include "service/trustedpath.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <ctime>
#include <filesystem>
#include <string>
#include <vector>

#include "crond/cronjob.h"
#include "service/rootdir.h"
#include "tests/service/definitions/stranger.h"
#include "tests/service/service_fixture.h"
#include "tests/support/captured_syslog.h"

using namespace VUKO::VUKOCrond;
using namespace VUKO::VUKOCrond::Service;
using service_test::BusyStranger;
using service_test::PutFile;
using service_test::STRANGER;
using service_test::StrangerCan;
using support::Exists;
using support::ReadFile;
namespace fs = std::filesystem;

namespace {

using Texts = std::vector<std::string>;

class AttackOnTmp : public testing::Test {
protected:
    void SetUp() override {
        if (geteuid() != 0) {
            GTEST_SKIP() << "needs root";
        }
        chmod(_folders.Root().Path().c_str(), 0755);
        _strMemLog = SZF_CRON_MEMLOG;
        _strStaging = SZF_TMP_BIN_FOLDER;
        support::WriteFile(_strVictim, "precious\n");
        chmod(_strVictim.c_str(), 0600);
    }

    /// The one line about a place, without the time in the new name.
    static std::string OneLine(const Texts& vecLines) {
        if (vecLines.size() != 1) {
            return std::to_string(vecLines.size()) + " lines";
        }
        return vecLines[0].substr(0, vecLines[0].find(".foreign-"));
    }

    /// Everything that was moved aside from a place.
    static std::vector<fs::path> Aside(const std::string& strPath) {
        std::vector<fs::path> vecAside;
        for (const fs::directory_entry& entry : fs::directory_iterator(fs::path(strPath).parent_path())) {
            if (entry.path().string().starts_with(strPath + ".foreign-")) {
                vecAside.push_back(entry.path());
            }
        }
        return vecAside;
    }

    static void Log(const std::string& strLine) {
        CronJob::gLogger._ssLog << strLine << "\n";
        CronJob::FlushLog();
    }

    service_test::ServiceFolders _folders;
    const std::string _strVictim = _folders.Root() / "victim";
    std::string _strMemLog;
    std::string _strStaging;
};

/// What a stranger can put at a path.
struct Plant {
    const char* szReason;
    std::function<bool(const std::string& strPath, const std::string& strVictim)> put;
};

std::vector<Plant> FilePlants() {
    return {
        {"is a symbolic link",
         [](const std::string& strPath, const std::string& strVictim) {
             return symlink(strVictim.c_str(), strPath.c_str()) == 0;
         }},
        {"is a symbolic link",
         [](const std::string& strPath, const std::string& strVictim) {
             return symlink((strVictim + "-new").c_str(), strPath.c_str()) == 0;
         }},
        {"belongs to uid 54321",
         [](const std::string& strPath, const std::string&) { return PutFile(strPath, "forged\n"); }},
        {"has 2 hard links",
         [](const std::string& strPath, const std::string&) {
             return PutFile(strPath + "-2", "forged\n") && link((strPath + "-2").c_str(), strPath.c_str()) == 0;
         }},
        {"is not a regular file",
         [](const std::string& strPath, const std::string&) { return mkfifo(strPath.c_str(), 0666) == 0; }},
        {"is not a regular file",
         [](const std::string& strPath, const std::string&) { return mkdir(strPath.c_str(), 0777) == 0; }},
    };
}

} // namespace

TEST_F(AttackOnTmp, FindsNothingToSayWhereAllIsWell) {
    EXPECT_EQ(SecureLogStaging(), Texts{});
    EXPECT_EQ(support::ModeOf(_strStaging), 0711);
    EXPECT_FALSE(Exists(_strMemLog));
    support::WriteFile(_strMemLog, "staged\n");
    chmod(_strMemLog.c_str(), 0644);
    support::WriteFile(_strStaging + "/program", "x");
    EXPECT_EQ(SecureLogStaging(), Texts{});
    EXPECT_EQ(ReadFile(_strMemLog), "staged\n");
    EXPECT_TRUE(Exists(_strStaging + "/program"));
}

TEST_F(AttackOnTmp, HasWhatItPutInTheMemoryLogFilesPlaceMovedAside) {
    SecureLogStaging();
    std::size_t uAside = 0;
    for (const Plant& plant : FilePlants()) {
        ASSERT_TRUE(StrangerCan([&] { return plant.put(_strMemLog, _strVictim); })) << plant.szReason;
        EXPECT_EQ(OneLine(SecureLogStaging()), _strMemLog + " " + plant.szReason + ": moved aside to " + _strMemLog);
        struct stat stPath = {};
        EXPECT_NE(lstat(_strMemLog.c_str(), &stPath), 0) << plant.szReason;
        EXPECT_EQ(Aside(_strMemLog).size(), ++uAside);
        EXPECT_EQ(SecureLogStaging(), Texts{});
        unlink((_strMemLog + "-2").c_str());
    }
    EXPECT_EQ(ReadFile(_strVictim), "precious\n");
    EXPECT_EQ(support::ModeOf(_strVictim), 0600);
    EXPECT_FALSE(Exists(_strVictim + "-new"));
}

TEST_F(AttackOnTmp, HasWhatItPutInTheStagingFoldersPlaceMovedAside) {
    const std::string strVictimFolder = _folders.Root() / "victims";
    fs::create_directory(strVictimFolder);
    const Plant aPlants[] = {
        {"is a symbolic link",
         [&](const std::string& strPath, const std::string&) {
             return symlink(strVictimFolder.c_str(), strPath.c_str()) == 0;
         }},
        {"belongs to uid 54321",
         [](const std::string& strPath, const std::string&) { return mkdir(strPath.c_str(), 0700) == 0; }},
        {"is not a folder", [](const std::string& strPath, const std::string&) { return PutFile(strPath, "x"); }},
    };
    for (const Plant& plant : aPlants) {
        fs::remove_all(_strStaging);
        ASSERT_TRUE(StrangerCan([&] { return plant.put(_strStaging, ""); })) << plant.szReason;
        EXPECT_EQ(OneLine(SecureLogStaging()), _strStaging + " " + plant.szReason + ": moved aside to " + _strStaging);
        struct stat stPath = {};
        ASSERT_EQ(lstat(_strStaging.c_str(), &stPath), 0) << plant.szReason;
        EXPECT_TRUE(S_ISDIR(stPath.st_mode));
        EXPECT_EQ(stPath.st_uid, geteuid());
        EXPECT_EQ(stPath.st_mode & 07777, 0711U);
        EXPECT_EQ(SecureLogStaging(), Texts{});
    }
    EXPECT_TRUE(fs::is_empty(strVictimFolder));
    EXPECT_FALSE(StrangerCan([&] { return rename(_strStaging.c_str(), (_strStaging + "-mine").c_str()) == 0; }));
    EXPECT_FALSE(StrangerCan([&] { return PutFile(_strStaging + "/program", "x"); }));
}

TEST_F(AttackOnTmp, ProfitsFromNoModeThatLetsOthersWrite) {
    SecureLogStaging();
    chmod(_strStaging.c_str(), 0777);
    EXPECT_EQ(OneLine(SecureLogStaging()),
              _strStaging + " is writable by group or others: moved aside to " + _strStaging);
    support::WriteFile(_strMemLog, "perhaps forged\n");
    chmod(_strMemLog.c_str(), 0666);
    EXPECT_EQ(OneLine(SecureLogStaging()),
              _strMemLog + " is writable by group or others: moved aside to " + _strMemLog);
}

TEST_F(AttackOnTmp, CannotKeepANameFromBeingFree) {
    SecureLogStaging();
    const time_t tNow = time(nullptr);
    ASSERT_TRUE(StrangerCan([&] {
        bool bPut = PutFile(_strMemLog, "forged\n");
        for (time_t t = tNow; t < tNow + 30; ++t) {
            bPut = bPut && PutFile(_strMemLog + ".foreign-" + std::to_string(t) + "-0", "kept");
        }
        return bPut;
    }));
    const Texts vecLines = SecureLogStaging();
    ASSERT_EQ(vecLines.size(), 1U);
    EXPECT_TRUE(vecLines[0].ends_with("-1")) << vecLines[0];
    EXPECT_EQ(ReadFile(_strMemLog + ".foreign-" + std::to_string(tNow) + "-0"), "kept");
}

TEST_F(AttackOnTmp, IsToldOnceWhereNothingCanBeMoved) {
    SecureLogStaging();
    chmod(_strStaging.c_str(), 0777);
    ASSERT_EQ(mount(_strStaging.c_str(), _strStaging.c_str(), nullptr, MS_BIND, nullptr), 0); // the kernel holds it
    const Texts vecLines = SecureLogStaging();
    ASSERT_EQ(umount2(_strStaging.c_str(), MNT_DETACH), 0);
    EXPECT_EQ(vecLines, Texts{_strStaging +
                              " is writable by group or others: it cannot be moved aside: Device or resource busy"});
}

TEST_F(AttackOnTmp, GetsNothingOfTheLogAndPutsNothingIntoIt) {
    std::string strExpected;
    for (const Plant& plant : FilePlants()) {
        if (plant.put == nullptr) {
            continue;
        }
        support::CapturedSyslog log;
        fs::remove_all(_strMemLog);
        ASSERT_TRUE(StrangerCan([&] { return plant.put(_strMemLog, _strVictim); })) << plant.szReason;
        Log(plant.szReason);
        if (fs::is_directory(fs::symlink_status(_strMemLog))) { // unlink() takes no folder away
            EXPECT_EQ(log.Take().size(), 2U);
            SecureLogStaging();
            CronJob::FlushLog();
        }
        strExpected += std::string(plant.szReason) + "\n";
        EXPECT_EQ(ReadFile(SZF_CRON_LOG_EXEC), strExpected);
        EXPECT_EQ(log.Take(), Texts{});
        EXPECT_FALSE(fs::is_symlink(fs::symlink_status(_strMemLog)));
        unlink((_strMemLog + "-2").c_str());
    }
    EXPECT_EQ(ReadFile(_strVictim), "precious\n");
    EXPECT_FALSE(Exists(_strVictim + "-new"));
}

TEST_F(AttackOnTmp, RacesTheLogInVain) {
    const std::string strOther = _strMemLog + "-mine";
    support::CapturedSyslog log;
    {
        const BusyStranger stranger([&] {
            (void)!symlink(_strVictim.c_str(), _strMemLog.c_str());
            (void)!symlink((_strVictim + "-new").c_str(), strOther.c_str());
            rename(strOther.c_str(), _strMemLog.c_str());
            PutFile(strOther, "forged\n");
            rename(strOther.c_str(), _strMemLog.c_str());
        });
        for (int i = 0; i < 3000; ++i) {
            Log("line " + std::to_string(i) + " ");
        }
    }
    log.Take(); // now and then something could not be taken away in time
    EXPECT_EQ(ReadFile(_strVictim), "precious\n");
    EXPECT_FALSE(Exists(_strVictim + "-new"));
    const std::string strLog = ReadFile(SZF_CRON_LOG_EXEC);
    EXPECT_EQ(strLog.find("forged"), std::string::npos);
    EXPECT_EQ(strLog.find("precious"), std::string::npos);
    EXPECT_NE(strLog.find("line "), std::string::npos);
}
