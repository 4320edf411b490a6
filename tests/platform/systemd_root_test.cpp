#include <gtest/gtest.h>
#include <unistd.h>

#include "platform/vukosdk.h"
#include "platform/vukosystemd.h"
#include "tests/platform/errors.h"
#include "tests/platform/nobody.h"
#include "tests/platform/private_bus.h"
#include "tests/platform/run_folder.h"
#include "tests/support/forked.h"

namespace {

using support::FakeManagers;
using support::PrivateBus;
using support::WithMarkedErrno;

constexpr const char* SZ_MANAGER_SOCKET = "/run/systemd/private";

class BootStep : public support::RunFolder {
protected:
    static void ExpectStep(int iStep) {
        int iErrno = 0;
        EXPECT_EQ(WithMarkedErrno([] { return VUKOSystemGetBootStep(); }, iErrno), iStep);
        EXPECT_EQ(iErrno, support::ERRNO_MARK);
    }
};

TEST_F(BootStep, FollowsTheStateOfSystemd) {
    LookBooted();
    for (const auto& [szState, iStep] : std::vector<std::pair<const char*, int>>{{"initializing", 1},
                                                                                 {"starting", 1},
                                                                                 {"running", 3},
                                                                                 {"degraded", 3},
                                                                                 {"maintenance", 3},
                                                                                 {"stopping", 5},
                                                                                 {"something new", 3}}) {
        const FakeManagers fake = FakeManagers::OnSocket(SZ_MANAGER_SOCKET, {.strSystemState = szState});
        ExpectStep(iStep);
        unlink(SZ_MANAGER_SOCKET);
    }
}

TEST_F(BootStep, IsRunningWithoutSystemd) {
    const PrivateBus bus;
    const FakeManagers fake = FakeManagers::OnBus(bus, {.strSystemState = "stopping"});
    ExpectStep(3); // whatever a bus says
}

TEST_F(BootStep, IsAskedForOnTheBusWhereSystemdsSocketIsNot) {
    LookBooted();
    const PrivateBus bus;
    const FakeManagers fake = FakeManagers::OnBus(bus, {.strSystemState = "stopping"});
    ExpectStep(5);
}

TEST_F(BootStep, IsTakenForRunningWhenSystemdCannotBeAsked) {
    LookBooted();
    PrivateBus bus;
    bus.Stop();
    ExpectStep(3);
    EXPECT_EQ(VLIBCErrGet(), static_cast<unsigned>(ECONNREFUSED));
}

TEST_F(BootStep, IsTakenForRunningWhenSystemdRefuses) {
    LookBooted();
    const FakeManagers fake =
        FakeManagers::OnSocket(SZ_MANAGER_SOCKET, {.strError = "org.freedesktop.DBus.Error.AccessDenied"});
    ExpectStep(3);
    EXPECT_EQ(VLIBCErrGet(), static_cast<unsigned>(EACCES));
}

TEST_F(BootStep, IsNotAskedForOfASocketThatIsNotRoots) {
    LookBooted();
    const PrivateBus bus;
    const FakeManagers fakeOnBus = FakeManagers::OnBus(bus, {.strSystemState = "starting"});
    std::filesystem::permissions("/run/systemd", std::filesystem::perms::all);
    const support::ChildEnd end = support::RunForked([](int) {
        int aiReady[2];
        if (pipe(aiReady) != 0) {
            return 100;
        }
        const pid_t pidRoot = fork();
        if (pidRoot == 0) {
            char c = 0;
            _exit(read(aiReady[0], &c, 1) == 1 ? VUKOSystemGetBootStep() : 101);
        }
        support::BecomeNobody(); // an impostor, who would tell of a shutdown
        const FakeManagers impostor = FakeManagers::OnSocket(SZ_MANAGER_SOCKET, {.strSystemState = "stopping"});
        EXPECT_EQ(write(aiReady[1], "", 1), 1);
        return WEXITSTATUS(support::WaitFor(pidRoot));
    });
    EXPECT_EQ(end.iExitStatus, 1) << end.strOutput;
}

class ReloadBySystemd : public support::RunFolder {
protected:
    void SetUp() override {
        RunFolder::SetUp();
        if (geteuid() == 0) {
            LookBooted();
        }
    }

    static void ExpectReloaded(const std::string& strService) {
        int iErrno = 0;
        EXPECT_TRUE(WithMarkedErrno([&] { return VUKOSystemdReload(strService); }, iErrno)) << strerror(iErrno);
        EXPECT_EQ(iErrno, support::ERRNO_MARK);
    }

    static void ExpectFailure(int iExpected) {
        int iErrno = 0;
        EXPECT_FALSE(WithMarkedErrno([] { return VUKOSystemdReload("vukotestd"); }, iErrno));
        support::ExpectFailedWith(iErrno, iExpected);
    }
};

TEST_F(ReloadBySystemd, AsksForTheUnitsReload) {
    const FakeManagers fake = FakeManagers::OnSocket(SZ_MANAGER_SOCKET, {});
    ExpectReloaded("vukotestd");
    ExpectReloaded("a b@c");
    EXPECT_EQ(fake.Reloads(), "vukotestd.service fail;a b@c.service fail;");
}

TEST_F(ReloadBySystemd, AsksOnTheBusWhereSystemdsSocketIsNot) {
    const PrivateBus bus;
    const FakeManagers fake = FakeManagers::OnBus(bus, {});
    ExpectReloaded("vukotestd");
    EXPECT_EQ(fake.Reloads(), "vukotestd.service fail;");
}

TEST_F(ReloadBySystemd, AsksOnTheBusWhenNotRoot) {
    const PrivateBus bus;
    const FakeManagers fakeOnBus = FakeManagers::OnBus(bus, {});
    const FakeManagers fakeOnSocket = FakeManagers::OnSocket(SZ_MANAGER_SOCKET, {});
    const std::string strFolder = bus.Address().substr(bus.Address().find('/'));
    std::filesystem::permissions(std::filesystem::path(strFolder.substr(0, strFolder.find(','))).parent_path(),
                                 std::filesystem::perms(0755));
    const support::ChildEnd end = support::RunForked([](int) {
        support::BecomeNobody();
        return VUKOSystemdReload("vukotestd") ? 0 : errno;
    });
    EXPECT_EQ(end.iExitStatus, 0);
    EXPECT_EQ(fakeOnBus.Reloads(), "vukotestd.service fail;");
    EXPECT_EQ(fakeOnSocket.Reloads(), "");
}

TEST_F(ReloadBySystemd, AsksForAReloadOfWhatRunsAlone) {
    for (const auto& [szState, bRuns] : std::vector<std::pair<const char*, bool>>{{"active", true},
                                                                                  {"reloading", true},
                                                                                  {"inactive", false},
                                                                                  {"failed", false},
                                                                                  {"activating", false},
                                                                                  {"deactivating", false}}) {
        const FakeManagers fake = FakeManagers::OnSocket(SZ_MANAGER_SOCKET, {.strActiveState = szState});
        if (bRuns) {
            ExpectReloaded("vukotestd");
        } else {
            ExpectFailure(ESRCH);
        }
        EXPECT_EQ(fake.Reloads(), bRuns ? "vukotestd.service fail;" : "") << szState;
        unlink(SZ_MANAGER_SOCKET);
    }
}

TEST_F(ReloadBySystemd, TellsThatSystemdRefused) {
    const FakeManagers fake =
        FakeManagers::OnSocket(SZ_MANAGER_SOCKET, {.strError = "org.freedesktop.DBus.Error.AccessDenied"});
    ExpectFailure(EACCES);
}

TEST_F(ReloadBySystemd, TellsThatSystemdCannotBeAsked) {
    PrivateBus bus;
    bus.Stop();
    ExpectFailure(ECONNREFUSED);
}

TEST_F(ReloadBySystemd, DoesNotFallBackOnThePidFile) {
    const PrivateBus bus; // with nobody on it
    ExpectFailure(EHOSTUNREACH);
}

TEST_F(ReloadBySystemd, LeavesNoDescriptorOpen) {
    const FakeManagers fake = FakeManagers::OnSocket(SZ_MANAGER_SOCKET, {});
    const std::vector<int> vecBefore = support::OpenDescriptors();
    ExpectReloaded("vukotestd");
    EXPECT_EQ(VUKOSystemGetBootStep(), 3);
    EXPECT_EQ(support::OpenDescriptors(), vecBefore);
}

// Lasts as long as the patience of the platform, a few seconds.
TEST_F(ReloadBySystemd, DoesNotWaitForASilentSystemd) {
    const PrivateBus bus;
    const FakeManagers fake = FakeManagers::OnBus(bus, {.bSilent = true});
    alarm(20);
    ExpectFailure(ETIMEDOUT);
    alarm(0);
}

} // namespace
