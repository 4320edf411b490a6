/// What tells the store of a package's jobs from that of the system's: no root rights, no folder made, no reload.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "crond/cronjob.h"
#include "crond/pkgconfigmanager.h"
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
using VUKO::VUKOCrond::PkgConfigManager;
using VUKO::VUKOCrond::PkgConfigManagerPrivate;

namespace {

using Calls = std::vector<std::string>;
using Texts = std::vector<std::string>;

const std::string FOLDER = "/usr/local/etc/vukocron_nonroot.d/pkgA";
constexpr const char* SOURCE = "pkgconfigmanager";

class PackageStore : public ::testing::Test {
protected:
    PackageStore() { fake::StorePlatform().setFolders = {FOLDER}; }

    const fake::ScopedPlatform _platform;
    const fake::ScopedStorePlatform _storePlatform;
};

} // namespace

TEST_F(PackageStore, KeepsThePackageTheNameAndThePathInThisOrder) {
    const PkgConfigManagerPrivate store("pkgA", "sync");
    EXPECT_EQ(store.strPkg, "pkgA");
    EXPECT_EQ(store.strName, "sync");
    EXPECT_EQ(store.strPath, FOLDER + "/sync.conf");
    EXPECT_LT(&store.strPkg, &store.strName);
    EXPECT_LT(&store.strName, &store.strPath);
    EXPECT_EQ(sizeof(store), 3 * sizeof(std::string));
}

TEST_F(PackageStore, TakesBothNamesExactlyAsPassed) {
    fake::StorePlatform().setFolders = {"/usr/local/etc/vukocron_nonroot.d/../x y"};
    const PkgConfigManagerPrivate store("../x y", "a/b");
    EXPECT_EQ(store.strPath, "/usr/local/etc/vukocron_nonroot.d/../x y/a/b.conf");
}

TEST_F(PackageStore, ReadsThePathConstantWhenAHandleIsMade) {
    const support::ScopedValue<const char*> folder(VUKO::VUKOCrond::SZF_CRON_FOLDER_PKG_NONROOT, "/elsewhere");
    fake::StorePlatform().setFolders = {"/elsewhere/pkgA"};
    EXPECT_EQ(PkgConfigManagerPrivate("pkgA", "sync").strPath, "/elsewhere/pkgA/sync.conf");
}

TEST_F(PackageStore, LooksForThePackagesFolderAndAsksNotWhoItIs) {
    const support::CapturedSyslog log;
    fake::StorePlatform().uidEffective = 1000;
    PkgConfigManager store("pkgA", "sync");
    EXPECT_TRUE(store.Save(Definition()));
    EXPECT_TRUE(store.Remove());
    const std::string strPath = FOLDER + "/sync.conf";
    EXPECT_EQ(fake::Calls(),
              (Calls{"isdir " + FOLDER, "toFile " + strPath + " durable=1", "exist " + strPath, "unlink " + strPath}));
}

TEST_F(PackageStore, OnlyReportsAMissingFolderAndStaysUsable) {
    fake::StorePlatform().setFolders.clear();
    ExpectInBothForms([] { const PkgConfigManager store("pkgA", "sync"); },
                      {{49, "config folder not exist: " + FOLDER}}, SOURCE);
    EXPECT_EQ(fake::Calls(), (Calls(2, "isdir " + FOLDER)));
    EXPECT_TRUE(fake::StorePlatform().setFolders.empty());
}

TEST_F(PackageStore, NeverAsksForAReloadAlsoWhileTheSystemShutsDown) {
    fake::StorePlatform().iBootStep = 5;
    EXPECT_EQ(Logged([] {
                  PkgConfigManager store("pkgA", "sync");
                  EXPECT_TRUE(store.Save(Definition()));
                  EXPECT_TRUE(store.Remove());
              }),
              Texts{});
}

TEST_F(PackageStore, OffersTheSameOperationsBehindTheHandle) {
    PkgConfigManagerPrivate store("pkgA", "sync");
    Json::Value jsLoaded;
    EXPECT_FALSE(store.Exist());
    EXPECT_TRUE(store.Save(Definition()));
    EXPECT_TRUE(store.Exist());
    EXPECT_TRUE(store.Load(jsLoaded));
    EXPECT_EQ(jsLoaded, Definition());
    EXPECT_TRUE(store.Remove());
    EXPECT_FALSE(store.Exist());
}
