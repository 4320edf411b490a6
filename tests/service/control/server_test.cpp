#include "service/control/server.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include "tests/service/control/control_fixture.h"

using namespace VUKO::VUKOCrond::Service;
using control_test::Client;
using control_test::CodeOf;
using control_test::ControlTest;
using control_test::Request;
using control_test::TurnLoop;

namespace {

/// Limits that a test of something else does not run into, whoever runs it.
ControlServer::Limits Roomy() {
    ControlServer::Limits limits;
    limits.uRequestsPerSecond = 100000;
    limits.uConnectionsOfAccount = 64;
    return limits;
}

class ControlServerTest : public ControlTest {
protected:
    ControlServerTest() : ControlTest(Roomy()) {}
};

} // namespace

TEST_F(ControlServerTest, AnswersWithTheResultAndTheMarkOfTheRequest) {
    const Client client = Connect();
    const Json::Value jsRequest = Request("echo", "mark");
    const Json::Value jsReply = Ask(client, jsRequest);
    EXPECT_EQ(jsReply["version"], 1);
    EXPECT_EQ(jsReply["id"], "mark");
    EXPECT_EQ(jsReply["ok"], true);
    EXPECT_EQ(jsReply["result"], jsRequest);
    EXPECT_EQ(jsReply.size(), 4u);
}

TEST_F(ControlServerTest, KnowsWhoAsks) {
    const Json::Value jsPeer = Ask(Connect(), Request("who"))["result"];
    EXPECT_EQ(jsPeer["uid"].asUInt(), geteuid());
    EXPECT_EQ(jsPeer["gid"].asUInt(), getegid());
    EXPECT_EQ(jsPeer["pid"].asInt(), getpid());
}

TEST_F(ControlServerTest, AnswersRequestsOfAConnectionInTheirOrder) {
    const Client client = Connect();
    for (int i = 0; i < 5; ++i) {
        ASSERT_TRUE(client.Send(Request("echo", i)));
    }
    Turn();
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(client.ReceiveJson()["id"], i);
    }
}

TEST_F(ControlServerTest, TakesOnePacketATurn) {
    const Client client = Connect();
    Turn();
    for (int i = 0; i < 3; ++i) {
        ASSERT_TRUE(client.Send(Request("echo", i)));
    }
    ASSERT_GT(sd_event_run(_event.get(), 0), 0);
    EXPECT_TRUE(client.Receive());
    EXPECT_FALSE(client.Receive());
}

TEST_F(ControlServerTest, LetsEverythingElseInTheLoopGoFirst) {
    const Client client = Connect();
    Turn();
    ASSERT_TRUE(client.Send(Request("echo")));
    bool bOther = false;
    sd_event_source* pSource = nullptr;
    ASSERT_GE(sd_event_add_defer(
                  _event.get(), &pSource,
                  [](sd_event_source*, void* pFlag) {
                      *static_cast<bool*>(pFlag) = true;
                      return 0;
                  },
                  &bOther),
              0);
    ASSERT_GT(sd_event_run(_event.get(), 0), 0);
    EXPECT_TRUE(bOther);
    EXPECT_FALSE(client.Receive());
    sd_event_source_unref(pSource);
}

TEST_F(ControlServerTest, AnswersWhatIsNoRequestWithOneErrorAndStaysConnected) {
    const Client client = Connect();
    const std::string strHuge(Protocol::REQUEST_BYTES_MAX + 1, ' ');
    const std::pair<std::string, const char*> aCases[] = {
        {"{", "bad-json"},
        {"{\"version\":1,\"verb\":\"echo\",\"x\":\"\xff\"}", "bad-json"},
        {"[]", "bad-request"},
        {"{\"version\":1}", "bad-request"},
        {"{\"verb\":\"echo\"}", "bad-version"},
        {strHuge, "too-large"},
    };
    for (const auto& [strPacket, szCode] : aCases) {
        EXPECT_EQ(CodeOf(Ask(client, strPacket)), szCode) << strPacket.substr(0, 40);
        EXPECT_FALSE(client.Receive());
    }
    EXPECT_EQ(Ask(client, Request("echo"))["ok"], true);
}

TEST_F(ControlServerTest, TakesARequestOfTheFullSize) {
    std::string strPacket = "{\"version\":1,\"verb\":\"who\"}";
    strPacket.resize(Protocol::REQUEST_BYTES_MAX, ' ');
    EXPECT_EQ(Ask(Connect(), strPacket)["ok"], true);
}

TEST_F(ControlServerTest, SendsAReplyOfTheFullSizeAndRefusesALargerOne) {
    const Client client = Connect();
    Json::Value jsRequest = Request("large");
    jsRequest["bytes"] = 0;
    jsRequest["id"] = 7;
    ASSERT_TRUE(client.Send(jsRequest));
    Turn();
    const std::size_t uFrame = client.Receive().value_or("").size();
    jsRequest["bytes"] = static_cast<Json::UInt>(Protocol::REPLY_BYTES_MAX - uFrame);
    ASSERT_TRUE(client.Send(jsRequest));
    Turn();
    EXPECT_EQ(client.Receive().value_or("").size(), Protocol::REPLY_BYTES_MAX);
    jsRequest["bytes"] = jsRequest["bytes"].asUInt() + 1;
    const Json::Value jsReply = Ask(client, jsRequest);
    EXPECT_EQ(CodeOf(jsReply), "too-large");
    EXPECT_EQ(jsReply["id"], 7);
}

TEST_F(ControlServerTest, GivesAHandlersErrorWithItsCode) {
    const Json::Value jsReply = Ask(Connect(), Request("refuse", 3));
    EXPECT_EQ(CodeOf(jsReply), "unknown-verb");
    EXPECT_EQ(jsReply["error"]["message"], "no such thing");
    EXPECT_EQ(jsReply["id"], 3);
    EXPECT_FALSE(jsReply.isMember("result"));
}

TEST_F(ControlServerTest, AnswersAFailureOfAHandlerAsInternal) {
    EXPECT_EQ(CodeOf(Ask(Connect(), Request("break"))), "internal");
}

TEST_F(ControlServerTest, ClosesAPeerThatDoesNotReadItsReplies) {
    const Client client = Connect();
    Json::Value jsRequest = Request("large");
    jsRequest["bytes"] = 120000;
    Turn();
    ASSERT_EQ(_server->Connections(), 1u);
    for (int i = 0; i < 100 && _server->Connections() == 1; ++i) {
        client.Send(jsRequest);
        Turn();
    }
    EXPECT_EQ(_server->Connections(), 0u);
}

TEST_F(ControlServerTest, ForgetsAPeerThatLeaves) {
    {
        const Client client = Connect();
        Turn();
        EXPECT_EQ(_server->Connections(), 1u);
    }
    Turn();
    EXPECT_EQ(_server->Connections(), 0u);
}

TEST_F(ControlServerTest, KeepsNoDescriptorThatAPeerSendsAlong) {
    const Client client = Connect();
    Turn();
    int aiPipe[2];
    ASSERT_EQ(pipe2(aiPipe, O_CLOEXEC | O_NONBLOCK), 0);
    const std::string strPacket = "{\"version\":1,\"verb\":\"who\"}";
    iovec part = {const_cast<char*>(strPacket.data()), strPacket.size()};
    alignas(cmsghdr) char aControl[CMSG_SPACE(sizeof(int))] = {};
    msghdr message = {};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = aControl;
    message.msg_controllen = sizeof(aControl);
    cmsghdr* pHeader = CMSG_FIRSTHDR(&message);
    pHeader->cmsg_level = SOL_SOCKET;
    pHeader->cmsg_type = SCM_RIGHTS;
    pHeader->cmsg_len = CMSG_LEN(sizeof(int));
    memcpy(CMSG_DATA(pHeader), &aiPipe[1], sizeof(int));
    ASSERT_GT(sendmsg(client.Descriptor(), &message, MSG_NOSIGNAL), 0);
    close(aiPipe[1]);
    Turn();
    EXPECT_EQ(client.ReceiveJson()["ok"], true);
    char c = 0;
    EXPECT_EQ(read(aiPipe[0], &c, 1), 0) << "somebody holds the other end";
    close(aiPipe[0]);
}

TEST_F(ControlServerTest, AnswersLaterToWhomItDeferred) {
    const Client client = Connect();
    const Client other = Connect();
    EXPECT_TRUE(Ask(client, Request("later", "first")).isNull());
    EXPECT_EQ(Ask(client, Request("echo", "second"))["id"], "second");
    ASSERT_EQ(_vecReplies.size(), 1u);
    EXPECT_TRUE(_vecReplies[0].IsAwaited());
    _vecReplies[0].Send("done");
    const Json::Value jsReply = client.ReceiveJson();
    EXPECT_EQ(jsReply["id"], "first");
    EXPECT_EQ(jsReply["result"], "done");
    EXPECT_FALSE(other.Receive());
    EXPECT_FALSE(_vecReplies[0].IsAwaited());
    _vecReplies[0].Fail("late", "an answer too many");
    EXPECT_FALSE(client.Receive());
}

TEST_F(ControlServerTest, AnswersWithAnErrorWhenALaterAnswerIsGivenUp) {
    const Client client = Connect();
    Ask(client, Request("later", 1));
    _vecReplies.clear();
    const Json::Value jsReply = client.ReceiveJson();
    EXPECT_EQ(CodeOf(jsReply), "internal");
    EXPECT_EQ(jsReply["id"], 1);
}

TEST_F(ControlServerTest, LetsAnAnswerOutliveItsConnectionAndTheServer) {
    Ask(Connect(), Request("later"));
    const Client client = Connect();
    Ask(client, Request("later"));
    Turn();
    ASSERT_EQ(_vecReplies.size(), 2u);
    EXPECT_FALSE(_vecReplies[0].IsAwaited());
    _vecReplies[0].Send("to nobody");
    _server.reset();
    EXPECT_FALSE(_vecReplies[1].IsAwaited());
    _vecReplies[1].Send("to nobody");
    EXPECT_TRUE(client.IsClosed());
}

TEST_F(ControlServerTest, LetsAnAccountWaitForSoManyAnswersAlone) {
    const Client client = Connect();
    const Client second = Connect();
    for (int i = 0; i < 16; ++i) {
        EXPECT_TRUE(Ask(i % 2 == 0 ? client : second, Request("later", i)).isNull());
    }
    EXPECT_EQ(CodeOf(Ask(client, Request("later"))), "busy");
    EXPECT_EQ(_vecReplies.size(), 16u) << "the handler stops where it defers";
    _vecReplies[0].Send("one less");
    EXPECT_EQ(client.ReceiveJson()["id"], 0);
    EXPECT_TRUE(Ask(client, Request("later")).isNull());
    EXPECT_EQ(CodeOf(Ask(client, Request("later"))), "busy");
}

TEST_F(ControlServerTest, CountsNoWaitOfAPeerThatHasLeft) {
    {
        const Client client = Connect();
        for (int i = 0; i < 16; ++i) {
            Ask(client, Request("later"));
        }
    }
    Turn();
    const Client client = Connect();
    for (int i = 0; i < 16; ++i) {
        EXPECT_TRUE(Ask(client, Request("later")).isNull());
    }
    _vecReplies.erase(_vecReplies.begin(), _vecReplies.begin() + 16); // those of the one who left
    EXPECT_EQ(CodeOf(Ask(client, Request("later"))), "busy");
}

TEST_F(ControlServerTest, TurnsConnectionsAwayWhenItHasEnough) {
    ControlServer::Limits limits = Roomy();
    limits.uConnections = 3;
    limits.uConnectionsForRoot = 0;
    Serve(limits);
    std::vector<Client> vecClients;
    for (int i = 0; i < 3; ++i) {
        vecClients.push_back(Connect());
    }
    const Client surplus = Connect();
    EXPECT_EQ(CodeOf(Ask(surplus, Request("echo"))), "busy");
    EXPECT_TRUE(surplus.IsClosed());
    EXPECT_EQ(Ask(vecClients[2], Request("echo"))["ok"], true);
    vecClients.pop_back();
    Turn();
    EXPECT_EQ(Ask(Connect(), Request("echo"))["ok"], true);
}

TEST_F(ControlServerTest, ClosesAConnectionThatAsksNothingUnlessItWaits) {
    ControlServer::Limits limits = Roomy();
    limits.uIdleSeconds = 0; // no time at all
    Serve(limits);
    const Client waiting = Connect();
    ASSERT_TRUE(waiting.Send(Request("later")));
    while (_vecReplies.empty() && _server->Connections() <= 1) {
        ASSERT_GE(sd_event_run(_event.get(), 100000), 0);
    }
    ASSERT_EQ(_vecReplies.size(), 1u);
    const Client idle = Connect();
    for (int i = 0; i < 1000 && !idle.IsClosed(); ++i) {
        ASSERT_GE(sd_event_run(_event.get(), 100000), 0);
    }
    EXPECT_TRUE(idle.IsClosed());
    EXPECT_EQ(_server->Connections(), 1u);
    _vecReplies[0].Send("done");
    EXPECT_EQ(waiting.ReceiveJson()["result"], "done");
}

TEST_F(ControlServerTest, RestsWhenDescriptorsRunOut) {
    const Client client = Connect();       // its descriptor is made before there are none left
    sd_event* const pEvent = _event.get(); // the sanitizer needs descriptors to look at this object's own calls
    rlimit former = {};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &former), 0);
    const int iNext = dup(client.Descriptor());
    ASSERT_GE(iNext, 0);
    close(iNext);
    const rlimit none = {static_cast<rlim_t>(iNext), former.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
    const int iTurns = TurnLoop(pEvent);
    const int iTurnsAfter = TurnLoop(pEvent);
    setrlimit(RLIMIT_NOFILE, &former);
    EXPECT_LE(iTurns, 2);
    EXPECT_EQ(iTurnsAfter, 0);
    EXPECT_EQ(_server->Connections(), 0u);
    ASSERT_TRUE(client.Send(Request("echo")));
    while (_server->Connections() == 0) { // it looks again after a second
        ASSERT_GT(sd_event_run(_event.get(), 10000000), 0);
    }
    Turn();
    EXPECT_EQ(client.ReceiveJson()["ok"], true);
}
