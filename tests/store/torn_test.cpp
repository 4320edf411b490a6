/// Files that cannot be torn, whoever writes them: a package's store and a schedule template. (That of the system's
/// store needs root.)

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <memory>
#include <string>

#include "crond/cronjob.h"
#include "crond/pkgconfigmanager.h"
#include "tests/store/torn.h"
#include "tests/support/captured_syslog.h"
#include "tests/support/forked.h"
#include "tests/support/scoped_value.h"
#include "tests/support/temp_dir.h"
#include "tests/unit/definitions.h"

using VUKO::VUKOCrond::PkgConfigManager;
using VUKO::VUKOCrond::ScheduleTemplate;

namespace {

class PackageFile : public ::testing::Test {
protected:
    PackageFile() : _folder(VUKO::VUKOCrond::SZF_CRON_FOLDER_PKG_NONROOT, _dir.Path().c_str()) {
        mkdir((_dir / "pkgA").c_str(), 0750);
        _store = std::make_unique<PkgConfigManager>("pkgA", "backup");
    }

    store::Writing Saving() const {
        return {[this](const Json::Value& jsNew) { return _store->Save(jsNew); },
                [this](Json::Value& jsRead) { return _store->Load(jsRead); }, _dir / "pkgA/backup.conf",
                "<3>pkgconfigmanager:72 job[backup] save error."};
    }

    const support::TempDir _dir;
    const support::ScopedValue<const char*> _folder;
    std::unique_ptr<PkgConfigManager> _store;
};

class TemplateFile : public ::testing::Test {
protected:
    /// The document lies in a template as a member that it does not know.
    store::Writing Writing() {
        return {[this](const Json::Value& jsNew) {
                    _template._jsJob["unknown"] = jsNew;
                    return _template.toFile(_dir / "template");
                },
                [this](Json::Value& jsRead) {
                    ScheduleTemplate read;
                    const bool bRead = read.fromFile(_dir / "template");
                    jsRead = read._jsJob["unknown"];
                    return bRead;
                },
                _dir / "template", ""};
    }

    const support::TempDir _dir;
    ScheduleTemplate _template;
};

} // namespace

TEST_F(PackageFile, IsTheOldOrTheNewOneWhereverTheWriterIsKilled) {
    store::ExpectWholeWhereverItIsKilled(Saving(), true);
}

TEST_F(PackageFile, IsMissingOrWholeWhereverTheWriterOfTheFirstOneIsKilled) {
    store::ExpectWholeWhereverItIsKilled(Saving(), false);
}

TEST_F(PackageFile, IsTheOldOrTheNewOneWhateverFails) {
    for (const int iErrno : {ENOSPC, EIO, EINTR}) {
        store::ExpectWholeWhateverFails(Saving(), iErrno);
    }
}

TEST_F(PackageFile, IsSyncedBeforeItIsNamedAndItsFolderAfterThat) {
    store::ExpectSyncedInOrder(Saving(), true);
}

TEST_F(PackageFile, IsNeverSeenTornByAReaderWhileItIsRewritten) {
    const Json::Value jsShort = unit::Definition();
    const Json::Value jsLong = unit::With("note", std::string(300000, 'x'));
    PkgConfigManager& store = *_store;
    ASSERT_TRUE(store.Save(jsShort));
    const support::ChildEnd end = support::RunForked([&](int iFdOut) {
        const pid_t pidWriter = fork();
        if (pidWriter == 0) {
            bool bSaved = true;
            for (int i = 0; i < 30; ++i) {
                bSaved = store.Save(i % 2 == 0 ? jsLong : jsShort) && bSaved;
            }
            _exit(bSaved ? 0 : 1);
        }
        int iReads = 0;
        int iWriterStatus = 0;
        Json::Value jsRead;
        while (waitpid(pidWriter, &iWriterStatus, WNOHANG) == 0) {
            if (!store.Load(jsRead) || (jsRead != jsShort && jsRead != jsLong)) {
                dprintf(iFdOut, "read %d was torn", iReads);
                return 1;
            }
            ++iReads;
        }
        return iWriterStatus == 0 && iReads > 10 ? 0 : 2;
    });
    EXPECT_EQ(end.iExitStatus, 0) << end.strOutput;
}

TEST_F(TemplateFile, IsTheOldOrTheNewOneWhereverTheWriterIsKilled) {
    store::ExpectWholeWhereverItIsKilled(Writing(), true);
}

TEST_F(TemplateFile, IsTheOldOrTheNewOneWhateverFails) {
    for (const int iErrno : {ENOSPC, EIO}) {
        store::ExpectWholeWhateverFails(Writing(), iErrno);
    }
}

TEST_F(TemplateFile, IsSyncedBeforeItIsNamed) {
    store::ExpectSyncedInOrder(Writing(), false);
}
