#include "service/definitions/definitionscan.h"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include "crond/cronjob.h"
#include "tests/fake/fake_platform.h"
#include "tests/service/service_fixture.h"

using namespace VUKO::VUKOCrond;
using namespace VUKO::VUKOCrond::Service;
using service_test::JobDefinition;

namespace {

using Texts = std::vector<std::string>;

class DefinitionScanTest : public testing::Test {
protected:
    DefinitionScanTest() { fake::Platform().mapAccounts["alice"] = {1001, 1001}; }

    static Texts Identities(const DefinitionScan& scan) {
        Texts vecIdentities;
        for (const Service::Definition& definition : scan.vecDefinitions) {
            vecIdentities.push_back(ToText(definition.id));
        }
        return vecIdentities;
    }

    static Json::Value PackageDefinition(const std::string& strName) {
        Json::Value jsDefinition = JobDefinition(strName);
        jsDefinition["user"] = "package";
        jsDefinition["package_username"] = "alice";
        return jsDefinition;
    }

    std::string PackageFolder(const std::string& strPackage) const {
        return std::string(SZF_CRON_FOLDER_PKG_NONROOT) + "/" + strPackage;
    }

    service_test::ServiceFolders _folders;

private:
    fake::ScopedPlatform _platform;
};

} // namespace

TEST_F(DefinitionScanTest, ReadsTheFoldersInTheirOrderAndFilesByName) {
    _folders.Put(SZF_CRON_FOLDER_PKG, "p", JobDefinition("p"));
    _folders.Put(SZF_CRON_FOLDER_BUILT_IN_DYN, "d", JobDefinition("d"));
    _folders.Put(SZF_CRON_FOLDER_BUILT_IN, "b", JobDefinition("second"));
    _folders.Put(SZF_CRON_FOLDER_BUILT_IN, "a", JobDefinition("first"));
    _folders.Put(PackageFolder("zoo").c_str(), "x", PackageDefinition("x"));
    _folders.Put(PackageFolder("ant").c_str(), "y", PackageDefinition("y"));
    const DefinitionScan scan = ScanDefinitions();
    EXPECT_EQ(scan.vecRefusals, Texts{});
    EXPECT_EQ(Identities(scan), (Texts{"builtin/first", "builtin/second", "builtin-dyn/d", "pkg/p", "pkg_nonroot/ant/y",
                                       "pkg_nonroot/zoo/x"}));
}

TEST_F(DefinitionScanTest, KeepsTheDefinitionAsItWasRead) {
    const std::string strFile = _folders.Put(SZF_CRON_FOLDER_BUILT_IN, "job", JobDefinition("job"));
    const DefinitionScan scan = ScanDefinitions();
    ASSERT_EQ(scan.vecDefinitions.size(), 1U);
    EXPECT_EQ(scan.vecDefinitions[0].jsDefinition, JobDefinition("job"));
    EXPECT_EQ(scan.vecDefinitions[0].strFile, strFile);
}

TEST_F(DefinitionScanTest, TakesAMissingFolderForAnEmptyOne) {
    for (const char* const szFolder :
         {SZF_CRON_FOLDER_BUILT_IN, SZF_CRON_FOLDER_BUILT_IN_DYN, SZF_CRON_FOLDER_PKG, SZF_CRON_FOLDER_PKG_NONROOT}) {
        std::filesystem::remove_all(szFolder);
    }
    const DefinitionScan scan = ScanDefinitions();
    EXPECT_TRUE(scan.vecDefinitions.empty());
    EXPECT_TRUE(scan.vecRefusals.empty());
}

TEST_F(DefinitionScanTest, ReportsAFolderThatIsNone) {
    std::filesystem::remove(SZF_CRON_FOLDER_PKG);
    support::WriteFile(SZF_CRON_FOLDER_PKG, "");
    EXPECT_EQ(ScanDefinitions().vecRefusals,
              Texts{std::string(SZF_CRON_FOLDER_PKG) + ": cannot be opened: Not a directory"});
}

TEST_F(DefinitionScanTest, PassesOverOtherNames) {
    const std::string strText = service_test::ToJson(JobDefinition("job"));
    for (const char* const szName : {".hidden.conf", ".conf", "job.conf.bak", "job", "README", "job.CONF"}) {
        _folders.PutText(SZF_CRON_FOLDER_BUILT_IN, szName, strText);
    }
    const DefinitionScan scan = ScanDefinitions();
    EXPECT_EQ(Identities(scan), Texts{});
    EXPECT_EQ(scan.vecRefusals, Texts{});
}

TEST_F(DefinitionScanTest, ReadsAnArrayAndNamesTheElementItRefuses) {
    Json::Value jsList(Json::arrayValue);
    jsList.append(JobDefinition("good"));
    jsList.append(JobDefinition("bad", "* 25 * * *"));
    jsList.append(5);
    jsList.append(JobDefinition("good too"));
    const std::string strFile = _folders.Put(SZF_CRON_FOLDER_BUILT_IN, "list", jsList);
    const DefinitionScan scan = ScanDefinitions();
    EXPECT_EQ(Identities(scan), (Texts{"builtin/good", "builtin/good too"}));
    EXPECT_EQ(scan.vecRefusals, (Texts{strFile + R"(: definition 2 "bad": field "crontab": hour: 25 is not in 0..23)",
                                       strFile + ": definition 3: expected an object, found a number"}));
}

TEST_F(DefinitionScanTest, TakesAnEmptyArrayForNothing) {
    _folders.PutText(SZF_CRON_FOLDER_BUILT_IN, "none.conf", "[]");
    const DefinitionScan scan = ScanDefinitions();
    EXPECT_TRUE(scan.vecDefinitions.empty());
    EXPECT_TRUE(scan.vecRefusals.empty());
}

TEST_F(DefinitionScanTest, TellsWhyAFileCannotBeUsed) {
    const std::string strFolder = SZF_CRON_FOLDER_BUILT_IN;
    _folders.PutText(strFolder, "a-text.conf", "\"text\"");
    _folders.PutText(strFolder, "b-broken.conf", "{\"name\": ");
    _folders.PutText(strFolder, "c-empty.conf", "");
    _folders.PutText(strFolder, "d-deep.conf", std::string(2000, '[') + std::string(2000, ']'));
    _folders.PutText(strFolder, "e-latin.conf", "{\"name\": \"gr\xfc\xdf\"}");
    _folders.PutText(strFolder, "f-large.conf", "[" + std::string(256 * 1024, ' ') + "]");
    std::string strMany = "[0";
    for (int i = 0; i < 1000; ++i) {
        strMany += ",0";
    }
    _folders.PutText(strFolder, "f-many.conf", strMany + "]");
    std::filesystem::create_directory(strFolder + "/g-folder.conf");
    std::filesystem::create_symlink("/etc/passwd", strFolder + "/h-link.conf");
    ASSERT_EQ(mkfifo((strFolder + "/i-pipe.conf").c_str(), 0644), 0);
    chmod(_folders.Put(strFolder.c_str(), "j-group", JobDefinition("j")).c_str(), 0664);
    chmod(_folders.Put(strFolder.c_str(), "k-others", JobDefinition("k")).c_str(), 0646);
    _folders.Put(strFolder.c_str(), "l-name", JobDefinition("../l"));
    const Texts vecRefusals = ScanDefinitions().vecRefusals;
    EXPECT_EQ(
        vecRefusals,
        (Texts{strFolder + "/a-text.conf: expected an object or an array of objects, found a text",
               strFolder +
                   "/b-broken.conf: is not JSON: line 1, column 10: Syntax error: value, object or array expected.",
               strFolder + "/c-empty.conf: is not JSON: the file is empty",
               strFolder + "/d-deep.conf: is not JSON: it is nested too deep",
               strFolder + "/e-latin.conf: is not JSON: it holds bytes that are no UTF-8, a bare control character "
                           "or a number of another form",
               strFolder + "/f-large.conf: is too large: 262146 bytes, at most 262144",
               strFolder + "/f-many.conf: holds 1001 definitions, at most 1000 are taken",
               strFolder + "/g-folder.conf: is not a regular file", strFolder + "/h-link.conf: is a symbolic link",
               strFolder + "/i-pipe.conf: is not a regular file",
               strFolder + "/j-group.conf: is writable by group or others",
               strFolder + "/k-others.conf: is writable by group or others",
               strFolder + R"(/l-name.conf: field "name": "../l" begins with ".")"}));
}

TEST_F(DefinitionScanTest, KeepsAFileNameFromForgingALogLine) {
    _folders.PutText(SZF_CRON_FOLDER_BUILT_IN, "x\nvukocrond: all is well.conf", "");
    const Texts vecRefusals = ScanDefinitions().vecRefusals;
    ASSERT_EQ(vecRefusals.size(), 1U);
    EXPECT_EQ(vecRefusals[0], std::string(SZF_CRON_FOLDER_BUILT_IN) +
                                  "/x\\x0avukocrond: all is well.conf: is not JSON: the file is empty");
}

TEST_F(DefinitionScanTest, HoldsThePackagesFolderToItsRules) {
    _folders.Put(PackageFolder("photos").c_str(), "good", PackageDefinition("good"));
    const std::string strBad = _folders.Put(PackageFolder("photos").c_str(), "rooted", JobDefinition("rooted"));
    const DefinitionScan scan = ScanDefinitions();
    EXPECT_EQ(Identities(scan), Texts{"pkg_nonroot/photos/good"});
    EXPECT_EQ(scan.vecRefusals, Texts{strBad + R"(: field "user": expected "package" in this folder, found "root")"});
}

TEST_F(DefinitionScanTest, RefusesPackageFoldersThatOthersCanChange) {
    _folders.Put(PackageFolder("open").c_str(), "job", PackageDefinition("job"));
    chmod(PackageFolder("open").c_str(), 0777);
    _folders.Put(PackageFolder("real").c_str(), "job", PackageDefinition("job"));
    std::filesystem::create_directory_symlink("real", PackageFolder("link"));
    std::filesystem::create_directory(PackageFolder(".hidden"));
    const std::string strStray = _folders.Put(SZF_CRON_FOLDER_PKG_NONROOT, "stray", PackageDefinition("stray"));
    _folders.PutText(SZF_CRON_FOLDER_PKG_NONROOT, "README", "what this folder is for");
    const DefinitionScan scan = ScanDefinitions();
    EXPECT_EQ(Identities(scan), Texts{"pkg_nonroot/real/job"});
    EXPECT_EQ(scan.vecRefusals, (Texts{PackageFolder("link") + ": is a symbolic link",
                                       PackageFolder("open") + ": is writable by group or others",
                                       strStray + ": lies in no package's folder"}));
}
