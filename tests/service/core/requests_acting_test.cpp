#include <set>

#include "tests/service/core/requests_fixture.h"

using namespace VUKO::VUKOCrond;
using namespace VUKO::VUKOCrond::Service;
using namespace core_test;
using control_test::CodeOf;

namespace {

using Requests = RequestsTest;

TEST_F(Requests, StartAJobAndTellItsNumber) {
    Define("pkg/a", "alice");
    Load();
    const Json::Value jsReply = AskAs(ALICE, "run", JobNamed("a"));
    EXPECT_EQ(jsReply["result"]["job"], "pkg/a");
    EXPECT_EQ(jsReply["result"]["run"].asUInt64(), Launch("a").uRun);
    EXPECT_EQ(_log.Take(), Texts{"<5>requests:1 job pkg/a is started on request of uid 1001"});
    _life.Settle();
    EXPECT_EQ(Ask("show", JobNamed("a"))["result"]["running"]["pid"].asInt(), Launch("a").pidChild);
    End("a", 3);
    const Json::Value jsHistory = Ask("history", JobNamed("a"))["result"];
    EXPECT_EQ(jsHistory["job"], "pkg/a");
    ASSERT_EQ(jsHistory["items"].size(), 1U);
    EXPECT_EQ(jsHistory["items"][0]["label"], "manual");
    EXPECT_EQ(jsHistory["items"][0]["end"]["code"], 3);
    EXPECT_EQ(Ask("show", JobNamed("a"))["result"]["last"]["end"], "exited");
}

TEST_F(Requests, AnswerAtTheEndOfARunThatIsWaitedFor) {
    Define("pkg/a");
    Load();
    Json::Value jsRun = JobNamed("a");
    jsRun["wait"] = true;
    EXPECT_TRUE(Ask("run", jsRun).isNull());
    _life.Settle();
    EXPECT_EQ(Ask("ping")["ok"], true); // others are answered meanwhile
    EXPECT_FALSE(_client->Receive());
    _life.Pass(5);
    End("a", 3);
    const Json::Value jsReply = _client->ReceiveJson();
    EXPECT_EQ(jsReply["id"], "mark");
    EXPECT_EQ(jsReply["result"]["job"], "pkg/a");
    EXPECT_EQ(jsReply["result"]["end"]["kind"], "exited");
    EXPECT_EQ(jsReply["result"]["end"]["code"], 3);
    EXPECT_EQ(jsReply["result"]["end"]["durationUsec"], 5'000'000);
    EXPECT_FALSE(_client->Receive());
    EXPECT_EQ(_log.Take().size(), 1U);
}

TEST_F(Requests, TellWhyAJobIsNotStartedAndLogNoStart) {
    Define("pkg/a");
    Load();
    EXPECT_EQ(Ask("run", JobNamed("a"))["ok"], true);
    EXPECT_EQ(_log.Take().size(), 1U);
    for (const bool bWait : {false, true}) {
        Json::Value jsRun = JobNamed("a");
        jsRun["wait"] = bWait;
        const Json::Value jsReply = Ask("run", jsRun);
        EXPECT_EQ(CodeOf(jsReply), "refused");
        EXPECT_EQ(MessageOf(jsReply),
                  "not started: process " + std::to_string(Launch("a").pidChild) + " is still going");
        EXPECT_FALSE(_client->Receive());
    }
    _life.Settle();
    End("a");
    EXPECT_EQ(Ask("drain")["result"]["draining"], true);
    EXPECT_EQ(MessageOf(Ask("run", JobNamed("a"))),
              "not started: the service is drained, and starts jobs again when that is switched off");
    EXPECT_EQ(Ask("drain", Member("on", false))["result"]["draining"], false);
    _life.bHibernating = true;
    EXPECT_EQ(MessageOf(Ask("run", JobNamed("a"))), "not started: hibernating");
    EXPECT_EQ(Launches(), 1U);
}

TEST_F(Requests, CountTheRunsThatADrainHasToWaitFor) {
    Define("pkg/a", "root", "* * * * *");
    Load();
    _life.RunMinutes(1);
    EXPECT_EQ(Ask("drain", Member("on", true))["result"]["running"], 1);
    EXPECT_EQ(Ask("status")["result"]["draining"], true);
    End("a");
    EXPECT_EQ(Ask("drain")["result"]["running"], 0);
    _life.RunMinutes(1);
    EXPECT_EQ(Launches(), 1U);
    EXPECT_EQ(Ask("drain", Member("on", false))["result"]["draining"], false);
    _life.RunMinutes(1);
    EXPECT_EQ(Launches(), 2U);
    EXPECT_EQ(_life.Ledger("a"), (Texts{"10:01 started", "10:02 skipped: stopping", "10:03 started"}));
}

TEST_F(Requests, DrawOnlyRandomFieldsAnew) {
    Define("pkg/a", "root", "5 1~23 * 7 *");
    Load();
    std::set<std::string> setHours;
    for (int i = 0; i < 100; ++i) {
        const std::string strSchedule = Ask("reroll", JobNamed("a"))["result"]["schedule"].asString();
        ASSERT_EQ(strSchedule.substr(0, 2), "5 ") << strSchedule;
        const std::size_t uHourEnd = strSchedule.find(' ', 2);
        EXPECT_EQ(strSchedule.substr(uHourEnd), " -1 7 -1") << strSchedule;
        setHours.insert(strSchedule.substr(2, uHourEnd - 2));
    }
    EXPECT_GT(setHours.size(), 1U);
    EXPECT_EQ(Ask("show", JobNamed("a"))["result"]["schedule"], Find("pkg/a").strSchedule);
    EXPECT_TRUE(_life.Core().IsWorthSaving());
}

TEST_F(Requests, TellAndSetTheRole) {
    EXPECT_EQ(Ask("role")["result"]["role"], "active");
    EXPECT_EQ(Ask("role", Member("set", "passive"))["result"]["role"], "passive");
    EXPECT_EQ(support::ReadFile(_life.Path("role")), "passive\n");
    _life.Pass(1);
    EXPECT_EQ(AskAs(ALICE, "role")["result"]["role"], "passive");
    EXPECT_EQ(Ask("status")["result"]["role"], "passive");
    EXPECT_EQ(AskAs(ROOT, "role", Member("set", "active"))["result"]["role"], "active");
}

TEST_F(Requests, ChangeTheTemplate) {
    const Json::Value jsValues = Ask("template")["result"]["values"];
    EXPECT_EQ(Ask("template", Member("maxDelay", 7))["result"]["maxDelay"], 7);
    EXPECT_EQ(Ask("template")["result"]["values"], jsValues);
    bool bChanged = false;
    for (int i = 0; i < 100 && !bChanged; ++i) {
        bChanged = Ask("template", Member("reroll", true))["result"]["values"] != jsValues;
    }
    EXPECT_TRUE(bChanged);
    ScheduleTemplate stored;
    ASSERT_TRUE(stored.fromFile(_life.Path("disk/template")));
    EXPECT_EQ(stored._jsJob["schedule"], _life.Core().Template().Template()._jsJob["schedule"]);
    EXPECT_EQ(stored._iMaxDelay, 7);
}

TEST_F(Requests, ChangeNothingOfTheTemplateWhenAMemberIsBad) {
    const Json::Value jsFormer = _life.Core().Template().Template()._jsJob;
    Json::Value jsMembers = Member("reroll", true);
    jsMembers["maxDelay"] = "soon";
    for (int i = 0; i < 10; ++i) {
        EXPECT_EQ(CodeOf(Ask("template", jsMembers)), "bad-request");
    }
    EXPECT_EQ(_life.Core().Template().Template()._jsJob, jsFormer);
}

} // namespace
