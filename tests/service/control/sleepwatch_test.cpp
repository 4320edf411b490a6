#include "service/sleepwatch.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <systemd/sd-bus.h>
#include <systemd/sd-event.h>
#include <unistd.h>

#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "service/uniquefd.h"
#include "tests/platform/private_bus.h"

using VUKO::VUKOCrond::Service::SleepWatch;
using VUKO::VUKOCrond::Service::UniqueFd;

namespace {

using EventPtr = std::unique_ptr<sd_event, sd_event* (*)(sd_event*)>;
constexpr std::uint64_t PATIENCE_USEC = 10000000;

void Check(int iResult, const char* szWhat) {
    if (iResult < 0) {
        throw std::runtime_error(szWhat);
    }
}

EventPtr NewLoop() {
    sd_event* pEvent = nullptr;
    Check(sd_event_new(&pEvent), "sd_event_new");
    return {pEvent, sd_event_unref};
}

/// Plays logind, in the loop of the test.
class FakeLogind {
public:
    explicit FakeLogind(sd_event* pEvent, bool bNamed = true) {
        sd_bus* pBus = nullptr;
        Check(sd_bus_open_system(&pBus), "open the bus");
        _bus.reset(pBus);
        Check(sd_bus_attach_event(pBus, pEvent, 0), "attach");
        Check(sd_bus_add_object_vtable(pBus, nullptr, "/org/freedesktop/login1", "org.freedesktop.login1.Manager",
                                       aManager, this),
              "add the manager");
        if (bNamed) {
            Check(sd_bus_request_name(pBus, "org.freedesktop.login1", 0), "take the name");
        }
    }

    void PrepareForSleep(bool bStart, const char* szTo = nullptr) {
        sd_bus_message* pSignal = nullptr;
        Check(sd_bus_message_new_signal(_bus.get(), &pSignal, "/org/freedesktop/login1",
                                        "org.freedesktop.login1.Manager", "PrepareForSleep"),
              "new signal");
        Check(sd_bus_message_append(pSignal, "b", bStart), "append");
        Check(sd_bus_send_to(_bus.get(), pSignal, szTo, nullptr), "send");
        sd_bus_message_unref(pSignal);
    }

    /// Whether the newest inhibitor is held.
    bool IsHeld() const {
        pollfd ended = {vecInhibitors.back().Get(), 0, 0};
        return poll(&ended, 1, 0) == 0;
    }
    /// Whether all of them are let go of. The bus may keep its own copy for a moment.
    bool AreReleased() const {
        for (const UniqueFd& fd : vecInhibitors) {
            pollfd ended = {fd.Get(), 0, 0};
            if (poll(&ended, 1, PATIENCE_USEC / 1000) != 1) {
                return false;
            }
        }
        return true;
    }

    std::vector<UniqueFd> vecInhibitors; ///< our ends of them
    std::string strAsked;
    std::string strAsker;
    bool bRefusing = false;

private:
    static int OnInhibit(sd_bus_message* pCall, void* pFake, sd_bus_error* pError) {
        FakeLogind& self = *static_cast<FakeLogind*>(pFake);
        const char* aTexts[4] = {};
        Check(sd_bus_message_read(pCall, "ssss", &aTexts[0], &aTexts[1], &aTexts[2], &aTexts[3]), "read");
        self.strAsked = std::string(aTexts[0]) + "|" + aTexts[1] + "|" + aTexts[2] + "|" + aTexts[3];
        self.strAsker = sd_bus_message_get_sender(pCall);
        if (self.bRefusing) {
            return sd_bus_error_set(pError, SD_BUS_ERROR_ACCESS_DENIED, "not\ntoday");
        }
        int aiPipe[2];
        Check(pipe2(aiPipe, O_CLOEXEC | O_NONBLOCK), "pipe");
        self.vecInhibitors.emplace_back(aiPipe[0]);
        const UniqueFd given(aiPipe[1]);
        return sd_bus_reply_method_return(pCall, "h", given.Get());
    }

    struct BusDropper {
        void operator()(sd_bus* pBus) const { sd_bus_flush_close_unref(pBus); }
    };
    static constexpr sd_bus_vtable aManager[] = {
        SD_BUS_VTABLE_START(0),
        SD_BUS_METHOD("Inhibit", "ssss", "h", OnInhibit, SD_BUS_VTABLE_UNPRIVILEGED),
        SD_BUS_SIGNAL("PrepareForSleep", "b", 0),
        SD_BUS_VTABLE_END,
    };

    std::unique_ptr<sd_bus, BusDropper> _bus;
};

class SleepWatchTest : public testing::Test {
protected:
    void Begin() {
        _watch = std::make_unique<SleepWatch>(
            _event.get(), SleepWatch::Callbacks{[this] { Note("sleep"); }, [this] { Note("wake"); }});
    }
    void Note(const std::string& strWhat) {
        _strHeard += strWhat + (_watch->HoldsSleep() ? " (held);" : " (free);");
        if (_bThrowing) {
            throw std::runtime_error("the disk is full");
        }
    }
    /// Lets the loop work until something has come about.
    void Await(const std::function<bool()>& isSo) {
        while (!isSo()) {
            ASSERT_GT(sd_event_run(_event.get(), PATIENCE_USEC), 0);
        }
    }
    void AwaitHold() {
        Await([this] { return _watch->HoldsSleep(); });
    }
    void AwaitHeard(const std::string& strHeard) {
        Await([&] { return _strHeard.size() >= strHeard.size(); });
        EXPECT_EQ(_strHeard, strHeard);
    }

    support::PrivateBus _bus;
    EventPtr _event = NewLoop();
    bool _bThrowing = false;
    std::string _strHeard;
    std::unique_ptr<SleepWatch> _watch;
};

} // namespace

TEST_F(SleepWatchTest, HoldsSleepUpUntilTheCallbackHasReturned) {
    FakeLogind logind(_event.get());
    Begin();
    EXPECT_FALSE(_watch->HoldsSleep());
    AwaitHold();
    EXPECT_EQ(logind.strAsked, "sleep|vukocrond|saving the state|delay");
    EXPECT_TRUE(logind.IsHeld());
    logind.PrepareForSleep(true);
    AwaitHeard("sleep (held);");
    EXPECT_FALSE(_watch->HoldsSleep());
    EXPECT_TRUE(logind.AreReleased());
    _watch->Retry();
    EXPECT_EQ(logind.vecInhibitors.size(), 1u) << "nobody asks on the way to sleep";
    logind.PrepareForSleep(false);
    AwaitHeard("sleep (held);wake (free);");
    AwaitHold();
    EXPECT_TRUE(logind.IsHeld());
    EXPECT_EQ(_watch->TakeProblem(), "");
    _watch.reset();
    EXPECT_TRUE(logind.AreReleased());
}

TEST_F(SleepWatchTest, LetsTheMachineSleepWhenTheCallbackThrows) {
    FakeLogind logind(_event.get());
    Begin();
    AwaitHold();
    _bThrowing = true;
    logind.PrepareForSleep(true);
    AwaitHeard("sleep (held);");
    EXPECT_TRUE(logind.AreReleased());
    EXPECT_EQ(_watch->TakeProblem(), "going to sleep: the disk is full");
    EXPECT_EQ(_watch->TakeProblem(), "");
}

TEST_F(SleepWatchTest, HeedsLogindAlone) {
    FakeLogind logind(_event.get());
    FakeLogind stranger(_event.get(), false);
    Begin();
    AwaitHold();
    stranger.PrepareForSleep(true, logind.strAsker.c_str());
    stranger.PrepareForSleep(true);
    logind.PrepareForSleep(false); // after which the stranger's have been heard as well, or have not
    AwaitHeard("wake (held);");
}

TEST_F(SleepWatchTest, MeetsALogindThatComesLaterOrAnew) {
    Begin();
    auto logind = std::make_unique<FakeLogind>(_event.get());
    AwaitHold();
    logind.reset();
    Await([this] { return !_watch->HoldsSleep(); });
    logind = std::make_unique<FakeLogind>(_event.get());
    AwaitHold();
    logind->PrepareForSleep(true);
    AwaitHeard("sleep (held);");
    EXPECT_EQ(_watch->TakeProblem(), "");
}

TEST_F(SleepWatchTest, DoesNoHarmWithoutABus) {
    const std::string strAddress = _bus.Address();
    for (const char* szAddress : {"unix:path=/nonexistent/bus", strAddress.c_str()}) {
        _bus.Stop();
        setenv("DBUS_SYSTEM_BUS_ADDRESS", szAddress, 1);
        Begin();
        _watch->Retry();
        while (sd_event_run(_event.get(), 0) > 0) {
        }
        EXPECT_FALSE(_watch->HoldsSleep());
        EXPECT_EQ(_watch->TakeProblem(), "");
    }
}

TEST_F(SleepWatchTest, ComesBackWhenTheBusWasLost) {
    std::optional<FakeLogind> logind(std::in_place, _event.get());
    Begin();
    AwaitHold();
    logind.reset();
    _bus.Stop();
    Await([this] { return !_watch->HoldsSleep(); });
    while (sd_event_run(_event.get(), 0) > 0) {
    }
    _watch->Retry();
    EXPECT_FALSE(_watch->HoldsSleep());
    const support::PrivateBus another;
    FakeLogind newLogind(_event.get());
    _watch->Retry();
    AwaitHold();
    EXPECT_EQ(_watch->TakeProblem(), "");
}

TEST_F(SleepWatchTest, TellsOnceThatItIsRefused) {
    FakeLogind logind(_event.get());
    logind.bRefusing = true;
    Begin();
    std::string strProblem;
    Await([&] { return !(strProblem = _watch->TakeProblem()).empty(); });
    EXPECT_EQ(strProblem, "logind does not let sleep be held up: not\\x0atoday");
    logind.strAsked.clear();
    _watch->Retry();
    Await([&] { return !logind.strAsked.empty(); });
    logind.PrepareForSleep(true);
    AwaitHeard("sleep (free);");
    EXPECT_EQ(_watch->TakeProblem(), "");
}

TEST_F(SleepWatchTest, IsNotHeldUpByABusThatIsSilent) {
    const support::TempDir dir;
    const support::FakeManagers silent = support::FakeManagers::OnSocket(dir / "bus", {.bSilent = true});
    setenv("DBUS_SYSTEM_BUS_ADDRESS", ("unix:path=" + (dir / "bus")).c_str(), 1);
    alarm(5); // far less than a bus has time to answer
    Begin();
    while (sd_event_run(_event.get(), 0) > 0) {
    }
    _watch->Retry();
    EXPECT_FALSE(_watch->HoldsSleep());
    _watch.reset();
    alarm(0);
}
