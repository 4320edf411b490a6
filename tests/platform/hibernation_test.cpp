#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "platform/vukosdk.h"
#include "tests/platform/errors.h"
#include "tests/platform/private_bus.h"

namespace {

using support::FakeAnswers;
using support::FakeManagers;
using support::PrivateBus;
using support::WithMarkedErrno;

constexpr int STATUS_MARK = 1234;

struct Answer {
    int iResult = 0;
    int iStatus = STATUS_MARK;
    int iErrno = 0;
};

Answer Ask() {
    Answer answer;
    answer.iResult = WithMarkedErrno([&] { return VUKOEvmgrStatusGet(1, &answer.iStatus); }, answer.iErrno);
    return answer;
}

void ExpectStatus(int iStatus) {
    const Answer answer = Ask();
    EXPECT_EQ(answer.iResult, 0) << strerror(answer.iErrno);
    EXPECT_EQ(answer.iStatus, iStatus);
    EXPECT_EQ(answer.iErrno, support::ERRNO_MARK);
}

void ExpectFailure(int iExpected) {
    const Answer answer = Ask();
    EXPECT_EQ(answer.iResult, -1);
    EXPECT_EQ(answer.iStatus, STATUS_MARK);
    support::ExpectFailedWith(answer.iErrno, iExpected);
}

TEST(Hibernation, IsToldByLogind) {
    const PrivateBus bus;
    {
        const FakeManagers fake = FakeManagers::OnBus(bus, {.bPreparingForSleep = true});
        ExpectStatus(2);
    }
    const FakeManagers fake = FakeManagers::OnBus(bus, {.bPreparingForSleep = false});
    ExpectStatus(1);
}

TEST(Hibernation, IsOutOfTheQuestionWithoutLogind) {
    const PrivateBus bus;
    ExpectStatus(1);
}

TEST(Hibernation, IsOutOfTheQuestionWithoutABus) {
    PrivateBus bus;
    bus.Stop();
    ExpectStatus(1); // the socket is there, and nobody listens
    setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent/bus", 1);
    ExpectStatus(1);
}

TEST(Hibernation, IsUnknownWhenLogindRefuses) {
    const PrivateBus bus;
    const FakeManagers fake = FakeManagers::OnBus(bus, {.strError = "org.freedesktop.DBus.Error.AccessDenied"});
    ExpectFailure(EACCES);
}

TEST(Hibernation, IsUnknownWithAnAddressThatIsNone) {
    PrivateBus bus;
    setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:nonsense", 1);
    ExpectFailure(EINVAL);
}

TEST(Hibernation, IsAskedForByItsSelectorAlone) {
    for (const int iWhat : {0, 2, -1, 5}) {
        int iStatus = STATUS_MARK;
        int iErrno = 0;
        EXPECT_EQ(WithMarkedErrno([&] { return VUKOEvmgrStatusGet(iWhat, &iStatus); }, iErrno), -1);
        support::ExpectFailedWith(iErrno, EINVAL);
        EXPECT_EQ(iStatus, STATUS_MARK);
    }
    int iErrno = 0;
    EXPECT_EQ(WithMarkedErrno([] { return VUKOEvmgrStatusGet(1, nullptr); }, iErrno), -1);
    support::ExpectFailedWith(iErrno, EFAULT);
}

TEST(Hibernation, LeavesNoDescriptorOpen) {
    const PrivateBus bus;
    const FakeManagers fake = FakeManagers::OnBus(bus, {});
    const std::vector<int> vecBefore = support::OpenDescriptors();
    ExpectStatus(1);
    EXPECT_EQ(support::OpenDescriptors(), vecBefore);
}

// The two tests below last as long as the patience of the platform, a few seconds.

TEST(Hibernation, IsNotWaitedForWhenLogindIsSilent) {
    const PrivateBus bus;
    const FakeManagers fake = FakeManagers::OnBus(bus, {.bSilent = true});
    alarm(20);
    ExpectFailure(ETIMEDOUT);
    alarm(0);
}

TEST(Hibernation, IsNotWaitedForWhenTheBusIsSilent) {
    const support::TempDir dir;
    const FakeManagers fake = FakeManagers::OnSocket(dir / "socket", {.bSilent = true});
    setenv("DBUS_SYSTEM_BUS_ADDRESS", ("unix:path=" + (dir / "socket")).c_str(), 1);
    alarm(20);
    ExpectFailure(ETIMEDOUT);
    alarm(0);
    unsetenv("DBUS_SYSTEM_BUS_ADDRESS");
}

} // namespace
