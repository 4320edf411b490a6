#include "service/engine/jobtable.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <set>

#include "service/engine/clockreading.h"
#include "tests/service/engine/engine_jobs.h"

using namespace VUKO::VUKOCrond::Service;
using engine_test::JobOf;
using engine_test::LocalMinute;
using engine_test::TableOf;

namespace {

std::vector<JobIndex> MatchingAt(const JobTable& table, const WallMinute& wall) {
    std::vector<JobIndex> vecMatching;
    table.Matching(wall, vecMatching);
    std::sort(vecMatching.begin(), vecMatching.end());
    return vecMatching;
}

/// A field's generated values: "any", one, few or many of them, "any" among others, or none.
std::string RandomField(std::mt19937& random, int iFirst, int iLast) {
    const auto draw = [&random](int iFrom, int iTo) { return std::uniform_int_distribution<int>(iFrom, iTo)(random); };
    switch (draw(0, 9)) {
    case 0:
    case 1:
    case 2:
        return "-1";
    case 3:
        return "X";
    case 4:
        return std::to_string(draw(iFirst, iLast)) + ",-1";
    default:
        break;
    }
    std::string strField = std::to_string(draw(iFirst, iLast));
    for (int iMore = draw(0, 3) == 0 ? draw(5, 80) : draw(0, 2); iMore > 0; --iMore) {
        strField += "," + std::to_string(draw(iFirst, iLast));
    }
    return strField;
}

JobTable RandomTable(std::mt19937& random, int iJobs) {
    std::vector<Job> vecJobs;
    for (int i = 0; i < iJobs; ++i) {
        Job job;
        job.id = {"pkg", "", "job" + std::to_string(i)};
        job.strSchedule = RandomField(random, 0, 59) + " " + RandomField(random, 0, 23) + " " +
                          RandomField(random, 1, 31) + " " + RandomField(random, 1, 12) + " " +
                          RandomField(random, 0, 6);
        job.schedule = Schedule(job.strSchedule);
        vecJobs.push_back(std::move(job));
    }
    return TableOf(std::move(vecJobs));
}

TEST(JobTableMatching, FindsEveryJobThatMatchesOnceAndNoOther) {
    std::mt19937 random(7);
    const JobTable table = RandomTable(random, 300);
    std::size_t uMatches = 0;
    const std::int64_t iFrom = LocalMinute(2028, 2, 28, 0, 0);
    for (std::int64_t iMinute = iFrom; iMinute < iFrom + 3 * 24 * 60; ++iMinute) {
        const WallMinute wall = WallMinuteOf(iMinute);
        std::vector<JobIndex> vecExpected;
        for (JobIndex uJob = 0; uJob < table.Size(); ++uJob) {
            if (table.At(uJob).schedule.Matches(wall)) {
                vecExpected.push_back(uJob);
            }
        }
        ASSERT_EQ(MatchingAt(table, wall), vecExpected) << iMinute;
        uMatches += vecExpected.size();
    }
    EXPECT_GT(uMatches, 1'000U);
}

TEST(JobTableMatching, FindsManyOfOneTime) {
    std::vector<Job> vecJobs;
    for (int i = 0; i < 1000; ++i) {
        vecJobs.push_back(JobOf("job" + std::to_string(i), "7 3 * * *"));
    }
    const JobTable table = TableOf(std::move(vecJobs));
    EXPECT_TRUE(MatchingAt(table, {8, 3, 1, 1, 1}).empty());
    EXPECT_TRUE(MatchingAt(table, {7, 4, 1, 1, 1}).empty());
    EXPECT_EQ(MatchingAt(table, {7, 3, 1, 1, 1}).size(), 1000U);
}

TEST(JobTableMatching, AddsToWhatIsThere) {
    const JobTable table = TableOf({JobOf("job", "* * * * *")});
    std::vector<JobIndex> vecMatching = {42};
    table.Matching({0, 0, 1, 1, 0}, vecMatching);
    EXPECT_EQ(vecMatching, (std::vector<JobIndex>{42, 0}));
}

TEST(JobTableOrder, IsThatOfTheIdentities) {
    std::vector<Job> vecJobs = {JobOf("b", "* * * * *"), JobOf("c", "* * * * *"), JobOf("a", "* * * * *")};
    vecJobs[1].id.strFolder = "built_in";
    const JobTable table = TableOf(std::move(vecJobs));
    ASSERT_EQ(table.Size(), 3U);
    EXPECT_EQ(table.At(0).id.strName, "c");
    EXPECT_EQ(table.At(1).id.strName, "a");
    EXPECT_EQ(table.At(2).id.strName, "b");
    EXPECT_EQ(table.IndexOf(JobId{"pkg", "", "b"}), 2U);
    EXPECT_EQ(table.IndexOf(JobId{"pkg", "photos", "b"}), table.Size());
    ASSERT_NE(table.Find(JobId{"pkg", "", "a"}), nullptr);
    EXPECT_EQ(table.Find(JobId{"built_in", "", "a"}), nullptr);
}

TEST(JobTableKeys, LeadToTheJob) {
    std::vector<Job> vecJobs = {JobOf("b", "* * * * *"), JobOf("a", "* * * * *")};
    vecJobs[0].iKey = 17;
    JobTable table = TableOf(std::move(vecJobs));
    EXPECT_EQ(table.IndexOf(17), 1U);
    EXPECT_EQ(table.IndexOf(18), table.Size());
    EXPECT_EQ(table.IndexOf(std::int64_t{0}), table.Size());
    table.SetKey(0, 18);
    EXPECT_EQ(table.IndexOf(18), 0U);
    EXPECT_EQ(table.At(0).iKey, 18);
}

std::vector<JobIndex> OverdueAt(const JobTable& table, std::int64_t iNow) {
    std::vector<JobIndex> vecOverdue;
    table.ForEachOverdue(iNow, [&](JobIndex uJob) { vecOverdue.push_back(uJob); });
    return vecOverdue;
}

TEST(JobTableGuarantees, AreKeptInOrderThroughRandomChanges) {
    std::mt19937 random(11);
    const auto draw = [&random](int iFrom, int iTo) { return std::uniform_int_distribution<int>(iFrom, iTo)(random); };
    std::vector<Job> vecJobs;
    for (int i = 0; i < 40; ++i) {
        vecJobs.push_back(JobOf("job" + std::to_string(i), "* * * * *"));
        vecJobs.back().iAssureHours = i % 5 == 0 ? 0 : draw(-3, 30);
        vecJobs.back().bAssureRun = i % 2 == 0;
        vecJobs.back().iStartup = draw(0, 100'000);
    }
    JobTable table = TableOf(std::move(vecJobs));
    for (int iRound = 0; iRound < 1000; ++iRound) {
        table.Modify(static_cast<JobIndex>(draw(0, 39)), [&](Job& job) {
            job.iLastExecution = draw(0, 4) == 0 ? Job::NEVER : draw(0, 200'000);
            job.bOverdueReported = draw(0, 3) == 0;
            job.bInvalid = draw(0, 9) == 0;
            job.bEnabled = draw(0, 9) != 0;
            job.uPendingRun = static_cast<RunId>(draw(0, 1));
        });
        const std::int64_t iNow = draw(0, 300'000);
        std::set<JobIndex> setOverdue;
        std::set<JobIndex> setPending;
        for (JobIndex uJob = 0; uJob < table.Size(); ++uJob) {
            const Job& job = table.At(uJob);
            const std::int64_t iBase = job.iLastExecution == Job::NEVER ? job.iStartup : job.iLastExecution;
            const bool bListed = job.bEnabled && !job.bInvalid && (job.bAssureRun || !job.bOverdueReported);
            if (job.iAssureHours != 0 && bListed && iNow > iBase + job.iAssureHours * 3600) {
                setOverdue.insert(uJob);
            }
            if (job.uPendingRun != 0) {
                setPending.insert(uJob);
            }
        }
        const std::vector<JobIndex> vecOverdue = OverdueAt(table, iNow);
        ASSERT_EQ(std::set<JobIndex>(vecOverdue.begin(), vecOverdue.end()), setOverdue) << iRound;
        ASSERT_EQ(vecOverdue.size(), setOverdue.size()) << iRound;
        ASSERT_EQ(table.Pending(), setPending) << iRound;
        const auto isEarlier = [&](JobIndex a, JobIndex b) {
            return table.At(a).AssureLimit() < table.At(b).AssureLimit();
        };
        ASSERT_TRUE(std::is_sorted(vecOverdue.begin(), vecOverdue.end(), isEarlier)) << iRound;
    }
}

TEST(JobTableGuarantees, CanBeLookedAtAll) {
    std::vector<Job> vecJobs = {JobOf("a", "* * * * *"), JobOf("b", "* * * * *"), JobOf("c", "* * * * *")};
    vecJobs[0].iAssureHours = 1;
    vecJobs[2].iAssureHours = -1;
    std::vector<JobIndex> vecAssured;
    TableOf(std::move(vecJobs)).ForEachAssured([&](JobIndex uJob) { vecAssured.push_back(uJob); });
    EXPECT_EQ(vecAssured, (std::vector<JobIndex>{0, 2}));
}

} // namespace
