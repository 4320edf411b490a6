#include <gtest/gtest.h>

#include "crond/cronjob.h"
#include "tests/support/captured_syslog.h"
#include "tests/unit/definitions.h"
#include "tests/unit/period_oracle.h"

using namespace unit;

namespace {

constexpr int FIRST = -2;
constexpr int LAST = 70;

/// Compares the library with the oracle on one field after the other.
class ExhaustivePeriod : public testing::TestWithParam<const char*> {
protected:
    ExhaustivePeriod() : _oracle(*GetParam()), _job(JobWithoutRanges()) {}

    void Compare(const std::string& strField) {
        ++_iCompared;
        _job._mapRanges.clear();
        errno = 0;
        const bool bOk = _job.ParsePeriodByType(GetParam(), strField);
        const std::vector<std::string> vecLines = _log.Take();
        _oracle.Read(strField);
        const std::string strMessage = vecLines.empty() ? "" : vecLines.front();
        if (bOk != _oracle.bOk || Items() != _oracle.vecItems || strMessage != _oracle.strMessage ||
            vecLines.size() > 1) {
            FAIL() << GetParam() << " \"" << strField << "\": " << bOk << " [" << RangesOf(_job, GetParam()) << "] "
                   << strMessage << ", and the oracle says " << _oracle.bOk << " " << _oracle.strMessage;
        }
    }

    /// Single values and ends of ranges, in every way in which a number is written or miswritten.
    static std::vector<std::string> Spellings(int iValue) {
        const std::string strValue = std::to_string(iValue);
        const std::string strDigits = std::to_string(std::abs(iValue));
        const std::string strSign = iValue < 0 ? "-" : "";
        return {
            strValue,
            "+" + strValue,
            "-" + strValue,
            " " + strValue,
            strValue + " ",
            "\t " + strValue + "\n\v",
            strSign + "0" + strDigits,
            strSign + "0000000000000" + strDigits,
            strSign + " " + strDigits,
            strSign + "0x" + strDigits,
            strValue + "x",
            strValue + " x",
            strValue + ".0",
            strValue + "-",
            strValue + "*",
            "x" + strValue,
            strValue + strValue + strValue + strValue + strValue + strValue,
        };
    }

    int Compared() const { return _iCompared; }

private:
    std::vector<PeriodOracle::Item> Items() const {
        std::vector<PeriodOracle::Item> vecItems;
        const auto it = _job._mapRanges.find(GetParam());
        if (it != _job._mapRanges.end()) {
            for (const CronJob::Range& range : it->second) {
                vecItems.emplace_back(range.kind, range.from, range.to);
            }
        }
        return vecItems;
    }

    support::CapturedSyslog _log;
    PeriodOracle _oracle;
    CronJob _job;
    int _iCompared = 0;
};

} // namespace

TEST_P(ExhaustivePeriod, AgreesOnEverySingleValueInEverySpelling) {
    for (int iValue = FIRST; iValue <= LAST; ++iValue) {
        for (const std::string& strSpelling : Spellings(iValue)) {
            for (const char* const szBefore : {"", "*", "~", ",", " "}) {
                ASSERT_NO_FATAL_FAILURE(Compare(szBefore + strSpelling));
            }
        }
    }
    EXPECT_EQ(Compared(), 73 * 17 * 5);
}

TEST_P(ExhaustivePeriod, AgreesOnEveryRange) {
    for (int iFrom = FIRST; iFrom <= LAST; ++iFrom) {
        for (int iTo = FIRST; iTo <= LAST; ++iTo) {
            ASSERT_NO_FATAL_FAILURE(Compare(std::to_string(iFrom) + "~" + std::to_string(iTo)));
        }
    }
    EXPECT_EQ(Compared(), 73 * 73);
}

TEST_P(ExhaustivePeriod, AgreesOnRangesInEverySpelling) {
    for (const int iFrom : {-1, 0, 1, 6, 12, 31, 59, 60}) {
        for (const int iTo : {-1, 0, 6, 23, 31, 60}) {
            for (const std::string& strFrom : Spellings(iFrom)) {
                for (const std::string& strTo : Spellings(iTo)) {
                    ASSERT_NO_FATAL_FAILURE(Compare(strFrom + "~" + strTo));
                }
            }
            const std::string strRange = std::to_string(iFrom) + "~" + std::to_string(iTo);
            for (const std::string& strMore : {strRange + "~", strRange + "~1", strRange + "~~", strRange + "*"}) {
                ASSERT_NO_FATAL_FAILURE(Compare(strMore));
            }
        }
    }
    EXPECT_EQ(Compared(), 8 * 6 * (17 * 17 + 4));
}

TEST_P(ExhaustivePeriod, AgreesOnEveryListOfTwoValues) {
    for (int iFirst = FIRST; iFirst <= LAST; ++iFirst) {
        for (int iSecond = FIRST; iSecond <= LAST; ++iSecond) {
            ASSERT_NO_FATAL_FAILURE(Compare(std::to_string(iFirst) + "," + std::to_string(iSecond)));
        }
    }
    EXPECT_EQ(Compared(), 73 * 73);
}

TEST_P(ExhaustivePeriod, AgreesOnListsOfTwoItemsOfEveryForm) {
    const std::vector<std::string> vecItems = {
        "",     " ",     "~",  "~~",   "~5",  "~x",  "*",    "*5",    "*x",      "*~",          "-1",
        "0",    "1",     "6",  "7",    "12",  "23",  "28",   "31",    "59",      "60",          "+5",
        " 5 ",  "05",    "5x", "x",    "0~0", "1~6", "1~12", "1~31",  "0~23",    "0~59",        "5~3",
        "1~60", "1~2~3", "1~", "1~~2", "x~1", "1~x", "-1~1", "+1~+2", " 1 ~ 2 ", "99999999999", "1~99999999999",
        "-",    "+",     ".",  "1 2",
    };
    for (const std::string& strFirst : vecItems) {
        for (const std::string& strSecond : vecItems) {
            for (const char* const szBetween : {",", ",,"}) {
                ASSERT_NO_FATAL_FAILURE(Compare(strFirst + szBetween + strSecond));
            }
        }
    }
    EXPECT_EQ(Compared(), static_cast<int>(vecItems.size() * vecItems.size() * 2));
}

INSTANTIATE_TEST_SUITE_P(OfAField, ExhaustivePeriod, testing::Values("Minute", "hour", "day", "month", "week"),
                         [](const auto& paramInfo) { return std::string(paramInfo.param); });
