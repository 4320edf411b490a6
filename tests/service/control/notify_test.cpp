#include "service/notify.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdlib>
#include <regex>
#include <string>

#include "service/uniquefd.h"
#include "tests/support/temp_dir.h"

using namespace VUKO::VUKOCrond::Service;

namespace {

/// The service manager's end.
class NotifyTest : public testing::Test {
protected:
    NotifyTest() : _fd(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
        const std::string strPath = _dir / "notify";
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        strPath.copy(address.sun_path, sizeof(address.sun_path) - 1);
        EXPECT_EQ(bind(_fd.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
        setenv("NOTIFY_SOCKET", strPath.c_str(), 1);
    }
    ~NotifyTest() override {
        for (const char* szName : {"NOTIFY_SOCKET", "WATCHDOG_USEC", "WATCHDOG_PID"}) {
            unsetenv(szName);
        }
    }

    std::string Told() const {
        char aBuffer[1000];
        const ssize_t iBytes = recv(_fd.Get(), aBuffer, sizeof(aBuffer), 0);
        return std::string(aBuffer, iBytes < 0 ? 0 : static_cast<std::size_t>(iBytes));
    }

private:
    support::TempDir _dir;
    UniqueFd _fd;
};

} // namespace

TEST_F(NotifyTest, TellsTheStatesOfTheService) {
    Notify::Ready("7 jobs");
    EXPECT_EQ(Told(), "READY=1\nSTATUS=7 jobs");
    Notify::Stopping();
    EXPECT_EQ(Told(), "STOPPING=1");
    Notify::Status("passive");
    EXPECT_EQ(Told(), "STATUS=passive");
    Notify::Reloading();
    EXPECT_TRUE(std::regex_match(Told(), std::regex("RELOADING=1\nMONOTONIC_USEC=[0-9]+")));
}

TEST_F(NotifyTest, LetsNoStatusSayMoreThanAStatus) {
    Notify::Status("x\nMAINPID=1");
    EXPECT_EQ(Told(), "STATUS=x\\x0aMAINPID=1");
}

TEST_F(NotifyTest, SaysNothingWhereNobodyListens) {
    unsetenv("NOTIFY_SOCKET");
    Notify::Ready("7 jobs");
    EXPECT_EQ(Told(), "");
}
