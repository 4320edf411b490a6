#include <set>

#include "tests/service/core/requests_fixture.h"

using namespace VUKO::VUKOCrond;
using namespace VUKO::VUKOCrond::Service;
using namespace core_test;
using control_test::CodeOf;

namespace {

using Requests = RequestsTest;

TEST_F(Requests, ShowRootEveryJobAndAnAccountItsOwn) {
    Define("pkg/a");
    Define("pkg/b", "alice");
    Define("pkg/c", "bob");
    Define("pkg/d", "nobody-knows");
    Load();
    EXPECT_EQ(Listed(ROOT), (Texts{"pkg/a", "pkg/b", "pkg/c", "pkg/d"}));
    EXPECT_EQ(Listed(ALICE), Texts{"pkg/b"});
    EXPECT_EQ(Listed(STRANGER), Texts{});
    EXPECT_EQ(AskAs(ROOT, "status")["result"]["jobs"]["waiting"], 4);
    EXPECT_EQ(AskAs(BOB, "status")["result"]["jobs"]["waiting"], 1);
    EXPECT_TRUE(AskAs(STRANGER, "status")["result"]["jobs"].empty());
    EXPECT_EQ(AskAs(ALICE, "show", JobNamed("pkg/b"))["result"]["definition"]["package_username"], "alice");
}

TEST_F(Requests, HaveNoJobThatTheAskerMayNotSee) {
    Define("pkg/b", "alice", "1~59 11 * * *");
    Load();
    const std::string strSchedule = Find("pkg/b").strSchedule;
    for (const char* const szVerb : {"show", "history", "run", "reroll"}) {
        for (const char* const szJob : {"pkg/b", "b", "pkg/none"}) {
            const Json::Value jsReply = AskAs(BOB, szVerb, JobNamed(szJob));
            EXPECT_EQ(CodeOf(jsReply), "not-found") << szVerb << " " << szJob;
            EXPECT_EQ(MessageOf(jsReply), std::string("there is no job \"") + szJob + "\"");
        }
        EXPECT_EQ(AskAs(ALICE, szVerb, JobNamed("b"))["ok"], true) << szVerb;
    }
    EXPECT_EQ(Launches(), 1U);
    EXPECT_EQ(_log.Take(), Texts{"<5>requests:1 job pkg/b is started on request of uid 1001"});
}

TEST_F(Requests, DenyAccountsWhatIsRoots) {
    const ScheduleTemplate former = _life.Core().Template().Template();
    const std::pair<const char*, Json::Value> aRequests[] = {{"refused", Json::Value(Json::objectValue)},
                                                             {"reload", Json::Value(Json::objectValue)},
                                                             {"drain", Member("on", true)},
                                                             {"role", Member("set", "passive")},
                                                             {"template", Member("maxDelay", 5)},
                                                             {"template", Member("reroll", true)}};
    for (const auto& [szVerb, jsMembers] : aRequests) {
        EXPECT_EQ(CodeOf(AskAs(ALICE, szVerb, jsMembers)), "denied") << szVerb;
    }
    EXPECT_EQ(_iLoads, 0);
    EXPECT_FALSE(_life.Core().IsDraining());
    EXPECT_EQ(Ask("role")["result"]["role"], "active");
    EXPECT_EQ(_life.Core().Template().Template()._jsJob, former._jsJob);
    EXPECT_EQ(_life.Core().Template().MaxDelay(), former._iMaxDelay);
}

TEST_F(Requests, TellAccountsOfTheStateWhatConcernsEverybody) {
    EXPECT_EQ(AskAs(ALICE, "ping")["result"]["service"], "vukocrond");
    EXPECT_EQ(Ask("template")["result"]["values"].size(), 5U);
    const Json::Value jsStatus = Ask("status")["result"];
    EXPECT_EQ(jsStatus["now"].asInt64(), _life.Now());
    EXPECT_EQ(jsStatus["zone"], "UTC");
    EXPECT_EQ(jsStatus["policy"], "catchup");
    EXPECT_EQ(jsStatus["hibernating"], false);
    for (const char* const szMember : {"refused", "workedUpTo", "saved", "starts", "skips"}) {
        EXPECT_FALSE(jsStatus.isMember(szMember)) << szMember;
    }
}

TEST_F(Requests, CountJobsByTheirState) {
    for (const char* const szId : {"pkg/running", "pkg/waiting", "pkg/off", "pkg/spoiled"}) {
        Define(szId);
    }
    Define("pkg/pending", "root", "1 10 * * *");
    _scan.vecDefinitions[2].jsDefinition["enabled"] = false;
    _scan.vecDefinitions[2].strText = DefinitionToText(_scan.vecDefinitions[2].jsDefinition);
    Load();
    _scan.vecRefusals.push_back({"/pkg/spoiled.conf", "/pkg/spoiled.conf: is no definition", 1});
    _scan.vecDefinitions.erase(_scan.vecDefinitions.begin() + 3);
    const Json::Value jsReload = Ask("reload")["result"];
    EXPECT_EQ(jsReload["jobs"], 5);
    EXPECT_EQ(jsReload["refused"], 1);
    EXPECT_EQ(Ask("run", JobNamed("running"))["ok"], true);
    _life.Machine().iForksToFail = 1;
    _life.RunMinutes(1);
    const Json::Value jsStatus = Ask("status")["result"];
    for (const char* const szState : {"running", "waiting", "disabled", "invalid", "pending"}) {
        EXPECT_EQ(jsStatus["jobs"][szState], 1) << szState;
    }
    EXPECT_EQ(jsStatus["refused"], 1);
    EXPECT_EQ(jsStatus["starts"]["started"], 1);
    EXPECT_EQ(jsStatus["workedUpTo"].asInt64(), _life.Reading().iLocalMinute);
    EXPECT_EQ(Ask("refused")["result"]["items"][0]["text"], "/pkg/spoiled.conf: is no definition");
    EXPECT_EQ(_log.Take().size(), 2U); // the refusal, and the start by hand
}

TEST_F(Requests, TellWhatAProgramWouldFindAroundItOfWhomMaySeeTheJob) {
    Define("pkg/hers", "alice");
    Load();
    Json::Value jsAsked = JobNamed("hers");
    EXPECT_FALSE(AskAs(ALICE, "show", jsAsked)["result"].isMember("effective"));
    jsAsked["effective"] = true;
    const Json::Value jsEffective = AskAs(ALICE, "show", jsAsked)["result"]["effective"];
    EXPECT_EQ(jsEffective["account"], "alice");
    EXPECT_EQ(jsEffective["uid"].asUInt(), ALICE);
    EXPECT_EQ(jsEffective["groups"].size(), 2U);
    EXPECT_EQ(jsEffective["environment"]["HOME"], "/a=b");
    EXPECT_EQ(jsEffective["umask"], "0022");
    EXPECT_EQ(jsEffective["limits"]["nofile"]["soft"], 1024);
    EXPECT_TRUE(jsEffective["limits"]["nofile"]["hard"].isNull());
    EXPECT_EQ(jsEffective["output"]["to"], "/log/pkg/hers");
    EXPECT_EQ(CodeOf(AskAs(BOB, "show", jsAsked)), "not-found");
    _life.Machine().mapAccounts.erase("alice");
    EXPECT_TRUE(AskAs(ALICE, "show", jsAsked)["result"]["effective"].isNull());
}

TEST_F(Requests, GiveLongListsInPages) {
    for (int i = 0; i < 250; ++i) {
        Define("pkg/job" + std::to_string(1000 + i), i % 3 == 0 ? "alice" : "root");
    }
    Load();
    std::set<std::string> setIds;
    std::vector<Json::ArrayIndex> vecSizes;
    Json::Value jsNext = 0;
    while (!jsNext.isNull() && vecSizes.size() < 10) {
        const Json::Value jsPage = Ask("list", Member("from", jsNext))["result"];
        for (const Json::Value& jsItem : jsPage["items"]) {
            setIds.insert(jsItem["id"].asString());
        }
        vecSizes.push_back(jsPage["items"].size());
        jsNext = jsPage["next"];
    }
    EXPECT_EQ(vecSizes, (std::vector<Json::ArrayIndex>{100, 100, 50}));
    EXPECT_EQ(setIds.size(), 250U);
    EXPECT_EQ(Listed(ALICE).size(), 84U);
}

TEST_F(Requests, GiveAsMuchOfAListAsIsAskedFor) {
    for (int i = 0; i < 120; ++i) {
        Define("pkg/job" + std::to_string(1000 + i));
    }
    Load();
    Json::Value jsAsked = Member("from", 110);
    jsAsked["limit"] = 7;
    Json::Value jsPage = Ask("list", jsAsked)["result"];
    EXPECT_EQ(jsPage["items"].size(), 7U);
    EXPECT_EQ(jsPage["items"][0]["id"], "pkg/job1110");
    EXPECT_EQ(jsPage["next"], 117);
    EXPECT_EQ(Ask("list", Member("limit", 1000))["result"]["items"].size(), 100U);
    EXPECT_EQ(Ask("list", Member("limit", 0))["result"]["next"], 1) << "or whoever asks for the rest never ends";
    jsPage = Ask("list", Member("from", 119))["result"];
    EXPECT_EQ(jsPage["items"].size(), 1U);
    EXPECT_TRUE(jsPage["next"].isNull());
    jsPage = Ask("list", Member("from", 4'000'000'000U))["result"];
    EXPECT_EQ(jsPage["items"].size(), 0U);
    EXPECT_TRUE(jsPage["next"].isNull());
}

TEST_F(Requests, CutPagesSoThatTheyFitIntoAReply) {
    std::string strLong; // each of its characters takes six bytes of a reply
    for (int i = 0; i < 2000; ++i) {
        strLong += "\u00e4";
    }
    for (int i = 0; i < 60; ++i) {
        Define("pkg/job" + std::to_string(1000 + i));
        _scan.vecDefinitions.back().strFile = "/" + strLong + std::to_string(i);
    }
    Load();
    std::size_t uItems = 0;
    Json::Value jsNext = 0;
    for (int iPages = 0; !jsNext.isNull() && iPages < 60; ++iPages) {
        Send("list", Member("from", jsNext));
        const std::string strReply = _client->Receive().value_or("");
        EXPECT_LE(strReply.size(), Protocol::REPLY_BYTES_MAX);
        const Json::Value jsPage = DefinitionFromText(strReply)["result"];
        ASSERT_GT(jsPage["items"].size(), 1U) << strReply.substr(0, 200);
        uItems += jsPage["items"].size();
        jsNext = jsPage["next"];
    }
    EXPECT_EQ(uItems, 60U);
}

TEST_F(Requests, ListAlsoWhatTakesMoreRoomThanAReplyHas) {
    std::string strMinutes = "0";
    for (int i = 0; i < 60'000; ++i) {
        strMinutes += ",1";
    }
    Define("pkg/a");
    Define("pkg/b", "root", strMinutes + " 11 * * *");
    Define("pkg/c");
    Load();
    EXPECT_EQ(Listed(ROOT), (Texts{"pkg/a", "pkg/b", "pkg/c"}));
    const Json::Value jsItems = Ask("list")["result"]["items"];
    EXPECT_EQ(jsItems[0]["schedule"], "1 11 -1 -1 -1");
    EXPECT_TRUE(jsItems[1]["schedule"].isNull());
    EXPECT_EQ(jsItems[1]["words"], "at 11:00, 11:01");
}

TEST_F(Requests, FindJobsByNameAloneOnlyWhereNoOtherHasIt) {
    Define("builtin/a");
    Define("pkg/a");
    Define("pkg/only");
    Define("pkg_nonroot/music/index", "bob");
    Define("pkg_nonroot/photos/index", "alice");
    Load();
    for (const char* const szId : {"builtin/a", "pkg/a", "pkg_nonroot/music/index", "pkg_nonroot/photos/index"}) {
        EXPECT_EQ(Ask("show", JobNamed(szId))["result"]["id"], szId);
    }
    EXPECT_EQ(Ask("show", JobNamed("only"))["result"]["id"], "pkg/only");
    const Json::Value jsReply = Ask("show", JobNamed("a"));
    EXPECT_EQ(CodeOf(jsReply), "ambiguous");
    EXPECT_EQ(MessageOf(jsReply), "several jobs are named \"a\": builtin/a, pkg/a");
    EXPECT_EQ(CodeOf(Ask("show", JobNamed("index"))), "ambiguous");
    EXPECT_EQ(AskAs(ALICE, "show", JobNamed("index"))["result"]["id"], "pkg_nonroot/photos/index");
    for (const char* const szJob : {"", "/", "pkg/", "/a", "music/index", "pkg_nonroot/index", "pkg//a", "pkg/a/"}) {
        EXPECT_EQ(CodeOf(AskAs(ROOT, "show", JobNamed(szJob))), "not-found") << szJob;
    }
}

TEST_F(Requests, RefuseMembersOfAWrongKind) {
    Define("pkg/a");
    Load();
    Json::Value jsRun = JobNamed("a");
    jsRun["wait"] = 1;
    const std::pair<const char*, Json::Value> aRequests[] = {{"nonsense", Json::Value(Json::objectValue)},
                                                             {"show", Json::Value(Json::objectValue)},
                                                             {"show", Member("job", 7)},
                                                             {"history", Member("job", Json::Value())},
                                                             {"list", Member("from", "1")},
                                                             {"list", Member("from", -1)},
                                                             {"list", Member("limit", 1.5)},
                                                             {"list", Member("limit", Json::Value(Json::arrayValue))},
                                                             {"run", jsRun},
                                                             {"role", Member("set", "on")},
                                                             {"role", Member("set", Json::Value())},
                                                             {"template", Member("maxDelay", "5")},
                                                             {"template", Member("maxDelay", -1)},
                                                             {"template", Member("maxDelay", Json::Value())},
                                                             {"drain", Member("on", "yes")}};
    for (const auto& [szVerb, jsMembers] : aRequests) {
        const Json::Value jsReply = Ask(szVerb, jsMembers);
        EXPECT_EQ(CodeOf(jsReply), "bad-request") << szVerb << " " << DefinitionToText(jsMembers);
        EXPECT_EQ(jsReply["id"], "mark");
    }
    EXPECT_EQ(Launches(), 0U);
    EXPECT_FALSE(_life.Core().IsDraining());
    EXPECT_EQ(Ask("list", Member("from", Json::Value()))["result"]["items"].size(), 1U);
}

} // namespace
