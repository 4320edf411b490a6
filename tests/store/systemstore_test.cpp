/// What only the store of the system's jobs does: its folder, its complaint about missing rights, and the reload.

#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <vector>

#include "crond/configmanager.h"
#include "crond/cronjob.h"
#include "tests/fake/call_record.h"
#include "tests/fake/fake_platform.h"
#include "tests/fake/fake_store_platform.h"
#include "tests/support/captured_syslog.h"
#include "tests/support/scoped_value.h"
#include "tests/unit/definitions.h"
#include "tests/unit/messages.h"

using unit::Definition;
using unit::ExpectInBothForms;
using unit::Logged;
using VUKO::VUKOCrond::ConfigManager;
using VUKO::VUKOCrond::ConfigManagerPrivate;

namespace {

using Calls = std::vector<std::string>;
using Texts = std::vector<std::string>;

constexpr const char* SYSTEM_FOLDER = "/usr/vuko/etc/vukocron.d";
constexpr const char* PACKAGE_FOLDER = "/usr/local/etc/vukocron.d";
constexpr const char* SOURCE = "configmanager";

class SystemStore : public ::testing::Test {
protected:
    SystemStore() { fake::StorePlatform().setFolders = {SYSTEM_FOLDER, PACKAGE_FOLDER}; }

    const fake::ScopedPlatform _platform;
    const fake::ScopedStorePlatform _storePlatform;
};

/// What an action logs with errno set, together with the formats.
struct Said {
    Texts vecTexts;
    Texts vecFormats;
};

template <typename Action>
Said SaidWithErrno(int iErrno, Action action) {
    support::CapturedSyslog log;
    errno = iErrno;
    action();
    Said said;
    said.vecTexts = log.Take();
    said.vecFormats = log.Formats();
    return said;
}

/// Expects one message that has the same form whatever errno says.
template <typename Action>
void ExpectInOneForm(const std::string& strText, const std::string& strFormat, Action action) {
    for (const int iErrno : {0, EIO}) {
        const Said said = SaidWithErrno(iErrno, action);
        EXPECT_EQ(said.vecTexts, Texts{strText});
        EXPECT_EQ(said.vecFormats, Texts{strFormat});
    }
}

} // namespace

TEST_F(SystemStore, KeepsTheNameAndThePathInThisOrder) {
    const ConfigManagerPrivate system("backup", false);
    EXPECT_EQ(system.strName, "backup");
    EXPECT_EQ(system.strPath, std::string(SYSTEM_FOLDER) + "/backup.conf");
    EXPECT_LT(&system.strName, &system.strPath);
    EXPECT_EQ(sizeof(system), 2 * sizeof(std::string));
    const ConfigManagerPrivate package("backup", true);
    EXPECT_EQ(package.strPath, std::string(PACKAGE_FOLDER) + "/backup.conf");
}

TEST_F(SystemStore, TakesTheNameExactlyAsPassed) {
    for (const char* const szName : {"", "../up", "a b", "x.conf", "%s"}) {
        const ConfigManagerPrivate store(szName, false);
        EXPECT_EQ(store.strName, szName);
        EXPECT_EQ(store.strPath, std::string(SYSTEM_FOLDER) + "/" + szName + ".conf");
    }
}

TEST_F(SystemStore, PrintsANameOfPercentSignsAsItIs) {
    ConfigManager store("%s%n", false);
    EXPECT_EQ(Logged([&] { store.Save(Json::Value()); }), Texts{"<3>configmanager:90 job[%s%n] format error."});
}

TEST_F(SystemStore, OffersTheSameOperationsBehindTheHandle) {
    ConfigManagerPrivate store("backup", false);
    Json::Value jsLoaded;
    EXPECT_FALSE(store.Exist());
    EXPECT_TRUE(store.Save(Definition()));
    EXPECT_TRUE(store.Exist());
    EXPECT_TRUE(store.Load(jsLoaded));
    EXPECT_EQ(jsLoaded, Definition());
    EXPECT_TRUE(store.Remove());
    EXPECT_FALSE(store.Exist());
}

TEST_F(SystemStore, ReadsThePathConstantsWhenAHandleIsMade) {
    const support::ScopedValue<const char*> folder(VUKO::VUKOCrond::SZF_CRON_FOLDER_BUILT_IN_DYN, "/elsewhere");
    const ConfigManagerPrivate store("backup", false);
    EXPECT_EQ(store.strPath, "/elsewhere/backup.conf");
    EXPECT_EQ(fake::Calls(), (Calls{"geteuid", "isdir /elsewhere", "mkdirp /elsewhere,0,1,0,0,0750"}));
}

TEST_F(SystemStore, LooksForItsFolderAndLeavesItAloneWhenItIsThere) {
    const support::CapturedSyslog log;
    const ConfigManager store("backup", false);
    EXPECT_EQ(fake::Calls(), (Calls{"geteuid", std::string("isdir ") + SYSTEM_FOLDER}));
}

TEST_F(SystemStore, MakesAMissingFolderWithItsParentsForRootAlone) {
    const support::CapturedSyslog log;
    fake::StorePlatform().setFolders.clear();
    const ConfigManager store("backup", true);
    EXPECT_EQ(fake::Calls(), (Calls{"geteuid", std::string("isdir ") + PACKAGE_FOLDER,
                                    std::string("mkdirp ") + PACKAGE_FOLDER + ",0,1,0,0,0750"}));
    EXPECT_EQ(fake::StorePlatform().setFolders, std::set<std::string>{PACKAGE_FOLDER});
}

TEST_F(SystemStore, ReportsAFolderThatCannotBeMadeAndStaysUsable) {
    fake::StorePlatform().setFolders.clear();
    fake::StorePlatform().mapFailing = {{"mkdirp", 0}};
    ExpectInBothForms([] { const ConfigManager store("backup", false); },
                      {{70, "mkdir (/usr/vuko/etc/vukocron.d) failed"}}, SOURCE);
    fake::StorePlatform().mapFailing = {{"mkdirp", EROFS}};
    EXPECT_EQ(Logged([] {
                  ConfigManager store("backup", false);
                  EXPECT_TRUE(store.Save(Definition()));
              }),
              Texts{"<3>configmanager:70 mkdir (/usr/vuko/etc/vukocron.d) failed (Read-only file system)"});
}

TEST_F(SystemStore, TellsAProcessThatIsNotRootSoOnceAndLeavesTheFolderAlone) {
    fake::StorePlatform().uidEffective = 1000;
    fake::StorePlatform().setFolders.clear();
    ExpectInBothForms([] { const ConfigManager store("backup", false); }, {{65, "you're not root, bye."}}, SOURCE);
    EXPECT_EQ(fake::Calls(), (Calls{"geteuid", "geteuid"}));
}

TEST_F(SystemStore, StaysUsableForAProcessThatIsNotRoot) {
    fake::StorePlatform().uidEffective = 1000;
    EXPECT_EQ(Logged([] {
                  ConfigManager store("backup", false);
                  Json::Value jsLoaded;
                  EXPECT_TRUE(store.Save(Definition()));
                  EXPECT_TRUE(store.Load(jsLoaded));
                  EXPECT_TRUE(store.Remove());
              }),
              Texts{"<3>configmanager:65 you're not root, bye."});
}

TEST_F(SystemStore, SkipsTheReloadWhileTheSystemShutsDownAndStillSucceeds) {
    fake::StorePlatform().iBootStep = 5;
    ConfigManager store("backup", false);
    fake::ClearCalls();
    ExpectInOneForm("<7>configmanager:47 system is shutting down, skip reload",
                    "%s:%d system is shutting down, skip reload", [&] { EXPECT_TRUE(store.Save(Definition())); });
    EXPECT_TRUE(store.Exist());
    ExpectInOneForm("<7>configmanager:47 system is shutting down, skip reload",
                    "%s:%d system is shutting down, skip reload", [&] {
                        fake::StorePlatform().mapFiles["/usr/vuko/etc/vukocron.d/backup.conf"] = {};
                        EXPECT_TRUE(store.Remove());
                    });
    EXPECT_FALSE(store.Exist());
    for (const std::string& strCall : fake::Calls()) {
        EXPECT_EQ(strCall.find("reload"), std::string::npos) << strCall;
    }
}

TEST_F(SystemStore, ReloadsAtEveryOtherBootStep) {
    ConfigManager store("backup", false);
    for (const int iBootStep : {-1, 0, 1, 2, 3, 4, 6}) {
        fake::StorePlatform().iBootStep = iBootStep;
        fake::ClearCalls();
        EXPECT_TRUE(store.Save(Definition()));
        EXPECT_EQ(fake::Calls().back(), "reload vukocrond") << iBootStep;
    }
}

TEST_F(SystemStore, ReportsAReloadThatFailedInOneFormAndStillSucceeds) {
    fake::StorePlatform().mapFailing = {{"reload", 0}};
    fake::StorePlatform().uErrCode = 0x2A;
    fake::StorePlatform().strErrFile = "manager.cpp";
    fake::StorePlatform().iErrLine = 17;
    ConfigManager store("backup", false);
    const std::string strText = "<3>configmanager:52 failed to reload service vukocrond. [0x002A manager.cpp:17]";
    const std::string strFormat = "%s:%d failed to reload service %s. [0x%04X %s:%d]";
    ExpectInOneForm(strText, strFormat, [&] { EXPECT_TRUE(store.Save(Definition())); });
    ExpectInOneForm(strText, strFormat, [&] {
        fake::StorePlatform().mapFiles["/usr/vuko/etc/vukocron.d/backup.conf"] = {};
        EXPECT_TRUE(store.Remove());
    });
    EXPECT_FALSE(store.Exist());
}

TEST_F(SystemStore, PrintsALongErrorCodeInFull) {
    fake::StorePlatform().mapFailing = {{"reload", EPERM}};
    fake::StorePlatform().uErrCode = 0xDEADBEEF;
    ConfigManager store("backup", false);
    EXPECT_EQ(Logged([&] { store.Save(Definition()); }),
              Texts{"<3>configmanager:52 failed to reload service vukocrond. [0xDEADBEEF :0]"});
}

TEST_F(SystemStore, ReloadsTheServiceThatTheConstantNames) {
    const support::ScopedValue<const char*> service(VUKO::VUKOCrond::SZK_SERVICE_NAME, "another");
    fake::StorePlatform().mapFailing = {{"reload", 0}};
    ConfigManager store("backup", false);
    EXPECT_EQ(Logged([&] { store.Save(Definition()); }),
              Texts{"<3>configmanager:52 failed to reload service another. [0x0000 :0]"});
    EXPECT_EQ(fake::Calls().back(), "reload another");
}

TEST_F(SystemStore, LetsTheLastOfTwoHandlesOnOneNameWin) {
    ConfigManager first("backup", false);
    ConfigManager second("backup", false);
    EXPECT_TRUE(first.Save(unit::With("cmd", "first")));
    EXPECT_TRUE(second.Save(unit::With("cmd", "second")));
    Json::Value jsLoaded;
    EXPECT_TRUE(first.Load(jsLoaded));
    EXPECT_EQ(jsLoaded["cmd"], "second");
}
