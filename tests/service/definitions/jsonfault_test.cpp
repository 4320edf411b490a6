#include <gtest/gtest.h>

#include "service/definitions/jsonfault.h"
#include "tests/support/temp_dir.h"

using VUKO::VUKOCrond::Service::WhyFileIsNotJson;
using VUKO::VUKOCrond::Service::WhyNotJson;

TEST(JsonFault, NamesTheLineAndColumnOfTheFirstFault) {
    EXPECT_EQ(WhyNotJson("{\"name\":\"y\",\n \"user\":\"root\","),
              "line 2, column 16: Missing '}' or object member name");
    EXPECT_EQ(WhyNotJson("{\"a\" 1}"), "line 1, column 6: Missing ':' after object member name");
    EXPECT_EQ(WhyNotJson("[1 2]"), "line 1, column 4: Missing ',' or ']' in array declaration");
    EXPECT_EQ(WhyNotJson("{\"a\":1,\"a\":2}"), "line 1, column 8: Duplicate key: 'a'");
}

TEST(JsonFault, TellsWhatHasNoPlace) {
    EXPECT_EQ(WhyNotJson(""), "the file is empty");
    EXPECT_EQ(WhyNotJson(" \n"), "the file is empty");
    EXPECT_EQ(WhyNotJson(std::string(2000, '[')), "it is nested too deep");
    EXPECT_EQ(WhyNotJson("\"\xff\""),
              "it holds bytes that are no UTF-8, a bare control character or a number of another form");
}

TEST(JsonFault, LetsNoTextOfTheFileBeginALineOfTheLog) {
    const std::string strReason = WhyNotJson("{\"a\nvukocrond: all is well\":1,\"a\nvukocrond: all is well\":2}");
    EXPECT_EQ(strReason.find('\n'), std::string::npos);
    EXPECT_EQ(strReason.rfind("line ", 0), 0U) << strReason;
}

TEST(JsonFault, IsFoundInAFileOfAnySize) {
    const support::TempDir dir;
    support::WriteFile(dir / "small", "[1,]");
    EXPECT_EQ(WhyFileIsNotJson(dir / "small").rfind("line 1, column ", 0), 0U);
    support::WriteFile(dir / "large", "[" + std::string(1 << 20, ' '));
    EXPECT_EQ(WhyFileIsNotJson(dir / "large").rfind("line 1, column ", 0), 0U);
    EXPECT_EQ(WhyFileIsNotJson(dir / "missing"), "the file is empty");
}
