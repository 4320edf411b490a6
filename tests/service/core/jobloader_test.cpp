#include "service/jobloader.h"

#include <gtest/gtest.h>

#include <random>
#include <set>
#include <string>
#include <vector>

#include "tests/sim/core_life.h"
#include "tests/support/captured_syslog.h"

using namespace VUKO::VUKOCrond;
using namespace VUKO::VUKOCrond::Service;
using sim::DefinitionOf;

namespace {

constexpr std::int64_t NOW = 1'000'000;

JobId IdOf(const std::string& strName) {
    return {"pkg", "", strName};
}

Definition Found(const Json::Value& jsDefinition, const std::string& strFile = "/d/job.conf") {
    return {IdOf(jsDefinition["name"].asString()), strFile, strFile, jsDefinition, DefinitionToText(jsDefinition)};
}

/// Loading, one time after the other, as the core does it.
class Loading : public ::testing::Test {
protected:
    LoadReport Load(std::vector<Definition> vecDefinitions, std::vector<Refusal> vecRefusals = {}) {
        LoadResult result =
            LoadJobs({std::move(vecDefinitions), std::move(vecRefusals)}, _table, _mapKnown, _template, _iNow);
        _vecStored = result.vecToStore;
        _table = JobTable(std::move(result.vecJobs));
        for (const StoredJob& stored : result.vecGone) {
            _mapKnown.insert_or_assign(stored.id, stored);
        }
        for (const Service::Job& job : _table.Jobs()) {
            _mapKnown.erase(job.id);
        }
        return result.report;
    }
    /// The service starts anew with what is kept.
    void StartCold() {
        for (const Service::Job& job : _table.Jobs()) {
            _mapKnown.insert_or_assign(job.id, ToStored(job));
        }
        _table = JobTable();
    }
    const Service::Job& Job(const std::string& strName = "job") const {
        const Service::Job* const pJob = _table.Find(IdOf(strName));
        if (pJob == nullptr) {
            throw std::out_of_range("no job " + strName);
        }
        return *pJob;
    }
    std::vector<int> Values(std::size_t uField) const { return ScheduleValues(Job().strSchedule)[uField]; }
    void Change(const std::function<void(Service::Job&)>& change) {
        _table.Modify(_table.IndexOf(IdOf("job")), change);
    }

    support::CapturedSyslog _log;
    ScheduleTemplate _template;
    JobTable _table;
    KnownJobs _mapKnown;
    std::vector<JobId> _vecStored;
    std::int64_t _iNow = NOW;
};

TEST_F(Loading, BuildsAJobWithASchedule) {
    const LoadReport report = Load({Found(DefinitionOf("job", "5 ~ * * 1"))});
    EXPECT_EQ(report.uJobs, 1U);
    EXPECT_EQ(report.uNew, 1U);
    EXPECT_EQ(Job().iStartup, NOW);
    EXPECT_EQ(Job().iLastExecution, Job::NEVER);
    EXPECT_EQ(Job().strAccount, "root");
    EXPECT_EQ(Values(0), std::vector<int>{5});
    EXPECT_EQ(Values(1).size(), 1U);
    EXPECT_EQ(Values(2), std::vector<int>{-1});
    EXPECT_EQ(_vecStored, std::vector<JobId>{IdOf("job")});
}

TEST_F(Loading, KeepsEverythingOfAJobWhoseDefinitionIsAsBefore) {
    Load({Found(DefinitionOf("job", "~ ~ ~ ~ ~"))});
    Change([](Service::Job& job) {
        job.iLastExecution = 1000;
        job.uPendingRun = 7;
        job.uRunning = 2;
        job.pidRunning = 99;
        job.bOverdueReported = true;
    });
    const Service::Job before = Job();
    const LoadReport report = Load({Found(DefinitionOf("job", "~ ~ ~ ~ ~"))});
    EXPECT_EQ(report.uKept, 1U);
    EXPECT_FALSE(report.HasChanged());
    EXPECT_TRUE(_vecStored.empty());
    EXPECT_EQ(Job().strSchedule, before.strSchedule);
    EXPECT_EQ(Job().iLastExecution, 1000);
    EXPECT_EQ(Job().uPendingRun, 7U);
    EXPECT_EQ(Job().uRunning, 2U);
    EXPECT_EQ(Job().pidRunning, 99);
    EXPECT_TRUE(Job().bOverdueReported);
}

TEST_F(Loading, KeepsAJobWhoseFileWasRenamedAndRemembersTheFile) {
    Load({Found(DefinitionOf("job", "~ ~ ~ ~ ~"))});
    EXPECT_EQ(Load({Found(DefinitionOf("job", "~ ~ ~ ~ ~"), "/d/renamed.conf")}).uKept, 1U);
    EXPECT_EQ(Job().strFile, "/d/renamed.conf");
    EXPECT_EQ(_vecStored, std::vector<JobId>{IdOf("job")});
}

/// One edit of a definition, and whether it says something else after it.
struct Edit {
    const char* szName;
    const char* szMember;
    const char* szValue; ///< JSON; empty: the member is taken out
    bool bIsChange;
};

class LoadingAfterAnEdit : public Loading, public ::testing::WithParamInterface<Edit> {};

TEST_P(LoadingAfterAnEdit, TellsAChangeInBothDirections) {
    Json::Value jsDefinition = DefinitionOf("job", "~ ~ 1~28 * ~");
    Json::Value jsEdited = jsDefinition;
    jsEdited[GetParam().szMember] = DefinitionFromText(GetParam().szValue);
    for (int i = 0; i < 2; ++i) {
        Load({Found(jsDefinition)});
        const std::string strSchedule = Job().strSchedule;
        const LoadReport report = Load({Found(jsEdited)});
        EXPECT_EQ(report.uChanged, GetParam().bIsChange ? 1U : 0U);
        EXPECT_EQ(report.uKept, GetParam().bIsChange ? 0U : 1U);
        EXPECT_EQ(Job().strSchedule, strSchedule);
        std::swap(jsDefinition, jsEdited);
        _table = JobTable();
        _mapKnown.clear();
    }
}

INSTANTIATE_TEST_SUITE_P(, LoadingAfterAnEdit,
                         ::testing::Values(Edit{"ByDefaultItIsEnabled", "enabled", "true", false},
                                           Edit{"Disabled", "enabled", "false", true},
                                           Edit{"ByDefaultItSkips", "overlap", "\"skip\"", false},
                                           Edit{"Overlap", "overlap", "\"allow\"", true},
                                           Edit{"ByDefaultThereIsNoTimeout", "timeout", "0", false},
                                           Edit{"Timeout", "timeout", "9", true},
                                           Edit{"ByDefaultNothingIsAssured", "assure_execute", "0", false},
                                           Edit{"Assured", "assure_execute", "4", true},
                                           Edit{"ByDefaultItWaits", "assure_execute_action", "\"wait\"", false},
                                           Edit{"RunsWhenOverdue", "assure_execute_action", "\"run\"", true},
                                           Edit{"ByDefaultItDoesNotRunOnPassive", "run_on_passive", "false", false},
                                           Edit{"RunsOnPassive", "run_on_passive", "true", true},
                                           Edit{"ByDefaultItHasNoDescription", "description", "\"\"", false},
                                           Edit{"Description", "description", "\"x\"", true},
                                           Edit{"Command", "cmd", "\"/bin/false\"", true}),
                         [](const auto& edit) { return std::string(edit.param.szName); });

TEST_F(Loading, RedrawsOnlyTheFieldsThatWereEdited) {
    Load({Found(DefinitionOf("job", "~ ~ 1~28 * ~"))});
    const auto beside = [this](const char* szType, int iFrom, int iCount) {
        return std::to_string((_template.GetGeneratedSchedule(szType) - iFrom + 1) % iCount + iFrom) + " ";
    };
    Change([&](Service::Job& job) {
        job.iLastExecution = 1000;
        // Not the template's values: those would come again.
        job.strSchedule = beside(SZK_MINUTE, 0, 60) + beside(SZK_HOUR, 0, 24) + beside(SZK_DAY, 1, 28) + "-1 " +
                          std::to_string((_template.GetGeneratedSchedule(SZK_WEEK) + 1) % 7);
    });
    const std::vector<std::vector<int>> vecBefore = ScheduleValues(Job().strSchedule);
    _iNow += 50;
    EXPECT_EQ(Load({Found(DefinitionOf("job", "~ 7 1~28 * ~"))}).uChanged, 1U);
    for (const std::size_t uField : {0U, 2U, 3U, 4U}) {
        EXPECT_EQ(Values(uField), vecBefore[uField]) << uField;
    }
    EXPECT_EQ(Values(1), std::vector<int>{7});
    EXPECT_EQ(Job().iLastExecution, 1000);
    EXPECT_EQ(Job().iStartup, NOW);
}

TEST_F(Loading, DrawsAnewWhenARangeChanges) {
    // Where the template's minute does not fit: that would be the same each time.
    const std::string strFrom = _template.GetGeneratedSchedule(SZK_MINUTE) < 30 ? "30~" : "0~";
    const int iTo = strFrom == "30~" ? 59 : 29;
    std::set<int> setDrawn;
    for (int i = 0; i < 40; ++i) { // the same value 40 times: less than one in 10^50
        Load({Found(DefinitionOf("job", strFrom + std::to_string(iTo - i % 2) + " * * * *"))});
        setDrawn.insert(Values(0).front());
    }
    EXPECT_GT(setDrawn.size(), 1U);
}

TEST_F(Loading, TakesTheTemplatesValuesWhereTheyFit) {
    const int iMinute = _template.GetGeneratedSchedule(SZK_MINUTE);
    const std::string strOther = iMinute < 30 ? "30~59" : "0~29";
    Load({Found(DefinitionOf("job", "~ * * * *")), Found(DefinitionOf("other", strOther + " * * * *"), "/d/o.conf")});
    EXPECT_EQ(Values(0), std::vector<int>{iMinute});
    EXPECT_NE(ScheduleValues(Job("other").strSchedule)[0], std::vector<int>{iMinute});
}

TEST_F(Loading, FindsTheValuesOfAJobAgainThatWasGone) {
    Load({Found(DefinitionOf("job", "~,~ ~,~ ~,~ ~,~ ~,~")), Found(DefinitionOf("b", "* * * * *"), "/d/b.conf")});
    const std::string strSchedule = Job().strSchedule;
    LoadReport report = Load({Found(DefinitionOf("b", "* * * * *"), "/d/b.conf")});
    EXPECT_EQ(report.uGone, 1U);
    EXPECT_EQ(report.uKept, 1U);
    EXPECT_EQ(_table.Size(), 1U);
    EXPECT_EQ(_mapKnown.at(IdOf("job")).iGoneSince, NOW);
    _iNow += 1000;
    report =
        Load({Found(DefinitionOf("job", "~,~ ~,~ ~,~ ~,~ ~,~")), Found(DefinitionOf("b", "* * * * *"), "/d/b.conf")});
    EXPECT_EQ(report.uNew, 1U);
    EXPECT_EQ(Job().strSchedule, strSchedule);
    EXPECT_EQ(Job().iStartup, NOW);
}

TEST_F(Loading, TellsJobsOfOneNameApartByFolderAndPackage) {
    std::vector<Definition> vecDefinitions(3, Found(DefinitionOf("job", "* * * * *")));
    vecDefinitions[1].id = {"pkg_nonroot", "photos", "job"};
    vecDefinitions[2].id = {"pkg_nonroot", "videos", "job"};
    const LoadReport report = Load(vecDefinitions);
    EXPECT_EQ(report.uJobs, 3U);
    EXPECT_TRUE(report.vecRefusals.empty());
}

TEST_F(Loading, RefusesTheSecondDefinitionOfAJobAndNamesBothFiles) {
    for (int i = 0; i < 2; ++i) { // also when the first is kept
        const LoadReport report = Load({Found(DefinitionOf("job", "1 * * * *"), "/d/a.conf"),
                                        Found(DefinitionOf("job", "2 * * * *"), "/d/b.conf")});
        ASSERT_EQ(report.vecRefusals.size(), 1U);
        EXPECT_EQ(report.vecRefusals[0].strFile, "/d/b.conf");
        EXPECT_EQ(report.vecRefusals[0].strText, R"(/d/b.conf: field "name": "job" is defined in /d/a.conf already)");
        EXPECT_EQ(Values(0), std::vector<int>{1});
    }
}

TEST_F(Loading, PassesTheRefusalsOfTheScanOn) {
    const Refusal refusal{"/d/bad.conf", "/d/bad.conf: is not JSON", 5};
    EXPECT_EQ(Load({}, {refusal}).vecRefusals, std::vector<Refusal>{refusal});
}

TEST_F(Loading, KnowsAJobStillWhoseFileIsRefused) {
    Load({Found(DefinitionOf("job", "~ ~ ~ ~ ~"))});
    Change([](Service::Job& job) {
        job.uRunning = 1;
        job.uPendingRun = 4;
        job.iLastExecution = 77;
    });
    const std::string strSchedule = Job().strSchedule;
    const std::vector<Refusal> vecRefusals = {{"/d/job.conf", "/d/job.conf: is not JSON", 5}};
    const LoadReport report = Load({}, vecRefusals);
    EXPECT_EQ(report.uInvalid, 1U);
    EXPECT_EQ(report.uJobs, 0U);
    EXPECT_EQ(report.uGone, 0U);
    EXPECT_TRUE(Job().bInvalid);
    EXPECT_EQ(Job().strSchedule, strSchedule);
    EXPECT_EQ(Job().uRunning, 1U);
    EXPECT_EQ(Job().uPendingRun, 4U);
    const Service::Job warm = Job();
    StartCold();
    Load({}, vecRefusals);
    EXPECT_TRUE(Job().bInvalid);
    EXPECT_EQ(ToStored(Job()).strSchedule, ToStored(warm).strSchedule);
    EXPECT_EQ(Job().iLastExecution, 77);
    EXPECT_EQ(Load({Found(DefinitionOf("job", "~ ~ ~ ~ ~"))}).uNew, 1U);
    EXPECT_FALSE(Job().bInvalid);
    EXPECT_EQ(Job().strSchedule, strSchedule);
}

TEST_F(Loading, KeepsACommandOnOneLineOfTheExecutionLog) {
    Json::Value jsDefinition = DefinitionOf("job", "* * * * *");
    jsDefinition["cmd_list"].append("/bin/sh");
    jsDefinition["cmd_list"].append("-c");
    jsDefinition["cmd_list"].append("true\ntrue");
    Load({Found(jsDefinition)});
    const CronJob record = BuildRecord(Job());
    EXPECT_EQ(record._jsJob["cmd_str"].asString(), "/bin/sh -c true\\x0atrue ");
    EXPECT_EQ(record._jsJob["cmd_list"][2].asString(), "true\ntrue");
    EXPECT_EQ(Load({Found(jsDefinition)}).uKept, 1U);
}

TEST_F(Loading, DrawsAllValuesAnewOnRequest) {
    Load({Found(DefinitionOf("job", "~,~,~ ~,~,~ 5 * *"))});
    const std::string strValues = Rerolled(Job());
    EXPECT_NE(strValues, Job().strSchedule); // the same by chance: one in 2 * 10^9
    EXPECT_EQ(ScheduleValues(strValues)[2], std::vector<int>{5});
}

/// Everything that a loaded job is, but how it came to be.
std::string Everything(const Service::Job& job) {
    return ToText(job.id) + "|" + job.strFile + "|" + job.strDefinition + "|" + job.strFields + "|" + job.strSchedule +
           "|" + job.strAccount + "|" + std::to_string(job.iStartup) + "|" + std::to_string(job.iLastExecution) + "|" +
           std::to_string(job.iAssureHours) + "|" + std::to_string(job.iTimeout) + "|" +
           std::to_string(job.bAssureRun << 6 | job.bRunOnPassive << 5 | job.bRandomMinute << 4 | job.bEnabled << 3 |
                          job.bAllowOverlap << 2 | job.bInvalid << 1 | job.bOverdueReported);
}

TEST_F(Loading, GivesAfterAnyEditsWhatAColdStartGives) {
    std::mt19937 random(20'260'301);
    const auto draw = [&random](int iMany) { return std::uniform_int_distribution<int>(0, iMany - 1)(random); };
    const char* const aFields[] = {"~", "5", "*", "3~9", "~,~"};
    for (int iStep = 0; iStep < 150; ++iStep) {
        std::vector<Definition> vecDefinitions;
        std::vector<Refusal> vecRefusals;
        for (int iJob = 0; iJob < 5; ++iJob) {
            const std::string strName = "job" + std::to_string(iJob);
            const std::string strFile = "/d/" + std::string(draw(6) == 0 ? "other" : "") + strName + ".conf";
            if (const int iWhat = draw(8); iWhat == 0) {
                vecRefusals.push_back({strFile, strFile + ": is not JSON", 1});
                continue;
            } else if (iWhat == 1) {
                continue;
            }
            Json::Value jsDefinition = DefinitionOf(strName, std::string(aFields[draw(5)]) + " " + aFields[draw(5)] +
                                                                 " * * " + (draw(2) == 0 ? "0~5" : "*"));
            if (draw(2) == 0) {
                jsDefinition["enabled"] = draw(2) == 0;
                jsDefinition["timeout"] = draw(3);
                jsDefinition["assure_execute"] = draw(2);
            }
            vecDefinitions.push_back(Found(jsDefinition, strFile));
        }
        ++_iNow;
        Load(vecDefinitions, vecRefusals);
        std::vector<std::string> vecWarm;
        for (const Service::Job& job : _table.Jobs()) {
            vecWarm.push_back(Everything(job));
        }
        const JobTable warm = _table;
        const KnownJobs mapKnown = _mapKnown;
        StartCold();
        Load(vecDefinitions, vecRefusals);
        std::vector<std::string> vecCold;
        for (const Service::Job& job : _table.Jobs()) {
            vecCold.push_back(Everything(job));
        }
        ASSERT_EQ(vecCold, vecWarm) << "step " << iStep;
        if (draw(2) == 0) { // go on warm
            _table = warm;
            _mapKnown = mapKnown;
        }
    }
}

} // namespace
