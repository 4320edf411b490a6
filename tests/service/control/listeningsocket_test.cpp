#include "service/control/listeningsocket.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <memory>
#include <system_error>

#include "tests/service/control/control_fixture.h"
#include "tests/support/scoped_umask.h"
#include "tests/support/temp_dir.h"

using VUKO::VUKOCrond::Service::ListeningSocket;

namespace {

int EntriesOf(const support::TempDir& dir) {
    int iCount = 0;
    for (const auto& entry : std::filesystem::directory_iterator(dir.Path())) {
        iCount += entry.path().empty() ? 0 : 1;
    }
    return iCount;
}

} // namespace

TEST(ListeningSocketTest, IsOpenToEverybodyWhateverTheUmask) {
    for (const mode_t uUmask : {0U, 022U, 0777U}) {
        const support::ScopedUmask umask(uUmask);
        const support::TempDir dir;
        const ListeningSocket socket(dir / "s");
        EXPECT_EQ(support::ModeOf(dir / "s"), 0666);
        EXPECT_EQ(EntriesOf(dir), 1);
    }
}

TEST(ListeningSocketTest, TakesThePlaceOfAFormerOne) {
    const support::TempDir dir;
    const auto former = std::make_unique<ListeningSocket>(dir / "s");
    const ListeningSocket socket(dir / "s");
    EXPECT_NO_THROW(control_test::Client(dir / "s"));
    EXPECT_EQ(EntriesOf(dir), 1);
}

TEST(ListeningSocketTest, RemovesItsOwnNameAlone) {
    const support::TempDir dir;
    auto former = std::make_unique<ListeningSocket>(dir / "s");
    auto socket = std::make_unique<ListeningSocket>(dir / "s");
    former.reset();
    EXPECT_TRUE(support::Exists(dir / "s"));
    socket.reset();
    EXPECT_FALSE(support::Exists(dir / "s"));
}

TEST(ListeningSocketTest, LeavesAnythingElseAtItsPathAlone) {
    const support::TempDir dir;
    support::WriteFile(dir / "file", "text");
    ASSERT_EQ(mkfifo((dir / "pipe").c_str(), 0600), 0);
    std::filesystem::create_directory(dir / "folder");
    std::filesystem::create_symlink("nowhere", dir / "link");
    for (const char* szName : {"file", "pipe", "folder", "link"}) {
        EXPECT_THROW(ListeningSocket(dir / szName), std::system_error) << szName;
    }
    EXPECT_EQ(support::ReadFile(dir / "file"), "text");
    EXPECT_EQ(EntriesOf(dir), 4);
}

TEST(ListeningSocketTest, TellsWhyItCannotBeMade) {
    const support::TempDir dir;
    try {
        const ListeningSocket socket(dir / std::string(200, 'x'));
        FAIL() << "no name of that length fits";
    } catch (const std::system_error& error) {
        EXPECT_EQ(error.code().value(), ENAMETOOLONG);
    }
    EXPECT_THROW(ListeningSocket(dir / "missing/s"), std::system_error);
}
