#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "crond/cronjob.h"
#include "service/definitions/definitionfile.h"
#include "service/definitions/definitionscan.h"
#include "tests/fake/fake_platform.h"
#include "tests/service/service_fixture.h"

using namespace VUKO::VUKOCrond;
using namespace VUKO::VUKOCrond::Service;

namespace {

using Texts = std::vector<std::string>;

constexpr uid_t ALICE = 1001;
constexpr uid_t BOB = 1002;

class DefinitionScanAsRoot : public testing::Test {
protected:
    void SetUp() override {
        if (geteuid() != 0) {
            GTEST_SKIP() << "needs root";
        }
        fake::Platform().mapAccounts["alice"] = {ALICE, ALICE};
        fake::Platform().mapAccounts["bob"] = {BOB, BOB};
    }

    std::string PutForPackage(const std::string& strPackage, uid_t uidFolder, const std::string& strName, uid_t uidFile,
                              const std::string& strAccount) {
        Json::Value jsDefinition = service_test::JobDefinition(strName);
        jsDefinition["user"] = "package";
        jsDefinition["package_username"] = strAccount;
        const std::string strFolder = std::string(SZF_CRON_FOLDER_PKG_NONROOT) + "/" + strPackage;
        const std::string strFile = _folders.Put(strFolder.c_str(), strName, jsDefinition);
        EXPECT_EQ(chown(strFolder.c_str(), uidFolder, uidFolder), 0);
        EXPECT_EQ(chown(strFile.c_str(), uidFile, uidFile), 0);
        return strFile;
    }

    static Texts Lines(const DefinitionScan& scan) {
        Texts vecLines;
        for (const Refusal& refusal : scan.vecRefusals) {
            vecLines.push_back(refusal.strText);
        }
        return vecLines;
    }

    service_test::ServiceFolders _folders;

private:
    fake::ScopedPlatform _platform;
};

} // namespace

TEST_F(DefinitionScanAsRoot, RefusesFilesOfOtherOwners) {
    const std::string strFile =
        _folders.Put(SZF_CRON_FOLDER_BUILT_IN, "foreign", service_test::JobDefinition("foreign"));
    ASSERT_EQ(chown(strFile.c_str(), ALICE, ALICE), 0);
    const DefinitionScan scan = ScanDefinitions();
    EXPECT_TRUE(scan.vecDefinitions.empty());
    EXPECT_EQ(Lines(scan), Texts{strFile + ": belongs to uid 1001, which may not define jobs here"});
}

TEST_F(DefinitionScanAsRoot, LetsAPackagesOwnerDefineJobsForItself) {
    PutForPackage("photos", ALICE, "own", ALICE, "alice");
    PutForPackage("photos", ALICE, "put-there-by-root", 0, "alice");
    const DefinitionScan scan = ScanDefinitions();
    EXPECT_EQ(scan.vecDefinitions.size(), 2U);
    EXPECT_EQ(Lines(scan), Texts{});
}

TEST_F(DefinitionScanAsRoot, KeepsPackagesFromActingForOthers) {
    const std::string strAsBob = PutForPackage("photos", ALICE, "as-bob", ALICE, "bob");
    const std::string strAsRoot = PutForPackage("photos", ALICE, "as-root", ALICE, "root");
    const std::string strOfBob = PutForPackage("photos", ALICE, "of-bob", BOB, "alice");
    const std::string strInRootsFolder = PutForPackage("tools", 0, "alices", ALICE, "alice");
    const DefinitionScan scan = ScanDefinitions();
    EXPECT_TRUE(scan.vecDefinitions.empty());
    EXPECT_EQ(
        Lines(scan),
        (Texts{strAsBob + R"(: field "package_username": "bob" is not the account that owns the package's folder)",
               strAsRoot + R"(: field "package_username": "root" is root)",
               strOfBob + ": belongs to uid 1002, which may not define jobs here",
               strInRootsFolder + ": belongs to uid 1001, which may not define jobs here"}));
}

TEST(DefinitionFileTrust, BelongsToRootAndTheServiceItself) {
    EXPECT_TRUE(IsTrustedOwner(0));
    EXPECT_TRUE(IsTrustedOwner(geteuid()));
    EXPECT_FALSE(IsTrustedOwner(geteuid() + 12345));
}
