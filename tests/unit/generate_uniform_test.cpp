#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "crond/cronjob.h"
#include "tests/unit/definitions.h"

using namespace unit;

namespace {

constexpr int DRAWS_PER_VALUE = 500;

double ChiSquare(const std::vector<int>& vecCounts) {
    double dSum = 0;
    for (const int iCount : vecCounts) {
        dSum += std::pow(iCount - DRAWS_PER_VALUE, 2) / DRAWS_PER_VALUE;
    }
    return dSum;
}

/// A fair source exceeds this less than once in 10^12 runs, for 2 to 60 values: beyond the mean (k - 1), twelve
/// standard deviations (sqrt(2k - 2)) and the slow tail of few values.
double Bound(std::size_t uValues) {
    const double dFreedom = static_cast<double>(uValues) - 1;
    return dFreedom + 12 * std::sqrt(2 * dFreedom) + 40;
}

struct Field {
    const char* szType;
    const char* szField;
    int iFrom;
    std::size_t uValues;
};

void PrintTo(const Field& field, std::ostream* pOut) {
    *pOut << field.szType << " " << field.szField;
}

class UniformField : public testing::TestWithParam<Field> {};

} // namespace

TEST_P(UniformField, HoldsEachValueAsOftenAsAnyOther) {
    const Field& field = GetParam();
    CronJob job = JobWithoutRanges();
    ASSERT_TRUE(job.ParsePeriodByType(field.szType, field.szField));
    std::vector<int> vecCounts(field.uValues);
    for (std::size_t u = 0; u < field.uValues * DRAWS_PER_VALUE; ++u) {
        job.GenerateSchedule(field.szType, -1);
        const int iValue = job._jsJob["schedule"][field.szType][0].asInt();
        ++vecCounts.at(static_cast<std::size_t>(iValue - field.iFrom));
    }
    EXPECT_LT(ChiSquare(vecCounts), Bound(field.uValues));
}

INSTANTIATE_TEST_SUITE_P(OfAJob, UniformField,
                         testing::Values(Field{"Minute", "~", 0, 60}, Field{"hour", "~", 0, 24},
                                         Field{"day", "~", 1, 28}, Field{"month", "~", 1, 12}, Field{"week", "~", 0, 7},
                                         Field{"week", "1~5", 1, 5}, Field{"Minute", "58~59", 58, 2}),
                         [](const auto& paramInfo) {
                             return std::string(paramInfo.param.szType) + std::to_string(paramInfo.param.uValues);
                         });

TEST(UniformFieldBound, FindsASourceThatNeverDrawsTheLastValue) {
    for (const std::size_t uValues : {2U, 5U, 7U, 12U, 24U, 28U, 60U}) {
        const int iShare = static_cast<int>(uValues) * DRAWS_PER_VALUE / static_cast<int>(uValues - 1);
        std::vector<int> vecCounts(uValues, iShare);
        vecCounts.back() = 0;
        EXPECT_GT(ChiSquare(vecCounts), Bound(uValues)) << uValues;
    }
}

TEST(UniformFieldBound, FindsASourceThatDrawsTheFirstHalfAFifthMoreOften) {
    for (const std::size_t uValues : {24U, 28U, 60U}) {
        std::vector<int> vecCounts(uValues);
        for (std::size_t u = 0; u < uValues; ++u) {
            vecCounts[u] = u < uValues / 2 ? DRAWS_PER_VALUE * 12 / 10 : DRAWS_PER_VALUE * 8 / 10;
        }
        EXPECT_GT(ChiSquare(vecCounts), Bound(uValues)) << uValues;
    }
}
