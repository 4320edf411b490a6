#include "service/engine/schedule.h"

#include <gtest/gtest.h>

#include <random>

#include "service/engine/clockreading.h"
#include "tests/service/engine/engine_jobs.h"

using namespace VUKO::VUKOCrond;
using namespace VUKO::VUKOCrond::Service;
using engine_test::Definition;
using engine_test::RecordOf;

namespace {

/// A field's values as every clock could show them, and some more.
struct Domain {
    int iFirst;
    int iLast;
    int WallMinute::*pValue;
};

constexpr Domain DOMAINS[] = {{0, 59, &WallMinute::iMinute},
                              {0, 23, &WallMinute::iHour},
                              {1, 31, &WallMinute::iDay},
                              {1, 12, &WallMinute::iMonth},
                              {0, 6, &WallMinute::iWeekday}};

/// A record without a definition's limits: the generated values are put in as they are.
CronJob RecordWith(std::size_t uField, const std::vector<int>& vecValues) {
    CronJob record = RecordOf(Definition("job", "* * * * *"));
    Json::Value jsValues(Json::arrayValue);
    for (const int iValue : vecValues) {
        jsValues.append(iValue);
    }
    record._jsJob["schedule"][CronJob::GetAllScheduleTypes()[uField]] = jsValues;
    return record;
}

/// Holds the schedule's answer against the library's for each value that a clock can show in one field.
void ExpectAgreement(std::size_t uField, const std::vector<int>& vecValues) {
    const CronJob record = RecordWith(uField, vecValues);
    const std::string strText = ScheduleToText(record);
    SCOPED_TRACE(strText);
    const Schedule schedule(strText);
    const std::string& strType = CronJob::GetAllScheduleTypes()[uField];
    for (int iValue = DOMAINS[uField].iFirst; iValue <= DOMAINS[uField].iLast; ++iValue) {
        WallMinute wall;
        wall.*DOMAINS[uField].pValue = iValue;
        ASSERT_EQ(schedule.Matches(wall), record.IsTypeReady(record._jsJob["schedule"], strType, iValue)) << iValue;
    }
}

TEST(ScheduleField, AnswersAsTheLibraryDoesForEverySingleValue) {
    for (std::size_t uField = 0; uField < std::size(DOMAINS); ++uField) {
        for (int iValue = -3; iValue <= 130; ++iValue) {
            ExpectAgreement(uField, {iValue});
        }
        ExpectAgreement(uField, {});
    }
}

TEST(ScheduleField, AnswersAsTheLibraryDoesForListsOfAnyValues) {
    std::mt19937 random(20'260'101);
    std::uniform_int_distribution<int> drawCount(0, 8);
    std::uniform_int_distribution<int> drawValue(-2, 70);
    for (std::size_t uField = 0; uField < std::size(DOMAINS); ++uField) {
        for (int iRound = 0; iRound < 300; ++iRound) {
            std::vector<int> vecValues(static_cast<std::size_t>(drawCount(random)));
            for (int& iValue : vecValues) {
                iValue = drawValue(random);
            }
            ExpectAgreement(uField, vecValues);
        }
    }
}

TEST(ScheduleOfAllFields, MatchesOnlyWhenEachDoes) {
    const Schedule schedule("7 3 15 6 2");
    const WallMinute hit{7, 3, 15, 6, 2};
    EXPECT_TRUE(schedule.Matches(hit));
    for (const Domain& domain : DOMAINS) {
        WallMinute miss = hit;
        miss.*domain.pValue += 1;
        EXPECT_FALSE(schedule.Matches(miss));
    }
}

TEST(ScheduleOfAllFields, JoinsDayOfMonthAndWeekdayByAnd) {
    const Schedule schedule("0 0 13 -1 5");
    EXPECT_TRUE(schedule.Matches({0, 0, 13, 2, 5}));
    EXPECT_FALSE(schedule.Matches({0, 0, 13, 2, 4}));
    EXPECT_FALSE(schedule.Matches({0, 0, 12, 2, 5}));
}

TEST(ScheduleKind, IsWildcardWhereMinuteOrHourHoldsAnyInAnyPlace) {
    struct {
        const char* szText;
        bool bWildcard;
    } const aCases[] = {
        {"-1 3 -1 -1 -1", true},     {"3 -1 -1 -1 -1", true}, {"-1 -1 1 1 1", true},   {"5,-1 3 -1 -1 -1", true},
        {"5 1,2,-1 -1 -1 -1", true}, {"-1,5 3 1 1 1", true},  {"5 3 -1 -1 -1", false}, // the days do not count
        {"0,30 1,2,3 4 5 6", false}, {"X 3 -1 -1 -1", false}, {"X X X X X", false},
    };
    for (const auto& tested : aCases) {
        EXPECT_EQ(Schedule(tested.szText).IsWildcard(), tested.bWildcard) << tested.szText;
    }
}

TEST(ScheduleKind, OfAListOfAllMinutesOrOfAllHoursIsFixed) {
    std::string strMinutes;
    for (int i = 0; i < 60; ++i) {
        strMinutes += (i == 0 ? "" : ",") + std::to_string(i);
    }
    EXPECT_FALSE(Schedule(strMinutes + " 3 -1 -1 -1").IsWildcard());
    EXPECT_FALSE(
        Schedule(strMinutes + " 0,1,2,3,4,5,6,7,8,9,10,11,12,13,14,15,16,17,18,19,20,21,22,23 -1 -1 -1").IsWildcard());
}

TEST(ScheduleKind, OfARandomItemIsFixed) {
    EXPECT_FALSE(Schedule(ScheduleToText(RecordOf(Definition("job", "~ ~ * * *")))).IsWildcard());
    EXPECT_TRUE(Schedule(ScheduleToText(RecordOf(Definition("job", "~ * * * *")))).IsWildcard());
}

TEST(ScheduleText, ThatIsNoneMatchesNothing) {
    for (const char* const szText :
         {"", "-1", "-1 -1 -1 -1", "-1 -1 -1 -1 -1 -1", " -1 -1 -1 -1 -1", "-1 -1 -1 -1 ", "* * * * *", "-1 -1 -1 -1 a",
          "1, -1 -1 -1 -1", ",1 -1 -1 -1 -1", "-1  -1 -1 -1", "1,X -1 -1 -1 -1", "99999999999 -1 -1 -1 -1",
          "-1 -1 -1 -1 -1 ", "-1 -1 -1 -1 --1"}) {
        SCOPED_TRACE(szText);
        const Schedule schedule{std::string(szText)};
        EXPECT_EQ(schedule, Schedule());
        EXPECT_FALSE(schedule.Matches({0, 0, 1, 1, 0}));
        EXPECT_TRUE(ScheduleValues(szText).empty());
        CronJob record = RecordOf(Definition("job", "1 2 3 4 5"));
        EXPECT_FALSE(ScheduleFromText(record, szText));
        EXPECT_EQ(ScheduleToText(record), "1 2 3 4 5");
    }
}

TEST(ScheduleText, BringsTheValuesBackAsTheyWere) {
    for (const char* const szText : {"7 3 -1 -1 -1", "0,30 1,2,3 31 12 6", "5,-1,5 -1 -1 -1 0", "X -1 -1 -1 -1",
                                     "X X X X X", "0 0 1 1 0", "61 -1 99 -7 2147483647"}) {
        CronJob record = RecordOf(Definition("job", "1 2 3 4 5"));
        ASSERT_TRUE(ScheduleFromText(record, szText)) << szText;
        EXPECT_EQ(ScheduleToText(record), szText);
    }
}

TEST(ScheduleText, KeepsWhatWasDrawn) {
    for (const char* const szCrontab : {"~ ~ ~ ~ ~", "10~20 1,2,~ * * 1~5", "*,5 ~ 1~31 * *", "0 0 1 1 0"}) {
        for (int iRound = 0; iRound < 20; ++iRound) {
            const CronJob drawn = RecordOf(Definition("job", szCrontab));
            CronJob kept = RecordOf(Definition("job", szCrontab));
            ASSERT_TRUE(ScheduleFromText(kept, ScheduleToText(drawn)));
            EXPECT_EQ(kept._jsJob["schedule"], drawn._jsJob["schedule"]);
        }
    }
}

TEST(ScheduleText, GivesTheValuesOfEachField) {
    const std::vector<std::vector<int>> vecExpected = {{0, 30}, {-1}, {}, {12}, {6, 0}};
    EXPECT_EQ(ScheduleValues("0,30 -1 X 12 6,0"), vecExpected);
}

TEST(FieldsText, ShowsWhatEachFieldAllows) {
    struct {
        const char* szCrontab;
        const char* szFields;
    } const aCases[] = {
        {"* * * * *", "* * * * *"},
        {"5 1,2 31 12 0", "5 1,2 31 12 0"},
        {"~ ~ ~ ~ ~", "0~59 0~23 1~28 1~12 0~6"},
        {"10~20 3~3 1~31 *,5 1,~", "10~20 3~3 1~31 *,5 1,0~6"},
        {"05 *x ,,1 +2 ~9", "5 * 1 2 0~6"}, // read by value, not by text
        {", * * * *", "X * * * *"},
    };
    for (const auto& tested : aCases) {
        EXPECT_EQ(FieldsToText(RecordOf(Definition("job", tested.szCrontab))), tested.szFields) << tested.szCrontab;
    }
}

TEST(FieldsText, SplitsIntoItsFields) {
    const std::vector<std::string> vecExpected = {"0~59", "*", "X", "1,2", "6"};
    EXPECT_EQ(SplitFields("0~59 * X 1,2 6"), vecExpected);
    EXPECT_EQ(SplitFields(""), std::vector<std::string>{""});
    EXPECT_EQ(SplitFields("a "), (std::vector<std::string>{"a", ""}));
}

} // namespace
