/// The system's store, killed and failed at every system call, its request for a reload included.

#include <gtest/gtest.h>

#include <cerrno>
#include <memory>

#include "crond/configmanager.h"
#include "tests/store/root_fixture.h"
#include "tests/store/torn.h"

using VUKO::VUKOCrond::ConfigManager;

namespace {

class SystemFile : public store::RealStores {
protected:
    store::Writing Saving() {
        if (_store == nullptr) {
            _store = std::make_unique<ConfigManager>("backup", false);
        }
        return {[this](const Json::Value& jsNew) { return _store->Save(jsNew); },
                [this](Json::Value& jsRead) { return _store->Load(jsRead); }, _strSystemFolder + "/backup.conf",
                "<3>configmanager:94 job[backup] save error."};
    }

private:
    std::unique_ptr<ConfigManager> _store;
};

} // namespace

TEST_F(SystemFile, IsTheOldOrTheNewOneWhereverTheWriterIsKilled) {
    store::ExpectWholeWhereverItIsKilled(Saving(), true);
}

TEST_F(SystemFile, IsMissingOrWholeWhereverTheWriterOfTheFirstOneIsKilled) {
    store::ExpectWholeWhereverItIsKilled(Saving(), false);
}

TEST_F(SystemFile, IsTheOldOrTheNewOneWhateverFails) {
    for (const int iErrno : {ENOSPC, EIO, EINTR}) {
        store::ExpectWholeWhateverFails(Saving(), iErrno);
    }
}

TEST_F(SystemFile, IsSyncedBeforeItIsNamedAndItsFolderAfterThat) {
    store::ExpectSyncedInOrder(Saving(), true);
}
