/// What the stores have in common: the same four operations on one file, each with its own message numbers.

#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <type_traits>
#include <vector>

#include "tests/fake/call_record.h"
#include "tests/fake/fake_platform.h"
#include "tests/fake/fake_store_platform.h"
#include "tests/store/stores.h"
#include "tests/support/captured_syslog.h"
#include "tests/unit/definitions.h"
#include "tests/unit/messages.h"

using store::PackageJobs;
using store::RootPackageJobs;
using store::SystemJobs;
using unit::Definition;
using unit::ExpectInBothForms;
using unit::Without;

namespace {

using Calls = std::vector<std::string>;

template <typename T>
class BothStores : public ::testing::Test {
protected:
    BothStores() {
        fake::StorePlatform().setFolders.insert(T::FOLDER);
        _strPath = std::string(T::FOLDER) + "/backup.conf";
    }

    fake::StoredFile& PutFile(const Json::Value& jsContent) {
        fake::StoredFile& file = fake::StorePlatform().mapFiles[_strPath];
        file.jsContent = jsContent;
        return file;
    }

    bool HasFile() const { return fake::StorePlatform().mapFiles.count(_strPath) != 0; }
    const Json::Value& Content() const { return fake::StorePlatform().mapFiles.at(_strPath).jsContent; }

    /// The calls of a handle's operation, without those of its construction.
    template <typename Operation>
    Calls CallsOf(Operation operation) {
        const support::CapturedSyslog log;
        typename T::Store handle = T::Open();
        fake::ClearCalls();
        operation(handle);
        return fake::Calls();
    }

    /// Expects one message of the store in both forms, the result false, and these calls from an operation.
    template <typename Operation>
    void ExpectRefused(int iNumber, const std::string& strText, const Calls& vecCalls, Operation operation) {
        typename T::Store handle = T::Open();
        const auto refuse = [&] {
            fake::ClearCalls();
            EXPECT_FALSE(operation(handle));
            EXPECT_EQ(fake::Calls(), vecCalls);
        };
        ExpectInBothForms(refuse, {{iNumber, strText}}, T::SOURCE);
    }

    /// The calls, followed by those of a reload where the store asks for one.
    static Calls AndReload(Calls vecCalls) {
        if (T::RELOADS) {
            vecCalls.insert(vecCalls.end(), {"bootstep", "reload vukocrond"});
        }
        return vecCalls;
    }

    const fake::ScopedPlatform _platform;
    const fake::ScopedStorePlatform _storePlatform;
    std::string _strPath;
};

using Stores = ::testing::Types<SystemJobs, RootPackageJobs, PackageJobs>;

class StoreName {
public:
    template <typename T>
    static std::string GetName(int) {
        return std::is_same_v<T, SystemJobs>        ? "System"
               : std::is_same_v<T, RootPackageJobs> ? "RootPackage"
                                                    : "Package";
    }
};

TYPED_TEST_SUITE(BothStores, Stores, StoreName);

TYPED_TEST(BothStores, AreHandlesThatAreNotCopied) {
    EXPECT_FALSE(std::is_copy_constructible_v<typename TypeParam::Store>);
    EXPECT_FALSE(std::is_copy_assignable_v<typename TypeParam::Store>);
}

TYPED_TEST(BothStores, ConstructionWritesAndReadsNoFile) {
    TypeParam::Open();
    for (const std::string& strCall : fake::Calls()) {
        EXPECT_TRUE(strCall == "geteuid" || strCall == std::string("isdir ") + TypeParam::FOLDER) << strCall;
    }
}

TYPED_TEST(BothStores, AFileExistsWhenThePlatformSaysOneAndNothingElse) {
    for (const int iResult : {-1, 0, 1, 2}) {
        fake::StorePlatform().iFileExistResult = iResult;
        const Calls vecCalls = this->CallsOf([&](auto& handle) { EXPECT_EQ(handle.Exist(), iResult == 1) << iResult; });
        EXPECT_EQ(vecCalls, Calls{"exist " + this->_strPath});
    }
}

TYPED_TEST(BothStores, SavingWritesDurablyAndThenAsksForAReload) {
    const Calls vecCalls = this->CallsOf([](auto& handle) { EXPECT_TRUE(handle.Save(Definition())); });
    EXPECT_EQ(vecCalls, this->AndReload({"toFile " + this->_strPath + " durable=1"}));
}

TYPED_TEST(BothStores, SavingWritesTheDefinitionAsItIsWithoutDefaults) {
    Json::Value jsDefinition = Definition();
    jsDefinition["note"]["kept"] = 1.5;
    const Json::Value jsBefore = jsDefinition;
    this->CallsOf([&](auto& handle) { EXPECT_TRUE(handle.Save(jsDefinition)); });
    EXPECT_EQ(this->Content(), jsBefore);
    EXPECT_EQ(jsDefinition, jsBefore);
}

TYPED_TEST(BothStores, SavingTheSameContentAgainDoesAllOfItAgain) {
    const Calls vecCalls = this->CallsOf([](auto& handle) {
        EXPECT_TRUE(handle.Save(Definition()));
        EXPECT_TRUE(handle.Save(Definition()));
    });
    const Calls vecOnce = this->AndReload({"toFile " + this->_strPath + " durable=1"});
    Calls vecTwice = vecOnce;
    vecTwice.insert(vecTwice.end(), vecOnce.begin(), vecOnce.end());
    EXPECT_EQ(vecCalls, vecTwice);
}

TYPED_TEST(BothStores, SavingTakesAnArrayOfDefinitionsAlsoAnEmptyOne) {
    Json::Value jsJobs(Json::arrayValue);
    this->CallsOf([&](auto& handle) { EXPECT_TRUE(handle.Save(jsJobs)); });
    EXPECT_EQ(this->Content(), jsJobs);
    jsJobs.append(Definition());
    jsJobs.append(Definition());
    this->CallsOf([&](auto& handle) { EXPECT_TRUE(handle.Save(jsJobs)); });
    EXPECT_EQ(this->Content(), jsJobs);
}

TYPED_TEST(BothStores, SavingRefusesWhatIsNoDefinition) {
    this->ExpectRefused(TypeParam::FORMAT_ERROR, "job[backup] format error.", {},
                        [](auto& handle) { return handle.Save(Json::Value("text")); });
    EXPECT_FALSE(this->HasFile());
}

TYPED_TEST(BothStores, SavingValidatesFirstAndLeavesEverythingAloneWhenThatFails) {
    const Json::Value jsOld = Definition();
    this->PutFile(jsOld);
    support::CapturedSyslog log;
    typename TypeParam::Store handle = TypeParam::Open();
    fake::ClearCalls();
    errno = 0;
    EXPECT_FALSE(handle.Save(Without("name")));
    EXPECT_EQ(log.Take(),
              (std::vector<std::string>{"<3>cronjob:182 Failed [!jsConf.isMember(\"name\") || "
                                        "!jsConf[\"name\"].isString()], err=Success",
                                        "<3>cronjob:162 crontab format error",
                                        "<3>" + std::string(TypeParam::SOURCE) + ":" +
                                            std::to_string(TypeParam::FORMAT_ERROR) + " job[backup] format error."}));
    EXPECT_EQ(fake::Calls(), Calls{});
    EXPECT_EQ(this->Content(), jsOld);
}

TYPED_TEST(BothStores, SavingReportsAWriteThatFailsAndAsksForNoReload) {
    this->PutFile(Definition());
    fake::StorePlatform().mapFailing = {{"toFile", 0}};
    this->ExpectRefused(TypeParam::SAVE_ERROR, "job[backup] save error.", {"toFile " + this->_strPath + " durable=1"},
                        [](auto& handle) { return handle.Save(Definition()); });
}

TYPED_TEST(BothStores, MessagesGiveTheReasonThatTheFailedCallLeftInErrno) {
    fake::StorePlatform().mapFailing = {{"toFile", ENOSPC}};
    support::CapturedSyslog log;
    typename TypeParam::Store handle = TypeParam::Open();
    errno = 0;
    EXPECT_FALSE(handle.Save(Definition()));
    EXPECT_EQ(log.Take(), (std::vector<std::string>{"<3>" + std::string(TypeParam::SOURCE) + ":" +
                                                    std::to_string(TypeParam::SAVE_ERROR) +
                                                    " job[backup] save error. (No space left on device)"}));
}

TYPED_TEST(BothStores, LoadingGivesTheContentAndAsksForNoReload) {
    Json::Value jsLoaded;
    this->PutFile(Definition());
    const Calls vecCalls = this->CallsOf([&](auto& handle) { EXPECT_TRUE(handle.Load(jsLoaded)); });
    EXPECT_EQ(jsLoaded, Definition());
    EXPECT_EQ(vecCalls, (Calls{"exist " + this->_strPath, "fromFile " + this->_strPath}));
}

TYPED_TEST(BothStores, LoadingDoesNotValidate) {
    Json::Value jsLoaded;
    this->PutFile("no definition");
    this->CallsOf([&](auto& handle) { EXPECT_TRUE(handle.Load(jsLoaded)); });
    EXPECT_EQ(jsLoaded, "no definition");
}

TYPED_TEST(BothStores, LoadingAMissingFileReadsNothing) {
    Json::Value jsLoaded = "before";
    this->ExpectRefused(TypeParam::NOT_EXIST, "job[backup] not exist.", {"exist " + this->_strPath},
                        [&](auto& handle) { return handle.Load(jsLoaded); });
    EXPECT_EQ(jsLoaded, "before");
}

TYPED_TEST(BothStores, LoadingReportsAFileThatCannotBeRead) {
    Json::Value jsLoaded = "before";
    this->PutFile(Definition());
    fake::StorePlatform().mapFailing = {{"fromFile", 0}};
    this->ExpectRefused(TypeParam::LOAD_ERROR, "job[backup] load error.",
                        {"exist " + this->_strPath, "fromFile " + this->_strPath},
                        [&](auto& handle) { return handle.Load(jsLoaded); });
    EXPECT_EQ(jsLoaded, "before");
}

TYPED_TEST(BothStores, RemovingDeletesTheFileAndThenAsksForAReload) {
    this->PutFile(Definition());
    const Calls vecCalls = this->CallsOf([](auto& handle) { EXPECT_TRUE(handle.Remove()); });
    EXPECT_EQ(vecCalls, this->AndReload({"exist " + this->_strPath, "unlink " + this->_strPath}));
    EXPECT_FALSE(this->HasFile());
}

TYPED_TEST(BothStores, RemovingAMissingFileSucceedsSilentlyAndDoesNothing) {
    const Calls vecCalls = this->CallsOf([](auto& handle) { EXPECT_TRUE(handle.Remove()); });
    EXPECT_EQ(vecCalls, Calls{"exist " + this->_strPath});
}

TYPED_TEST(BothStores, RemovingReportsAFileThatStaysAndAsksForNoReload) {
    this->PutFile(Definition());
    fake::StorePlatform().mapFailing = {{"unlink", 0}};
    this->ExpectRefused(TypeParam::UNLINK_FAILED, "job[backup] unlink failed.",
                        {"exist " + this->_strPath, "unlink " + this->_strPath},
                        [](auto& handle) { return handle.Remove(); });
    EXPECT_TRUE(this->HasFile());
}

} // namespace
