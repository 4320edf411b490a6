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
}

TEST(JsonFault, TellsWhatTheLibraryLetsThrough) {
    EXPECT_EQ(WhyNotJson("[1,\r\n\"\xff\"]"), "line 2, column 2: A byte that is no UTF-8");
    EXPECT_EQ(WhyNotJson("\xef\xbb\xbf{}"), "line 1, column 1: A byte order mark: JSON has none");
    EXPECT_EQ(WhyNotJson("{\r\"a\": 1, // one\n}"), "line 2, column 9: A comment: JSON has none");
    EXPECT_EQ(WhyNotJson("/* one */ {}"), "line 1, column 1: A comment: JSON has none");
    EXPECT_EQ(WhyNotJson("[\n 01]"), "line 2, column 2: A number of another form than JSON's");
    EXPECT_EQ(WhyNotJson("[\"\t\"]"), "line 1, column 3: A bare control character in a text");
    EXPECT_EQ(WhyNotJson("[\"\\udc00\"]"), "line 1, column 3: An escape that names no character");
    EXPECT_EQ(WhyNotJson(std::string("[]\0", 3)), "line 1, column 3: A control character");
    EXPECT_EQ(WhyNotJson("[1 2] // two"), "line 1, column 4: Missing ',' or ']' in array declaration");
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
