/// The stores on file systems that are full, read-only or not there.

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "crond/configmanager.h"
#include "crond/pkgconfigmanager.h"
#include "tests/platform/private_mounts.h"
#include "tests/store/root_fixture.h"
#include "tests/support/captured_syslog.h"
#include "tests/support/scoped_umask.h"
#include "tests/unit/definitions.h"

using unit::Definition;
using unit::With;
using VUKO::VUKOCrond::ConfigManager;
using VUKO::VUKOCrond::PkgConfigManager;

namespace {

using Texts = std::vector<std::string>;
namespace fs = std::filesystem;

class FailingDisk : public store::RealStores {
protected:
    void SetUp() override {
        store::RealStores::SetUp();
        if (!IsSkipped()) {
            _mounts = std::make_unique<support::PrivateMounts>();
        }
    }

    void PutOldFiles() {
        for (const std::string& strFile : Files()) {
            support::WriteFile(strFile, OLD);
        }
    }

    Texts Files() const { return {_strSystemFolder + "/backup.conf", _strPackageFolder + "/pkgA/backup.conf"}; }

    /// Expects that both stores refuse to save, for this reason, and that nothing has changed.
    void ExpectSaveErrors(const Json::Value& jsNew, const std::string& strReason) {
        const std::vector<std::function<bool()>> vecSaves = {
            [&] { return ConfigManager("backup", false).Save(jsNew); },
            [&] { return PkgConfigManager("pkgA", "backup").Save(jsNew); }};
        const Texts vecMessages = {"<3>configmanager:94 job[backup] save error. (" + strReason + ")",
                                   "<3>pkgconfigmanager:72 job[backup] save error. (" + strReason + ")"};
        for (std::size_t i = 0; i < vecSaves.size(); ++i) {
            const Texts vecBefore = Entries(Files()[i]);
            support::CapturedSyslog log;
            errno = 0;
            EXPECT_FALSE(vecSaves[i]());
            EXPECT_EQ(log.Take(), Texts{vecMessages[i]});
            EXPECT_EQ(support::ReadFile(Files()[i]), OLD);
            EXPECT_EQ(Entries(Files()[i]), vecBefore);
        }
    }

    void ExpectSaved(const Json::Value& jsNew) {
        PkgConfigManager store("pkgA", "backup");
        Json::Value jsRead;
        EXPECT_TRUE(store.Save(jsNew));
        EXPECT_TRUE(store.Load(jsRead));
        EXPECT_EQ(jsRead, jsNew);
    }

    static Texts Entries(const std::string& strFile) {
        Texts vecNames;
        for (const fs::directory_entry& entry : fs::directory_iterator(fs::path(strFile).parent_path())) {
            vecNames.push_back(entry.path().filename().string());
        }
        std::sort(vecNames.begin(), vecNames.end());
        return vecNames;
    }

    static constexpr const char* OLD = "{\"old\":true}\n";
    std::unique_ptr<support::PrivateMounts> _mounts;
};

/// Writes until the file system is full.
void FillUp(const std::string& strFile) {
    std::ofstream fs(strFile, std::ios::binary);
    const std::string strBlock(4096, 'x');
    while (fs << strBlock << std::flush) {
    }
}

} // namespace

TEST_F(FailingDisk, WithoutSpaceIsASaveErrorAndTheOldFileStays) {
    for (const std::string& strFolder : {_strSystemFolder, _strPackageFolder + "/pkgA"}) {
        _mounts->MountMemory(strFolder, "size=64k");
    }
    PutOldFiles();
    for (const std::string& strFile : Files()) {
        FillUp(fs::path(strFile).parent_path() / "ballast");
    }
    ExpectSaveErrors(Definition(), "No space left on device");
    fs::remove(_strPackageFolder + "/pkgA/ballast");
    ExpectSaved(Definition());
}

TEST_F(FailingDisk, WithSpaceForAPartOnlyIsASaveErrorAndTheOldFileStays) {
    for (const std::string& strFolder : {_strSystemFolder, _strPackageFolder + "/pkgA"}) {
        _mounts->MountMemory(strFolder, "size=64k");
    }
    PutOldFiles();
    ExpectSaveErrors(With("note", std::string(100000, 'x')), "No space left on device");
    ExpectSaved(With("note", std::string(40000, 'x')));
}

TEST_F(FailingDisk, WithoutInodesIsASaveErrorAndTheOldFileStays) {
    for (const std::string& strFolder : {_strSystemFolder, _strPackageFolder + "/pkgA"}) {
        _mounts->MountMemory(strFolder, "nr_inodes=3"); // the folder, the old file, and one more
    }
    PutOldFiles();
    for (const std::string& strFile : Files()) {
        support::WriteFile(fs::path(strFile).parent_path() / "ballast", "");
    }
    ExpectSaveErrors(Definition(), "No space left on device");
    fs::remove(_strPackageFolder + "/pkgA/ballast");
    ExpectSaved(Definition());
}

TEST_F(FailingDisk, ThatIsReadOnlyIsASaveErrorAndTheOldFileStays) {
    PutOldFiles();
    _mounts->MakeReadOnly(_strSystemFolder);
    _mounts->MakeReadOnly(_strPackageFolder);
    ExpectSaveErrors(Definition(), "Read-only file system");
}

TEST_F(FailingDisk, ThatIsReadOnlyKeepsAFileFromBeingRemoved) {
    PutOldFiles();
    _mounts->MakeReadOnly(_strSystemFolder);
    _mounts->MakeReadOnly(_strPackageFolder);
    support::CapturedSyslog log;
    errno = 0;
    EXPECT_FALSE(ConfigManager("backup", false).Remove());
    errno = 0;
    EXPECT_FALSE(PkgConfigManager("pkgA", "backup").Remove());
    EXPECT_EQ(log.Take(), (Texts{"<3>configmanager:131 job[backup] unlink failed. (Read-only file system)",
                                 "<3>pkgconfigmanager:107 job[backup] unlink failed. (Read-only file system)"}));
    for (const std::string& strFile : Files()) {
        EXPECT_EQ(support::ReadFile(strFile), OLD);
    }
}

TEST_F(FailingDisk, WithoutTheFolderIsASaveErrorAndTheFolderIsNotMade) {
    ConfigManager system("backup", false);
    fs::remove_all(_strSystemFolder);
    fs::remove_all(_strPackageFolder);
    support::CapturedSyslog log;
    errno = 0;
    EXPECT_FALSE(system.Save(Definition()));
    errno = 0;
    EXPECT_FALSE(PkgConfigManager("pkgA", "backup").Save(Definition()));
    EXPECT_EQ(log.Take(), (Texts{"<3>configmanager:94 job[backup] save error. (No such file or directory)",
                                 "<3>pkgconfigmanager:49 config folder not exist: " + _strPackageFolder +
                                     "/pkgA (No such file or directory)",
                                 "<3>pkgconfigmanager:72 job[backup] save error. (No such file or directory)"}));
    EXPECT_FALSE(support::Exists(_strSystemFolder));
    EXPECT_FALSE(support::Exists(_strPackageFolder));
}

TEST_F(FailingDisk, ThatOnlyLacksTheFolderGetsItForRootAndItsGroupWhateverTheUmask) {
    const support::ScopedUmask umask(0777);
    fs::remove_all(_strSystemFolder);
    const std::string strFolder = _strSystemFolder + "/a/b";
    const support::ScopedValue<const char*> folder(VUKO::VUKOCrond::SZF_CRON_FOLDER_BUILT_IN_DYN, strFolder.c_str());
    const support::CapturedSyslog log;
    const ConfigManager store("backup", false);
    struct stat stFolder = {};
    for (const std::string& strMade : {_strSystemFolder, _strSystemFolder + "/a", strFolder}) {
        ASSERT_EQ(stat(strMade.c_str(), &stFolder), 0);
        EXPECT_EQ(stFolder.st_mode, S_IFDIR | 0750U);
        EXPECT_EQ(stFolder.st_uid, 0U);
        EXPECT_EQ(stFolder.st_gid, 0U);
    }
}

TEST_F(FailingDisk, ThatIsReadOnlyKeepsTheFolderFromBeingMade) {
    fs::remove_all(_strSystemFolder);
    _mounts->MakeReadOnly(_dir.Path());
    support::CapturedSyslog log;
    errno = 0;
    const ConfigManager store("backup", false);
    EXPECT_EQ(log.Take(), Texts{"<3>configmanager:70 mkdir (" + _strSystemFolder + ") failed (Read-only file system)"});
}

TEST_F(FailingDisk, WithAFileInThePlaceOfTheFolderIsReported) {
    fs::remove_all(_strSystemFolder);
    support::WriteFile(_strSystemFolder, "");
    support::CapturedSyslog log;
    errno = 0;
    ConfigManager store("backup", false);
    EXPECT_FALSE(store.Save(Definition()));
    EXPECT_EQ(log.Take(), (Texts{"<3>configmanager:70 mkdir (" + _strSystemFolder + ") failed (Not a directory)",
                                 "<3>configmanager:94 job[backup] save error. (Not a directory)"}));
}
