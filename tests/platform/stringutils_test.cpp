#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/vukoutils.h"

namespace {

using Pieces = std::vector<std::string>;
using namespace std::string_literals;

Pieces Explode(const std::string& strText, const char* szDelimiters) {
    Pieces vecPieces;
    VUKOUtils::StringExplode(vecPieces, strText, szDelimiters);
    return vecPieces;
}

TEST(StringExplode, SplitsAtEveryDelimiter) {
    EXPECT_EQ(Explode("0 3 * * *", " "), (Pieces{"0", "3", "*", "*", "*"}));
    EXPECT_EQ(Explode("a,b;c", ",;"), (Pieces{"a", "b", "c"}));
}

TEST(StringExplode, DropsEmptyPieces) {
    EXPECT_EQ(Explode("1,,2,", ","), (Pieces{"1", "2"}));
    EXPECT_EQ(Explode(",,1", ","), (Pieces{"1"}));
    EXPECT_EQ(Explode(";,;", ",;"), Pieces());
    EXPECT_EQ(Explode("", ","), Pieces());
}

TEST(StringExplode, GivesTheWholeTextWithoutDelimiters) {
    EXPECT_EQ(Explode("1,2", ""), (Pieces{"1,2"}));
    EXPECT_EQ(Explode("1,2", nullptr), (Pieces{"1,2"}));
    EXPECT_EQ(Explode("", nullptr), Pieces());
}

TEST(StringExplode, TakesNulBytesForOrdinaryCharacters) {
    EXPECT_EQ(Explode("a\0b,\0"s, ","), (Pieces{"a\0b"s, "\0"s}));
    EXPECT_EQ(Explode("a\0b"s, ""), (Pieces{"a\0b"s}));
}

TEST(StringExplode, AppendsToWhatIsThere) {
    Pieces vecPieces{"kept"};
    VUKOUtils::StringExplode(vecPieces, "1 2", " ");
    EXPECT_EQ(vecPieces, (Pieces{"kept", "1", "2"}));
}

TEST(StringExplode, SplitsATextThatIsAPieceItself) {
    Pieces vecPieces{"a rather long first piece,and a second one that is no shorter,3,4,5,6,7,8,9"};
    vecPieces.shrink_to_fit();
    VUKOUtils::StringExplode(vecPieces, vecPieces[0], ",");
    ASSERT_EQ(vecPieces.size(), 10U);
    EXPECT_EQ(vecPieces[1], "a rather long first piece");
    EXPECT_EQ(vecPieces[9], "9");
}

TEST(StringExplode, DoesNotSplitCharactersOfSeveralBytes) {
    EXPECT_EQ(Explode("\xc3\xa4 \xf0\x9f\x98\x80", " "), (Pieces{"\xc3\xa4", "\xf0\x9f\x98\x80"}));
}

} // namespace
