#include <gtest/gtest.h>

#include <clocale>
#include <limits>
#include <locale>

#include "crond/cronjob.h"
#include "tests/unit/definitions.h"
#include "tests/unit/messages.h"

using namespace unit;

namespace {

using Lines = std::vector<std::string>;

constexpr int INT_LEAST = std::numeric_limits<int>::min();
constexpr int INT_GREATEST = std::numeric_limits<int>::max();

/// A key whose field has no rules: every number is accepted there, so the reading of numbers is seen by itself.
const char* const NO_RULES = "x";

struct Domain {
    const char* szType;
    int iFrom;
    int iTo;
    const char* szRandom;
};

const Domain DOMAINS[] = {
    {"Minute", 0, 59, "1:0..59"}, {"hour", 0, 23, "1:0..23"}, {"day", 1, 31, "1:1..28"},
    {"month", 1, 12, "1:1..12"},  {"week", 0, 6, "1:0..6"},
};

struct NumberCase {
    std::string strText;
    bool bNumber;
    int iValue;
    const char* szComment;
};

const NumberCase NUMBERS[] = {
    {"5", true, 5, "a digit"},
    {"0", true, 0, "zero"},
    {"007", true, 7, "leading zeros do not make it octal"},
    {"010", true, 10, "nor here"},
    {"+5", true, 5, "a plus sign"},
    {"-5", true, -5, "a minus sign"},
    {"-0", true, 0, "minus zero"},
    {" 5 ", true, 5, "blanks around"},
    {"\v5\f", true, 5, "every kind of blank"},
    {"\t\n\v\f\r 5\t\n\v\f\r ", true, 5, "all of them"},
    {" +5", true, 5, "a blank before the sign"},
    {"2147483647", true, INT_GREATEST, "the greatest int"},
    {"-2147483648", true, INT_LEAST, "the least int"},
    {"+0000000000000002147483647", true, INT_GREATEST, "zeros do not count"},
    {"2147483648", false, 0, "one above the greatest int"},
    {"-2147483649", false, 0, "one below the least int"},
    {"4294967296", false, 0, "a number that would be 0 in 32 bits"},
    {"18446744073709551616", false, 0, "a number that would be 0 in 64 bits"},
    {"99999999999999999999999999999999", false, 0, "a number without end"},
    {" ", false, 0, "a blank alone"},
    {"\t\n", false, 0, "blanks alone"},
    {"+", false, 0, "a sign alone"},
    {"-", false, 0, "a sign alone"},
    {"+-5", false, 0, "two signs"},
    {"-+5", false, 0, "two signs"},
    {"++5", false, 0, "two signs"},
    {"--5", false, 0, "two signs"},
    {"- 5", false, 0, "a blank after the sign"},
    {"+ 5", false, 0, "a blank after the sign"},
    {"0x5", false, 0, "hexadecimal"},
    {"0b1", false, 0, "binary"},
    {"5a", false, 0, "a letter behind"},
    {"a5", false, 0, "a letter before"},
    {"five", false, 0, "a word"},
    {"MON", false, 0, "a day's name"},
    {"5-7", false, 0, "a range of classic crontabs"},
    {"5/2", false, 0, "a step of classic crontabs"},
    {"5*", false, 0, "a star behind"},
    {"5 5", false, 0, "two numbers"},
    {"5.", false, 0, "a point"},
    {"5.0", false, 0, "a fraction"},
    {"1e1", false, 0, "an exponent"},
    {"1'000", false, 0, "grouped digits"},
    {"1.000", false, 0, "grouped digits"},
    {"\xc2\xa0"
     "5",
     false, 0, "a no-break space is no blank"},
    {"\xd9\xa5", false, 0, "a digit of another script"},
    {std::string("5\0", 2), false, 0, "a NUL behind"},
    {std::string("\0"
                 "5",
                 2),
     false, 0, "a NUL before"},
    {std::string("5\0 5", 4), false, 0, "a NUL between"},
};

/// As syslog prints it: up to a NUL.
std::string Printed(const std::string& strText) {
    return strText.c_str(); // NOLINT(readability-redundant-string-cstr): the cut is meant
}

struct Parsed {
    bool bOk = false;
    std::string strRanges;
    Lines vecLines;
};

Parsed Parse(const char* szType, const std::string& strField) {
    CronJob job = JobWithoutRanges();
    Parsed parsed;
    parsed.vecLines = Logged([&] { parsed.bOk = job.ParsePeriodByType(szType, strField); });
    parsed.strRanges = RangesOf(job, szType);
    return parsed;
}

void ExpectRefused(const std::string& strField, int iNumber, const std::string& strPart) {
    ExpectInBothForms(
        [&strField] {
            CronJob job = JobWithoutRanges();
            EXPECT_FALSE(job.ParsePeriodByType(NO_RULES, strField));
            EXPECT_TRUE(job._mapRanges.empty());
        },
        {{iNumber, Printed(strPart) + " is not a valid number"}});
}

void ExpectNumbersAreReadByTheirRule() {
    for (const NumberCase& c : NUMBERS) {
        SCOPED_TRACE(c.szComment);
        const std::string strBefore = c.strText + "~" + std::to_string(INT_GREATEST);
        const std::string strAfter = std::to_string(INT_LEAST) + "~" + c.strText;
        if (!c.bNumber) {
            ExpectRefused(c.strText, 338, c.strText);
            ExpectRefused(strBefore, 352, c.strText);
            ExpectRefused(strAfter, 356, c.strText);
            continue;
        }
        const std::string strValue = std::to_string(c.iValue);
        EXPECT_EQ(Parse(NO_RULES, c.strText).strRanges, "0:" + strValue + "..-1");
        EXPECT_EQ(Parse(NO_RULES, strBefore).strRanges, "1:" + strValue + "..2147483647");
        EXPECT_EQ(Parse(NO_RULES, strAfter).strRanges, "1:-2147483648.." + strValue);
    }
}

/// A locale in which digits are grouped by "1", a plus is spelled otherwise, and "a" is white space.
class StrangeDigits : public std::numpunct<char> {
protected:
    char do_thousands_sep() const override { return '\''; }
    std::string do_grouping() const override { return "\1"; }
    char do_decimal_point() const override { return ','; }
};

class StrangeBlanks : public std::ctype<char> {
public:
    StrangeBlanks() : std::ctype<char>(Table()) {}

private:
    static const mask* Table() {
        static const std::vector<mask> vecTable = [] {
            std::vector<mask> vecMasks(classic_table(), classic_table() + table_size);
            vecMasks['a'] |= space;
            vecMasks[' '] = print;
            return vecMasks;
        }();
        return vecTable.data();
    }
};

class StrangeLocale {
public:
    StrangeLocale()
        : _old(std::locale::global(
              std::locale(std::locale(std::locale::classic(), new StrangeDigits), new StrangeBlanks))) {
        std::setlocale(LC_ALL, "C.UTF-8");
    }
    ~StrangeLocale() {
        std::locale::global(_old);
        std::setlocale(LC_ALL, "C");
    }
    StrangeLocale(const StrangeLocale&) = delete;
    StrangeLocale& operator=(const StrangeLocale&) = delete;

private:
    std::locale _old;
};

} // namespace

TEST(FieldDomain, HoldsItsValuesAndNoOthers) {
    CronJob job = JobWithoutRanges();
    for (const Domain& domain : DOMAINS) {
        for (int iValue = -300; iValue <= 300; ++iValue) {
            EXPECT_EQ(job.IsTimeValid(domain.szType, iValue), domain.iFrom <= iValue && iValue <= domain.iTo)
                << domain.szType << " " << iValue;
        }
        EXPECT_FALSE(job.IsTimeValid(domain.szType, INT_LEAST));
        EXPECT_FALSE(job.IsTimeValid(domain.szType, INT_GREATEST));
    }
}

TEST(FieldDomain, IsChosenByTheFirstCharacterOfTheKeyAndItsCase) {
    CronJob job = JobWithoutRanges();
    for (int i = 0; i < 256; ++i) {
        const char cFirst = static_cast<char>(i);
        for (const char* const szRest : {"", "inute", "our"}) {
            const std::string strType = std::string(1, cFirst) + szRest;
            const bool bHasRules = cFirst != '\0' && std::string("Mhdmw").find(cFirst) != std::string::npos;
            EXPECT_EQ(job.IsTimeValid(strType.c_str(), -1), !bHasRules) << i;
            EXPECT_EQ(job.IsTimeValid(strType.c_str(), 60), !bHasRules) << i;
            CronJob::Range range{0, 77, 88};
            job.GetBoundsByType(range, strType.c_str());
            EXPECT_EQ(Text({range}) == "1:77..88", !bHasRules) << i;
        }
    }
    EXPECT_TRUE(job.IsTimeValid("Mxyz", 0)) << "a minute";
    EXPECT_FALSE(job.IsTimeValid("mxyz", 0)) << "a month";
    EXPECT_TRUE(job.IsTimeValid(NO_RULES, INT_LEAST));
    EXPECT_TRUE(job.IsTimeValid("", INT_GREATEST));
}

TEST(FieldDomain, BoundsWhatIsDrawnAndDaysStopAt28) {
    CronJob job = JobWithoutRanges();
    for (const Domain& domain : DOMAINS) {
        CronJob::Range range{2, 77, 88};
        job.GetBoundsByType(range, domain.szType);
        EXPECT_EQ(Text({range}), domain.szRandom);
    }
}

TEST(Field, IsReadItemByItem) {
    struct Case {
        const char* szType;
        const char* szField;
        bool bOk;
        const char* szRanges;
        const char* szMessage;
        const char* szComment;
    };
    const Case aCases[] = {
        {"day", "~", true, "1:1..28", "", "a random day exists in every month"},
        {"day", "1~31", true, "1:1..31", "", "a written-out range may reach the 31st"},
        {"day", "31", true, "0:31..-1", "", "so may a single day"},
        {"Minute", "59", true, "0:59..-1", "", "the last minute"},
        {"Minute", "60", false, "none", "", "no minute"},
        {"Minute", "-1", false, "none", "", "a number, but no minute"},
        {"day", "0", false, "none", "", "no day"},
        {"month", "0", false, "none", "", "no month"},
        {"week", "0", true, "0:0..-1", "", "Sunday"},
        {"week", "7", false, "none", "", "Sunday is 0 only"},
        {"hour", "5~3", false, "none", "<3>cronjob:360 range.from[5] cannot greater than range.to[3]", "reversed"},
        {"hour", "99~-99", false, "none", "<3>cronjob:360 range.from[99] cannot greater than range.to[-99]",
         "the order is tested before the domain"},
        {"hour", "20~24", false, "none", "", "the end is no hour"},
        {"hour", "-1~5", false, "none", "", "the beginning is no hour"},
        {"hour", "-5~-3", false, "none", "", "neither is"},
        {"hour", "3~3", true, "1:3..3", "", "a range of one value is still random"},
        {"hour", "1~2~3", false, "none", "", "three parts"},
        {"hour", "1~~2", true, "1:1..2", "", "an empty part is dropped"},
        {"hour", "1~", false, "none", "", "one part"},
        {"hour", "1~~", false, "none", "", "one part"},
        {"hour", "1~x~3", false, "none", "", "the parts are counted before they are read"},
        {"hour", "x~y", false, "none", "<3>cronjob:352 x is not a valid number", "only the first bad part is reported"},
        {"hour", "1~y", false, "none", "<3>cronjob:356 y is not a valid number", "the second part"},
        {"hour", "99~y", false, "none", "<3>cronjob:356 y is not a valid number", "numbers are read before the domain"},
        {"hour", " ~5", false, "none", "<3>cronjob:352   is not a valid number", "a leading blank hides the tilde"},
        {"hour", "~~", true, "1:0..23", "", "the first character decides"},
        {"hour", "~5", true, "1:0..23", "", "what follows is ignored"},
        {"hour", "~x", true, "1:0..23", "", "whatever it is"},
        {"hour", "~99~-1", true, "1:0..23", "", "really"},
        {"hour", "*", true, "2:-1..-1", "", "any value"},
        {"hour", "*5", true, "2:-1..-1", "", "what follows is ignored"},
        {"hour", "*/5", true, "2:-1..-1", "", "a step is no step here"},
        {"hour", "*~5", true, "2:-1..-1", "", "the first character decides"},
        {"hour", " *", false, "none", "<3>cronjob:338  * is not a valid number", "a leading blank hides the star"},
        {"hour", "1-5", false, "none", "<3>cronjob:338 1-5 is not a valid number", "no ranges of classic crontabs"},
        {"week", "sun", false, "none", "<3>cronjob:338 sun is not a valid number", "no names"},
        {"hour", "1,5,~", true, "0:1..-1 0:5..-1 1:0..23", "", "three items"},
        {"hour", "*,5", true, "2:-1..-1 0:5..-1", "", "any value beside a value"},
        {"hour", "5,5,5", true, "0:5..-1 0:5..-1 0:5..-1", "", "duplicates are kept"},
        {"hour", "9,1", true, "0:9..-1 0:1..-1", "", "in the order in which they are written"},
        {"hour", "1, 2 ,\t3", true, "0:1..-1 0:2..-1 0:3..-1", "", "blanks around an item"},
        {"hour", "", true, "none", "", "no items and no entry"},
        {"hour", ",", true, "none", "", "empty items are dropped"},
        {"hour", ",,1,,2,,", true, "0:1..-1 0:2..-1", "", "everywhere"},
        {"hour", "1,2,24,3", false, "0:1..-1 0:2..-1", "", "the items before a bad one stay"},
        {"hour", "1,x,y", false, "0:1..-1", "<3>cronjob:338 x is not a valid number", "the first bad one ends it"},
        {"x", "~", true, "1:-1..-1", "", "a field without rules has no bounds"},
        {"x", "-2147483648,2147483647", true, "0:-2147483648..-1 0:2147483647..-1", "", "it takes every number"},
        {"x", "5~2147483647", true, "1:5..2147483647", "", "and every range"},
        {"x", "3~-3", false, "none", "<3>cronjob:360 range.from[3] cannot greater than range.to[-3]",
         "but no reversed"},
        {"", "5", true, "0:5..-1", "", "an empty key has no rules"},
    };
    for (const Case& c : aCases) {
        SCOPED_TRACE(std::string(c.szType) + " \"" + c.szField + "\": " + c.szComment);
        const Parsed parsed = Parse(c.szType, c.szField);
        EXPECT_EQ(parsed.bOk, c.bOk);
        EXPECT_EQ(parsed.strRanges, c.szRanges);
        EXPECT_EQ(parsed.vecLines, *c.szMessage == '\0' ? Lines{} : Lines{c.szMessage});
    }
}

TEST(Field, IsAppendedToWhatIsThere) {
    CronJob job = JobWithoutRanges();
    EXPECT_TRUE(job.ParsePeriodByType("hour", "1,2"));
    EXPECT_TRUE(job.ParsePeriodByType("hour", "*"));
    EXPECT_TRUE(job.ParsePeriodByType("hour", ""));
    EXPECT_TRUE(job.ParsePeriodByType("day", "3"));
    EXPECT_EQ(RangesOf(job, "hour"), "0:1..-1 0:2..-1 2:-1..-1");
    EXPECT_EQ(RangesOf(job, "day"), "0:3..-1");
    EXPECT_EQ(job._mapRanges.size(), 2U);
}

TEST(Field, IsKeptUnderItsWholeKey) {
    CronJob job = JobWithoutRanges();
    EXPECT_TRUE(job.ParsePeriodByType("hours", "1"));
    EXPECT_TRUE(job.ParsePeriodByType("h", "2"));
    EXPECT_EQ(RangesOf(job, "hours"), "0:1..-1");
    EXPECT_EQ(RangesOf(job, "h"), "0:2..-1");
    EXPECT_EQ(RangesOf(job, "hour"), "none");
}

TEST(Field, ReportsAReversedRangeInBothForms) {
    for (const Domain& domain : DOMAINS) {
        ExpectInBothForms([&domain] { EXPECT_FALSE(JobWithoutRanges().ParsePeriodByType(domain.szType, "5~3")); },
                          {{360, "range.from[5] cannot greater than range.to[3]"}});
    }
    ExpectInBothForms([] { EXPECT_FALSE(JobWithoutRanges().ParsePeriodByType(NO_RULES, "2147483647~-2147483648")); },
                      {{360, "range.from[2147483647] cannot greater than range.to[-2147483648]"}});
}

TEST(Field, LeavesErrnoAloneWhenItIsGood) {
    ExpectInBothForms([] { EXPECT_TRUE(JobWithoutRanges().ParsePeriodByType("hour", "1,2~3,*,~")); }, {});
}

TEST(Number, IsReadByItsRuleWhereverItStands) {
    ExpectNumbersAreReadByTheirRule();
}

TEST(Number, IsReadAlikeInEveryLocale) {
    const StrangeLocale locale;
    ASSERT_TRUE(std::isspace('a', std::locale())) << "the locale is not in place";
    ExpectNumbersAreReadByTheirRule();
}

TEST(Number, IsPrintedAlikeInEveryLocale) {
    const StrangeLocale locale;
    EXPECT_EQ(JobWithSchedule(FromText(R"({"Minute":[1000000]})")).ToCurrentCrontabString(), "1000000 X X X X");
}
