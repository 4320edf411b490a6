#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <limits>
#include <thread>

#include "platform/vukojson.h"
#include "tests/platform/errors.h"
#include "tests/platform/nobody.h"
#include "tests/support/forked.h"
#include "tests/support/temp_dir.h"

namespace {

using namespace std::string_literals;
using support::ModeOf;
using support::ReadFile;
using support::TempDir;
using support::WithMarkedErrno;

Json::Value Document() {
    Json::Value jsDocument(Json::objectValue);
    jsDocument["name"] = "b\xc3\xa4"
                         "ckup";
    jsDocument["list"].append(1);
    jsDocument["list"].append(Json::Value());
    return jsDocument;
}

const std::string strDocument = "{\n  \"list\" : [ 1, null ],\n  \"name\" : \"b\xc3\xa4"
                                "ckup\"\n}\n";

class JsonWrite : public testing::Test {
protected:
    void ExpectWritten(const std::string& strPath, bool bDurable = true) {
        int iErrno = 0;
        EXPECT_TRUE(WithMarkedErrno([&] { return VUKO::JSON::toFile(Document(), strPath, bDurable); }, iErrno))
            << strerror(iErrno);
        EXPECT_EQ(iErrno, support::ERRNO_MARK);
        Json::Value jsRead;
        EXPECT_TRUE(VUKO::JSON::fromFile(jsRead, strPath));
        EXPECT_EQ(jsRead, Document());
    }

    void ExpectRefused(const Json::Value& jsValue, const std::string& strPath, int iExpected) {
        const auto setBefore = Entries();
        int iErrno = 0;
        EXPECT_FALSE(WithMarkedErrno([&] { return VUKO::JSON::toFile(jsValue, strPath, true); }, iErrno)) << strPath;
        support::ExpectFailedWith(iErrno, iExpected);
        EXPECT_EQ(Entries(), setBefore) << "something is left in the folder";
    }

    std::vector<std::string> Entries() const {
        std::vector<std::string> vecNames;
        for (const auto& entry : std::filesystem::directory_iterator(_dir.Path())) {
            vecNames.push_back(entry.path().filename().string());
        }
        std::sort(vecNames.begin(), vecNames.end());
        return vecNames;
    }

    TempDir _dir;
};

TEST_F(JsonWrite, WritesIndentedTextWithALineEndAtItsEnd) {
    ExpectWritten(_dir / "new.conf");
    EXPECT_EQ(ReadFile(_dir / "new.conf"), strDocument);
    EXPECT_EQ(Entries(), std::vector<std::string>{"new.conf"});
}

TEST_F(JsonWrite, GivesANewFileToItsOwnerAloneWhateverTheUmask) {
    for (const mode_t uMask : {0000U, 0022U, 0777U}) {
        const TempDir dir;
        chmod(dir.Path().c_str(), 0777);
        const support::ChildEnd end = support::RunForked([&](int) {
            support::BecomeNobody();
            umask(uMask);
            return VUKO::JSON::toFile(1, dir / "new", false) && ModeOf(dir / "new") == 0600 ? 0 : 1;
        });
        EXPECT_EQ(end.iExitStatus, 0) << std::oct << uMask;
    }
}

TEST_F(JsonWrite, HandsTheModeOfTheOldFileOn) {
    for (const mode_t mode : {0640U, 0604U, 0777U, 0400U}) {
        support::WriteFile(_dir / "old", "x");
        ASSERT_EQ(chmod((_dir / "old").c_str(), mode), 0);
        ExpectWritten(_dir / "old");
        EXPECT_EQ(ModeOf(_dir / "old"), static_cast<int>(mode));
    }
}

TEST_F(JsonWrite, PutsANewFileInTheOldOnesPlace) {
    support::WriteFile(_dir / "old", "old text");
    ASSERT_EQ(link((_dir / "old").c_str(), (_dir / "second name").c_str()), 0);
    ExpectWritten(_dir / "old");
    EXPECT_EQ(ReadFile(_dir / "second name"), "old text"); // not written into
}

TEST_F(JsonWrite, ReplacesALinkAndNotWhatItNames) {
    support::WriteFile(_dir / "target", "kept");
    ASSERT_EQ(chmod((_dir / "target").c_str(), 0666), 0);
    ASSERT_EQ(symlink("target", (_dir / "link").c_str()), 0);
    ASSERT_EQ(symlink("missing", (_dir / "dangling").c_str()), 0);
    for (const char* const szName : {"link", "dangling"}) {
        ExpectWritten(_dir / szName);
        EXPECT_FALSE(std::filesystem::is_symlink(_dir / szName));
        EXPECT_EQ(ModeOf(_dir / szName), 0600);
    }
    EXPECT_EQ(ReadFile(_dir / "target"), "kept");
    EXPECT_EQ(Entries(), (std::vector<std::string>{"dangling", "link", "target"}));
}

TEST_F(JsonWrite, WritesToARelativePath) {
    const support::ChildEnd end = support::RunForked([&](int) {
        return chdir(_dir.Path().c_str()) == 0 && VUKO::JSON::toFile(Document(), "here", true) &&
                       VUKO::JSON::toFile(Document(), "./there", false)
                   ? 0
                   : 1;
    });
    EXPECT_EQ(end.iExitStatus, 0);
    EXPECT_EQ(Entries(), (std::vector<std::string>{"here", "there"}));
}

TEST_F(JsonWrite, TakesTheLongestNameThereIs) {
    ExpectWritten(_dir / std::string(250, 'n').append(".conf"));
    ExpectRefused(Document(), _dir / std::string(251, 'n').append(".conf"), ENAMETOOLONG);
}

TEST_F(JsonWrite, RefusesPlacesWhereNoFileCanBe) {
    ASSERT_EQ(mkdir((_dir / "folder").c_str(), 0700), 0);
    ASSERT_EQ(mkfifo((_dir / "pipe").c_str(), 0600), 0);
    support::WriteFile(_dir / "file", "kept");
    ExpectRefused(Document(), _dir / "folder", EISDIR);
    ExpectRefused(Document(), _dir / "folder/", EISDIR);
    ExpectRefused(Document(), _dir / "folder/.", EISDIR);
    ExpectRefused(Document(), _dir / "folder/..", EISDIR);
    ExpectRefused(Document(), _dir / "pipe", EINVAL);
    ExpectRefused(Document(), _dir / "missing/file", ENOENT);
    ExpectRefused(Document(), _dir / "file/under", ENOTDIR);
    ExpectRefused(Document(), "", ENOENT);
    ExpectRefused(Document(), (_dir / "a") + "\0b"s, EINVAL);
    EXPECT_EQ(ReadFile(_dir / "file"), "kept");
    EXPECT_TRUE(std::filesystem::is_fifo(_dir / "pipe"));
}

TEST_F(JsonWrite, RefusesAFolderWithoutTheRightToWrite) {
    chmod(_dir.Path().c_str(), 0555);
    const support::ChildEnd end = support::RunForked([&](int) {
        support::BecomeNobody();
        return !VUKO::JSON::toFile(1, _dir / "new") && errno == EACCES && VLIBCErrGet() == EACCES ? 0 : 1;
    });
    EXPECT_EQ(end.iExitStatus, 0);
    chmod(_dir.Path().c_str(), 0700);
    EXPECT_TRUE(Entries().empty());
}

TEST_F(JsonWrite, WritesIntoAFolderThatCannotBeRead) {
    chmod(_dir.Path().c_str(), 0333);
    const support::ChildEnd end = support::RunForked([&](int) {
        support::BecomeNobody();
        if (!VUKO::JSON::toFile(1, _dir / "new", false)) {
            return 1;
        }
        return !VUKO::JSON::toFile(2, _dir / "new", true) && errno == EACCES ? 0 : 2; // a sync takes reading
    });
    EXPECT_EQ(end.iExitStatus, 0);
    chmod(_dir.Path().c_str(), 0700);
    EXPECT_EQ(ReadFile(_dir / "new"), "1\n");
    EXPECT_EQ(Entries(), std::vector<std::string>{"new"});
}

Json::Value Deep(int iDepth) {
    Json::Value jsDeep(1);
    for (int i = 0; i < iDepth; ++i) {
        Json::Value jsOuter(Json::arrayValue);
        jsOuter.append(jsDeep);
        jsDeep.swap(jsOuter);
    }
    return jsDeep;
}

TEST_F(JsonWrite, RefusesWhatCouldNotBeReadBack) {
    support::WriteFile(_dir / "file", "kept");
    ExpectRefused("\xff", _dir / "file", EBADMSG);
    ExpectRefused("\xed\xa0\x80", _dir / "file", EBADMSG);
    ExpectRefused(std::numeric_limits<double>::infinity(), _dir / "file", EBADMSG);
    ExpectRefused(Deep(129), _dir / "file", EBADMSG);
    ExpectRefused(std::string(std::size_t{4} << 20, 'x'), _dir / "file", EFBIG);
    EXPECT_EQ(ReadFile(_dir / "file"), "kept");
    EXPECT_TRUE(VUKO::JSON::toFile(Deep(128), _dir / "file"));
}

TEST_F(JsonWrite, LeavesCommentsOut) {
    Json::Value jsCommented = Document();
    jsCommented["list"].setComment("// first"s, Json::commentBefore);
    jsCommented.setComment("/* last */"s, Json::commentAfter);
    EXPECT_TRUE(VUKO::JSON::toFile(jsCommented, _dir / "file"));
    EXPECT_EQ(ReadFile(_dir / "file"), strDocument);
    EXPECT_EQ(VUKO::JSON::toString(jsCommented), VUKO::JSON::toString(Document()));
}

TEST_F(JsonWrite, BringsEveryNumberBack) {
    Json::Value jsNumbers(Json::arrayValue);
    for (const double dNumber : {0.1, 1.0 / 3, 1e300, -2.5e-300, 5e-324, 1.7976931348623157e308, 1.0}) {
        jsNumbers.append(dNumber);
    }
    jsNumbers.append(Json::Value::minInt64);
    jsNumbers.append(Json::Value::maxUInt64);
    Json::Value jsRead;
    ASSERT_TRUE(VUKO::JSON::toFile(jsNumbers, _dir / "file"));
    ASSERT_TRUE(VUKO::JSON::fromFile(jsRead, _dir / "file"));
    EXPECT_EQ(jsRead, jsNumbers);
}

TEST_F(JsonWrite, ShowsReadersTheOldFileOrTheNewOne) {
    Json::Value jsShort(Json::arrayValue);
    Json::Value jsLong(Json::arrayValue);
    for (int i = 0; i < 20000; ++i) {
        jsLong.append(i);
    }
    ASSERT_TRUE(VUKO::JSON::toFile(jsShort, _dir / "file"));
    std::atomic<bool> bStop = false;
    std::thread writer([&] {
        for (int iRound = 0; iRound < 40; ++iRound) {
            EXPECT_TRUE(VUKO::JSON::toFile(iRound % 2 == 0 ? jsLong : jsShort, _dir / "file"));
        }
        bStop = true;
    });
    while (!bStop) {
        Json::Value jsRead;
        EXPECT_TRUE(VUKO::JSON::fromFile(jsRead, _dir / "file"));
        EXPECT_TRUE(jsRead.size() == 0 || jsRead.size() == 20000) << jsRead.size();
    }
    writer.join();
}

TEST_F(JsonWrite, LeavesNoDescriptorOpen) {
    const std::vector<int> vecBefore = support::OpenDescriptors();
    ExpectWritten(_dir / "file", true);
    ExpectWritten(_dir / "file", false);
    ExpectRefused(1, _dir.Path(), EISDIR);
    EXPECT_EQ(support::OpenDescriptors(), vecBefore);
}

TEST(JsonText, StandsOnOneLine) {
    EXPECT_EQ(VUKO::JSON::toString(Document()), "{\"list\":[1,null],\"name\":\"b\xc3\xa4"
                                                "ckup\"}");
    EXPECT_EQ(VUKO::JSON::toString(Json::Value()), "null");
    EXPECT_EQ(VUKO::JSON::toString("a\nb"), "\"a\\nb\"");
    EXPECT_EQ(VUKO::JSON::toString(Json::objectValue), "{}");
}

TEST(JsonText, IsValidEvenForTextsThatAreNoUtf8) {
    EXPECT_EQ(VUKO::JSON::toString("a\xff\xc3\xa4"), "\"a\\ufffd\\u00e4\"");
}

TEST(JsonText, LeavesErrnoAlone) {
    int iErrno = 0;
    support::WithMarkedErrno([] { return VUKO::JSON::toString(1.5); }, iErrno);
    EXPECT_EQ(iErrno, support::ERRNO_MARK);
}

} // namespace
