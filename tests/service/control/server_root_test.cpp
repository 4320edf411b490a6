#include "service/control/server.h"

#include <unistd.h>

#include <filesystem>
#include <stdexcept>

#include "tests/service/control/control_fixture.h"

using namespace VUKO::VUKOCrond::Service;
using control_test::Client;
using control_test::CodeOf;
using control_test::ControlTest;
using control_test::Request;

namespace {

constexpr uid_t STRANGER = 65534;
constexpr uid_t OTHER_STRANGER = 65533;

ControlServer::Limits Tight() {
    ControlServer::Limits limits;
    limits.uConnections = 6;
    limits.uConnectionsForRoot = 2;
    limits.uConnectionsOfAccount = 3;
    limits.uRequestsPerSecond = 2;
    return limits;
}

class ControlServerAccounts : public ControlTest {
protected:
    ControlServerAccounts() : ControlTest(Tight()) {
        std::filesystem::permissions(_dir.Path(), std::filesystem::perms(0755));
    }

    void SetUp() override {
        if (geteuid() != 0) {
            GTEST_SKIP() << "needs root";
        }
    }

    /// The kernel tells as whom a peer connected, so that is all it takes.
    Client ConnectAs(uid_t uid) const {
        if (seteuid(uid) != 0) {
            throw std::runtime_error("seteuid");
        }
        Client client = Connect();
        if (seteuid(0) != 0) {
            throw std::runtime_error("seteuid");
        }
        return client;
    }
};

} // namespace

TEST_F(ControlServerAccounts, MayAllConnect) {
    EXPECT_EQ(Ask(ConnectAs(STRANGER), Request("who"))["result"]["uid"].asUInt(), STRANGER);
    EXPECT_EQ(Ask(Connect(), Request("who"))["result"]["uid"].asUInt(), 0u);
}

TEST_F(ControlServerAccounts, AreNotShownWhatFailedInside) {
    EXPECT_EQ(Ask(ConnectAs(STRANGER), Request("break"))["error"]["message"], "internal error");
    EXPECT_EQ(Ask(Connect(), Request("break"))["error"]["message"], "a secret");
}

TEST_F(ControlServerAccounts, MayDoAllWhereTheServiceIsTheirOwn) {
    EXPECT_TRUE(Peer{0}.MayDoAll());
    EXPECT_FALSE(Peer{STRANGER}.MayDoAll());
    ASSERT_EQ(seteuid(STRANGER), 0);
    const bool bRoot = Peer{0}.MayDoAll();
    const bool bItself = Peer{STRANGER}.MayDoAll();
    const bool bOther = Peer{OTHER_STRANGER}.MayDoAll();
    ASSERT_EQ(seteuid(0), 0);
    EXPECT_TRUE(bRoot);
    EXPECT_TRUE(bItself);
    EXPECT_FALSE(bOther);
}

TEST_F(ControlServerAccounts, HaveSoManyConnectionsEach) {
    const Client aClients[] = {ConnectAs(STRANGER), ConnectAs(STRANGER), ConnectAs(STRANGER)};
    const Client surplus = ConnectAs(STRANGER);
    Turn();
    EXPECT_EQ(CodeOf(surplus.ReceiveJson()), "busy");
    EXPECT_EQ(Ask(ConnectAs(OTHER_STRANGER), Request("who"))["ok"], true);
}

TEST_F(ControlServerAccounts, LeaveRoomForRoot) {
    const Client aClients[] = {ConnectAs(STRANGER), ConnectAs(STRANGER), ConnectAs(OTHER_STRANGER),
                               ConnectAs(OTHER_STRANGER)};
    const Client surplus = ConnectAs(STRANGER - 2);
    Turn();
    EXPECT_EQ(CodeOf(surplus.ReceiveJson()), "busy");
    EXPECT_EQ(Ask(Connect(), Request("who"))["ok"], true);
}

TEST_F(ControlServerAccounts, HaveSoManyRequestsASecondOverAllConnections) {
    const Client client = ConnectAs(STRANGER);
    EXPECT_EQ(Ask(client, Request("who"))["ok"], true);
    EXPECT_EQ(Ask(ConnectAs(STRANGER), Request("who"))["ok"], true);
    EXPECT_EQ(CodeOf(Ask(ConnectAs(STRANGER), Request("who"))), "rate");
    EXPECT_EQ(Ask(ConnectAs(OTHER_STRANGER), Request("who"))["ok"], true);
    for (int i = 0; i < 10; ++i) {
        EXPECT_EQ(Ask(Connect(), Request("who"))["ok"], true) << "root's are not counted";
    }
}

TEST_F(ControlServerAccounts, AreNotReadFromForAMomentAfterARequestTooMany) {
    const Client client = ConnectAs(STRANGER);
    for (int i = 0; i < 4; ++i) {
        ASSERT_TRUE(client.Send(Request("who", i)));
    }
    Turn();
    EXPECT_EQ(client.ReceiveJson()["id"], 0);
    EXPECT_EQ(client.ReceiveJson()["id"], 1);
    EXPECT_EQ(CodeOf(client.ReceiveJson()), "rate");
    EXPECT_FALSE(client.Receive());
    ASSERT_GT(sd_event_run(_event.get(), 10000000), 0); // the moment is over
    Turn();
    EXPECT_TRUE(client.Receive());
}
