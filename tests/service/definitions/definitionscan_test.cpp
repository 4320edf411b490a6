#include "service/definitions/definitionscan.h"

#include <gtest/gtest.h>

#include <fcntl.h>
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

    static Texts Lines(const DefinitionScan& scan) {
        Texts vecLines;
        for (const Refusal& refusal : scan.vecRefusals) {
            vecLines.push_back(refusal.strText);
        }
        return vecLines;
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
    EXPECT_EQ(Lines(scan), Texts{});
    EXPECT_EQ(Identities(scan), (Texts{"builtin/first", "builtin/second", "builtin-dyn/d", "pkg/p", "pkg_nonroot/ant/y",
                                       "pkg_nonroot/zoo/x"}));
}

TEST_F(DefinitionScanTest, KeepsTheDefinitionAsItWasRead) {
    const std::string strFile = _folders.Put(SZF_CRON_FOLDER_BUILT_IN, "job", JobDefinition("job"));
    const DefinitionScan scan = ScanDefinitions();
    ASSERT_EQ(scan.vecDefinitions.size(), 1U);
    EXPECT_EQ(scan.vecDefinitions[0].jsDefinition, JobDefinition("job"));
    EXPECT_EQ(scan.vecDefinitions[0].strFile, strFile);
    EXPECT_EQ(scan.vecDefinitions[0].strText, service_test::ToJson(JobDefinition("job")));
}

TEST_F(DefinitionScanTest, KeepsOneLineOfTextWhateverTheFileLooksLike) {
    _folders.PutText(
        SZF_CRON_FOLDER_BUILT_IN, "job.conf",
        "{ \"name\" : \"gr\\u00fcn\",\n\t\"user\":\"root\", \"period\":\"daily\",\n \"cmd\":\"a\\nb\"}\n\n");
    const DefinitionScan scan = ScanDefinitions();
    ASSERT_EQ(scan.vecDefinitions.size(), 1U);
    EXPECT_EQ(scan.vecDefinitions[0].strText,
              "{\"cmd\":\"a\\nb\",\"name\":\"gr\xc3\xbcn\",\"period\":\"daily\",\"user\":\"root\"}");
}

TEST_F(DefinitionScanTest, FindsTheSameWhateverTheTimesOfAFileAre) {
    const std::string strFile = _folders.Put(SZF_CRON_FOLDER_BUILT_IN, "job", JobDefinition("job"));
    const struct timespec aTimes[] = {{0, 0}, {0, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, strFile.c_str(), aTimes, 0), 0);
    EXPECT_EQ(ScanDefinitions().vecDefinitions.size(), 1U);
    support::WriteFile(strFile, service_test::ToJson(JobDefinition("jab"))); // as long as before
    ASSERT_EQ(utimensat(AT_FDCWD, strFile.c_str(), aTimes, 0), 0);
    EXPECT_EQ(Identities(ScanDefinitions()), Texts{"builtin/jab"});
}

TEST_F(DefinitionScanTest, TellsARefusalAfterAChangeFromTheOneBefore) {
    const std::string strFile = _folders.PutText(SZF_CRON_FOLDER_BUILT_IN, "job\n.conf", "[");
    const std::vector<Refusal> vecFirst = ScanDefinitions().vecRefusals;
    ASSERT_EQ(vecFirst.size(), 1U);
    EXPECT_EQ(vecFirst[0].strFile, strFile);
    EXPECT_EQ(ScanDefinitions().vecRefusals, vecFirst);
    _folders.PutText(SZF_CRON_FOLDER_BUILT_IN, "other.conf", "{");
    std::filesystem::rename(std::string(SZF_CRON_FOLDER_BUILT_IN) + "/other.conf", strFile);
    const std::vector<Refusal> vecSecond = ScanDefinitions().vecRefusals;
    ASSERT_EQ(vecSecond.size(), 1U);
    EXPECT_NE(vecSecond[0].uState, vecFirst[0].uState);
}

TEST_F(DefinitionScanTest, RefusesAFileOfTwoNamesUnderBoth) {
    const std::string strFile = _folders.Put(SZF_CRON_FOLDER_BUILT_IN, "a", JobDefinition("a"));
    std::filesystem::create_hard_link(strFile, std::string(SZF_CRON_FOLDER_BUILT_IN) + "/b.conf");
    const DefinitionScan scan = ScanDefinitions();
    EXPECT_EQ(Identities(scan), Texts{});
    EXPECT_EQ(Lines(scan), (Texts{strFile + ": has 2 hard links",
                                  std::string(SZF_CRON_FOLDER_BUILT_IN) + "/b.conf: has 2 hard links"}));
}

TEST_F(DefinitionScanTest, HoldsTheNamesOfPackagesToTheRulesOfNames) {
    _folders.Put(PackageFolder("a\nb").c_str(), "job", PackageDefinition("job"));
    _folders.Put(PackageFolder(std::string(129, 'p')).c_str(), "job", PackageDefinition("job"));
    const DefinitionScan scan = ScanDefinitions();
    EXPECT_EQ(Identities(scan), Texts{});
    EXPECT_EQ(Lines(scan), (Texts{PackageFolder("a\\x0ab: \"a\\x0ab\" holds a control character"),
                                  PackageFolder(std::string(129, 'p')) + ": 129 characters are more than 128"}));
}

TEST_F(DefinitionScanTest, TakesNoMoreFilesOfAPackageThanItsLimit) {
    for (std::size_t i = 0; i <= PackageLimits::FILES_MAX + 1; ++i) {
        _folders.PutText(PackageFolder("many"), std::to_string(100000 + i) + ".conf", "[]");
    }
    const DefinitionScan scan = ScanDefinitions();
    EXPECT_EQ(Lines(scan), Texts{PackageFolder("many") + ": holds more than 4096 definition files: \"104096.conf\" and "
                                                         "what follows by name is refused"});
}

TEST_F(DefinitionScanTest, TakesNoMoreDefinitionsOfAPackageThanItsLimit) {
    Json::Value jsList(Json::arrayValue);
    for (int i = 0; i < 900; ++i) {
        jsList.append(PackageDefinition("job"));
    }
    for (const char* const szName : {"a", "b", "c", "d", "e", "f"}) {
        _folders.Put(PackageFolder("many").c_str(), szName, jsList);
    }
    const DefinitionScan scan = ScanDefinitions();
    EXPECT_EQ(scan.vecDefinitions.size(), 3600U);
    EXPECT_EQ(Lines(scan), Texts{PackageFolder("many") + ": holds more than 4096 definitions: \"e.conf\" and what "
                                                         "follows by name is refused"});
}

TEST_F(DefinitionScanTest, TakesNoMoreBytesOfAPackageThanItsLimit) {
    const std::string strText = "[" + std::string(256 * 1024 - 2, ' ') + "]";
    for (int i = 10; i < 30; ++i) {
        _folders.PutText(PackageFolder("large"), std::to_string(i) + ".conf", strText);
    }
    const DefinitionScan scan = ScanDefinitions();
    EXPECT_EQ(Lines(scan), Texts{PackageFolder("large") + ": holds more than 4194304 bytes: \"26.conf\" and what "
                                                          "follows by name is refused"});
}

TEST_F(DefinitionScanTest, TakesNoMorePackagesThanTheLimit) {
    for (std::size_t i = 0; i <= PackageLimits::FOLDERS_MAX + 1; ++i) {
        std::filesystem::create_directory(PackageFolder(std::to_string(10000 + i)));
    }
    EXPECT_EQ(Lines(ScanDefinitions()),
              Texts{std::string(SZF_CRON_FOLDER_PKG_NONROOT) +
                    ": holds more than 1000 folders: \"11000\" and what follows by name is refused"});
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
    EXPECT_EQ(Lines(ScanDefinitions()),
              Texts{std::string(SZF_CRON_FOLDER_PKG) + ": cannot be opened: Not a directory"});
}

TEST_F(DefinitionScanTest, PassesOverOtherNames) {
    const std::string strText = service_test::ToJson(JobDefinition("job"));
    for (const char* const szName : {".hidden.conf", ".conf", "job.conf.bak", "job", "README", "job.CONF"}) {
        _folders.PutText(SZF_CRON_FOLDER_BUILT_IN, szName, strText);
    }
    const DefinitionScan scan = ScanDefinitions();
    EXPECT_EQ(Identities(scan), Texts{});
    EXPECT_EQ(Lines(scan), Texts{});
}

TEST_F(DefinitionScanTest, ReadsAnArrayAndNamesTheElementItRefuses) {
    Json::Value jsList(Json::arrayValue);
    jsList.append(JobDefinition("good"));
    jsList.append(JobDefinition("bad", "* 25 * * *"));
    jsList.append(5);
    jsList.append(JobDefinition("good too"));
    jsList.append(Json::Value(Json::objectValue));
    const std::string strFile = _folders.Put(SZF_CRON_FOLDER_BUILT_IN, "list", jsList);
    const DefinitionScan scan = ScanDefinitions();
    EXPECT_EQ(Identities(scan), (Texts{"builtin/good", "builtin/good too"}));
    EXPECT_EQ(Lines(scan), (Texts{strFile + R"(: definition 2 "bad": field "crontab": hour: 25 is not in 0..23)",
                                  strFile + ": definition 3: expected an object, found a number",
                                  strFile + R"(: definition 5: field "name": missing, expected a text)"}));
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
    const Texts vecRefusals = Lines(ScanDefinitions());
    EXPECT_EQ(
        vecRefusals,
        (Texts{strFolder + "/a-text.conf: expected an object or an array of objects, found a text",
               strFolder +
                   "/b-broken.conf: is not JSON: line 1, column 10: Syntax error: value, object or array expected.",
               strFolder + "/c-empty.conf: is not JSON: the file is empty",
               strFolder + "/d-deep.conf: is not JSON: it is nested too deep",
               strFolder + "/e-latin.conf: is not JSON: line 1, column 13: A byte that is no UTF-8",
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
    const Texts vecRefusals = Lines(ScanDefinitions());
    ASSERT_EQ(vecRefusals.size(), 1U);
    EXPECT_EQ(vecRefusals[0], std::string(SZF_CRON_FOLDER_BUILT_IN) +
                                  "/x\\x0avukocrond: all is well.conf: is not JSON: the file is empty");
}

TEST_F(DefinitionScanTest, HoldsThePackagesFolderToItsRules) {
    _folders.Put(PackageFolder("photos").c_str(), "good", PackageDefinition("good"));
    const std::string strBad = _folders.Put(PackageFolder("photos").c_str(), "rooted", JobDefinition("rooted"));
    const DefinitionScan scan = ScanDefinitions();
    EXPECT_EQ(Identities(scan), Texts{"pkg_nonroot/photos/good"});
    EXPECT_EQ(Lines(scan), Texts{strBad + R"(: field "user": expected "package" in this folder, found "root")"});
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
    EXPECT_EQ(Lines(scan), (Texts{PackageFolder("link") + ": is a symbolic link",
                                  PackageFolder("open") + ": is writable by group or others",
                                  strStray + ": lies in no package's folder"}));
}
