#include <gtest/gtest.h>

#include <limits>
#include <set>

#include "crond/cronjob.h"
#include "tests/unit/definitions.h"
#include "tests/unit/messages.h"

using namespace unit;

namespace {

constexpr int NO_PREFERENCE = -1;
constexpr int INT_GREATEST = std::numeric_limits<int>::max();
constexpr int INT_LEAST = std::numeric_limits<int>::min();

using Values = std::vector<int>;

/// A job that has parsed one field.
CronJob JobWithField(const std::string& strType, const std::string& strField) {
    CronJob job = JobWithoutRanges();
    EXPECT_TRUE(job.ParsePeriodByType(strType.c_str(), strField));
    return job;
}

Values Generate(CronJob& job, const std::string& strType, int iPreferred = NO_PREFERENCE) {
    job.GenerateSchedule(strType, iPreferred);
    return job.GetGeneratedScheduleByType(strType);
}

} // namespace

TEST(ScheduleTypes, AreTheFiveFieldKeysInTheOrderOfACrontab) {
    EXPECT_EQ(CronJob::GetAllScheduleTypes(), (std::vector<std::string>{"Minute", "hour", "day", "month", "week"}));
    EXPECT_EQ(&CronJob::GetAllScheduleTypes(), &CronJob::GetAllScheduleTypes()) << "built once";
}

TEST(Generate, CopiesValuesAndMarksAnyValue) {
    struct Case {
        const char* szField;
        Values vecValues;
        const char* szComment;
    };
    const Case aCases[] = {
        {"*", {-1}, "any value"},
        {"5", {5}, "a value"},
        {"1,2,3", {1, 2, 3}, "several"},
        {"9,1,9", {9, 1, 9}, "neither sorted nor made unique"},
        {"*,5,*", {-1, 5, -1}, "any value beside a value"},
        {"7~7", {7}, "a random value of one"},
        {"", {}, "no items"},
    };
    for (const Case& c : aCases) {
        SCOPED_TRACE(c.szComment);
        CronJob job = JobWithField("hour", c.szField);
        EXPECT_EQ(Generate(job, "hour"), c.vecValues);
        Json::Value jsExpected(Json::arrayValue);
        for (const int iValue : c.vecValues) {
            jsExpected.append(iValue);
        }
        EXPECT_EQ(job._jsJob["schedule"]["hour"], jsExpected);
        EXPECT_EQ(job._jsJob["schedule"].size(), 1U) << "the other fields have no member";
    }
}

TEST(Generate, DrawsWithinTheBoundsAndReachesBothEnds) {
    struct Case {
        const char* szType;
        const char* szField;
        int iFrom;
        int iTo;
    };
    const Case aCases[] = {
        {"Minute", "~", 0, 59}, {"hour", "~", 0, 23},       {"day", "~", 1, 28},      {"month", "~", 1, 12},
        {"week", "~", 0, 6},    {"Minute", "7~9", 7, 9},    {"day", "29~31", 29, 31}, {"week", "1~5", 1, 5},
        {"x", "-3~3", -3, 3},   {"month", "12~12", 12, 12},
    };
    for (const Case& c : aCases) {
        SCOPED_TRACE(std::string(c.szType) + " " + c.szField);
        CronJob job = JobWithField(c.szType, c.szField);
        std::set<int> setSeen;
        // An end of 60 values is missed by 6000 fair draws once in 10^43 runs.
        for (int i = 0; i < 6000; ++i) {
            const Values vecValues = Generate(job, c.szType);
            ASSERT_EQ(vecValues.size(), 1U);
            setSeen.insert(vecValues.front());
        }
        EXPECT_EQ(*setSeen.begin(), c.iFrom);
        EXPECT_EQ(*setSeen.rbegin(), c.iTo);
        EXPECT_EQ(setSeen.size(), static_cast<std::size_t>(c.iTo - c.iFrom + 1));
    }
}

TEST(Generate, DrawsEachRandomItemOnItsOwn) {
    CronJob job = JobWithField("Minute", "~,~");
    int iDifferent = 0;
    for (int i = 0; i < 200; ++i) {
        const Values vecValues = Generate(job, "Minute");
        ASSERT_EQ(vecValues.size(), 2U);
        iDifferent += vecValues[0] != vecValues[1] ? 1 : 0;
    }
    EXPECT_GT(iDifferent, 0);
}

TEST(Generate, HandlesItemsOfAFieldWithoutRulesUpToTheLimits) {
    CronJob job = JobWithField("x", "5~2147483647");
    for (int i = 0; i < 100; ++i) {
        EXPECT_GE(Generate(job, "x").at(0), 5);
    }
    job = JobWithField("x", "2147483647~2147483647");
    EXPECT_EQ(Generate(job, "x"), Values{INT_GREATEST});
    job = JobWithField("x", "-2147483648~-2147483648");
    EXPECT_EQ(Generate(job, "x"), Values{INT_LEAST});
    job = JobWithField("x", "-2147483648~2147483647");
    EXPECT_EQ(Generate(job, "x").size(), 1U);
    job = JobWithField("x", "~");
    EXPECT_EQ(Generate(job, "x"), Values{-1}) << "a field without bounds is drawn from -1 to -1";
    EXPECT_EQ(Generate(job, "x", 5), Values{-1});
}

TEST(Generate, TakesAPreferredValueWhereItFits) {
    struct Case {
        const char* szType;
        const char* szField;
        int iPreferred;
        Values vecValues;
        const char* szComment;
    };
    const Case aCases[] = {
        {"hour", "~", 17, {17}, "it fits"},
        {"hour", "0~17", 17, {17}, "it is the upper bound"},
        {"hour", "17~23", 17, {17}, "it is the lower bound"},
        {"hour", "~,~", 17, {17, 17}, "all random items take it"},
        {"hour", "18~18,~", 17, {18, 17}, "each for itself"},
        {"hour", "0~0", 17, {0}, "it does not fit"},
        {"hour", "*", 17, {-1}, "any value stays"},
        {"hour", "5", 17, {5}, "a value stays"},
        {"hour", "5,*,~", 17, {5, -1, 17}, "only the random item takes it"},
        {"hour", "3~3", 24, {3}, "it is no hour"},
        {"hour", "3~3", -2, {3}, "it is no hour"},
        {"hour", "3~3", INT_LEAST, {3}, "it is no hour"},
        {"hour", "~", 0, {0}, "zero is a value"},
        {"week", "~", 0, {0}, "Sunday"},
        {"day", "1~31", 31, {31}, "the 31st where the range reaches it"},
        {"x", "-9~9", -2, {-2}, "a field without rules takes every value but -1"},
        {"x", "5~5", -1, {5}, "which means none"},
    };
    for (const Case& c : aCases) {
        SCOPED_TRACE(std::string(c.szField) + " prefers " + std::to_string(c.iPreferred) + ": " + c.szComment);
        CronJob job = JobWithField(c.szType, c.szField);
        for (int i = 0; i < 50; ++i) { // once could be a lucky draw
            EXPECT_EQ(Generate(job, c.szType, c.iPreferred), c.vecValues);
        }
    }
}

TEST(Generate, DrawsWhereThePreferredValueDoesNotFit) {
    struct Case {
        const char* szType;
        const char* szField;
        int iPreferred;
        int iFrom;
        int iTo;
    };
    for (const Case& c : {Case{"hour", "0~10", 17, 0, 10}, Case{"Minute", "~", 60, 0, 59}, Case{"day", "~", 29, 1, 28},
                          Case{"day", "~", 0, 1, 28}, Case{"week", "1~5", 7, 1, 5}, Case{"Minute", "~", -2, 0, 59}}) {
        SCOPED_TRACE(c.szField);
        CronJob job = JobWithField(c.szType, c.szField);
        std::set<int> setSeen;
        for (int i = 0; i < 1000; ++i) {
            setSeen.insert(Generate(job, c.szType, c.iPreferred).at(0));
        }
        EXPECT_GE(*setSeen.begin(), c.iFrom);
        EXPECT_LE(*setSeen.rbegin(), c.iTo);
        EXPECT_GT(setSeen.size(), 1U);
    }
}

TEST(Generate, IgnoresAPreferredValueThatTheFieldCannotHoldEvenWhereTheRangeReachesIt) {
    CronJob job = JobWithoutRanges();
    job._mapRanges["hour"] = {{1, -9, 99}};
    for (const int iPreferred : {50, -2}) {
        int iOthers = 0;
        for (int i = 0; i < 200; ++i) {
            iOthers += Generate(job, "hour", iPreferred).at(0) != iPreferred ? 1 : 0;
        }
        EXPECT_GT(iOthers, 0) << iPreferred;
    }
}

TEST(Generate, ReplacesWhatWasThereForThisFieldOnly) {
    CronJob job(Document(Crontab("1,2 3 4 5 6")));
    for (const std::string& strType : CronJob::GetAllScheduleTypes()) {
        job.GenerateSchedule(strType, NO_PREFERENCE);
        job.GenerateSchedule(strType, NO_PREFERENCE);
    }
    const Json::Value jsExpected = FromText(R"({"Minute":[1,2],"hour":[3],"day":[4],"month":[5],"week":[6]})");
    EXPECT_EQ(job._jsJob["schedule"], jsExpected);
    job._mapRanges["hour"].clear();
    job.GenerateSchedule("hour", NO_PREFERENCE);
    EXPECT_EQ(job._jsJob["schedule"]["hour"], Json::Value(Json::arrayValue));
    EXPECT_EQ(job._jsJob["schedule"]["Minute"], jsExpected["Minute"]);
}

TEST(Generate, ReplacesASpoiltValueOfAnyKind) {
    for (const char* const szSpoilt : {"null", "5", R"("text")", "{}", R"(["a"])"}) {
        CronJob job = JobWithField("hour", "5");
        job._jsJob["schedule"]["hour"] = FromText(szSpoilt);
        EXPECT_EQ(Generate(job, "hour"), Values{5}) << szSpoilt;
    }
}

TEST(Generate, MakesTheScheduleAnObjectWhereItIsNone) {
    for (const char* const szSpoilt : {"null", "5", R"("text")", "[]", "[1]"}) {
        CronJob job = JobWithField("hour", "5");
        job._jsJob["schedule"] = FromText(szSpoilt);
        EXPECT_EQ(Generate(job, "hour"), Values{5}) << szSpoilt;
        EXPECT_TRUE(job._jsJob["schedule"].isObject());
    }
}

TEST(Generate, MakesAnEmptyArrayOfAFieldThatWasNotParsed) {
    CronJob job = JobWithoutRanges();
    job.GenerateSchedule("hour", 5);
    EXPECT_EQ(job._jsJob["schedule"], FromText(R"({"hour":[]})"));
    EXPECT_EQ(RangesOf(job, "hour"), "") << "the field has an entry now, an empty one";
}

TEST(Generate, LeavesOutItemsOfAnUnknownKind) {
    CronJob job = JobWithoutRanges();
    job._mapRanges["hour"] = {{3, 1, 1}, {0, 4, -1}, {-1, 2, 2}, {7, 5, 5}};
    EXPECT_EQ(Generate(job, "hour"), Values{4});
}

TEST(Generate, IsNotDoneByConstruction) {
    EXPECT_FALSE(CronJob(Document(Definition()))._jsJob.isMember("schedule"));
    Json::Value jsDocument = Document(Definition());
    jsDocument["schedule"] = FromText(R"({"hour":[99]})");
    EXPECT_EQ(CronJob(jsDocument)._jsJob["schedule"], jsDocument["schedule"]) << "kept values are not judged";
}

TEST(Generate, KeepsItsValuesInACopyAndInADocumentThatIsLoadedAgain) {
    CronJob job(Document(Definition()));
    for (const std::string& strType : CronJob::GetAllScheduleTypes()) {
        job.GenerateSchedule(strType, NO_PREFERENCE);
    }
    const CronJob loaded(FromText(job._jsJob.toStyledString()));
    EXPECT_EQ(loaded._jsJob["schedule"], job._jsJob["schedule"]);
    EXPECT_EQ(loaded.ToCurrentCrontabString(), job.ToCurrentCrontabString());
}

TEST(Generate, LogsNothingAndLeavesErrnoAlone) {
    CronJob job(Document(Crontab("~ 1~5 3 * ~,~")));
    ExpectInBothForms(
        [&job] {
            for (const std::string& strType : CronJob::GetAllScheduleTypes()) {
                job.GenerateSchedule(strType, 3);
            }
        },
        {});
}

TEST(GeneratedValues, AreReadBackWholeOrNotAtAll) {
    struct Case {
        const char* szSchedule;
        Values vecValues;
        const char* szComment;
    };
    const Case aCases[] = {
        {R"({"hour":[1,2,-1]})", {1, 2, -1}, "numbers"},
        {R"({"hour":[99,-7]})", {99, -7}, "which are not judged"},
        {R"({"hour":[3.0]})", {3}, "a fraction without a fraction is integral"},
        {R"({"hour":[]})", {}, "none"},
        {R"({"hour":[1,"2",3]})", {}, "a text among them"},
        {R"({"hour":["1"]})", {}, "a text"},
        {R"({"hour":[1,2.5]})", {}, "a fraction"},
        {R"({"hour":[1,null]})", {}, "null"},
        {R"({"hour":[true]})", {}, "a bool is no number"},
        {R"({"hour":[[1]]})", {}, "an array"},
        {R"({"hour":[18446744073709551616]})", {}, "a number beyond 64 bits"},
        {R"({"hour":5})", {}, "no array"},
        {R"({"hour":"5"})", {}, "no array"},
        {R"({"hour":{"0":5}})", {}, "no array"},
        {R"({"hour":null})", {}, "no array"},
        {R"({"Hour":[5]})", {}, "another field"},
        {"{}", {}, "no such field"},
        {"null", {}, "no schedule"},
        {"[5]", {}, "no schedule"},
        {R"("hour")", {}, "no schedule"},
        {"5", {}, "no schedule"},
    };
    for (const Case& c : aCases) {
        SCOPED_TRACE(std::string(c.szSchedule) + ": " + c.szComment);
        const CronJob job = JobWithSchedule(FromText(c.szSchedule));
        EXPECT_EQ(job.GetGeneratedScheduleByType("hour"), c.vecValues);
        EXPECT_EQ(job._jsJob["schedule"], FromText(c.szSchedule)) << "reading changes nothing";
    }
}

TEST(GeneratedValues, AreNoneWithoutASchedule) {
    const CronJob job(Document(Definition()));
    EXPECT_TRUE(job.GetGeneratedScheduleByType("hour").empty());
    EXPECT_FALSE(job._jsJob.isMember("schedule"));
}

TEST(GeneratedValues, BeyondAnIntAreTheJsonLibrarysError) {
    const CronJob job = JobWithSchedule(FromText(R"({"hour":[2147483648]})"));
    EXPECT_THROW(job.GetGeneratedScheduleByType("hour"), Json::LogicError);
}
