#include "service/logtext.h"

#include <gtest/gtest.h>

#include <string>

using namespace VUKO::VUKOCrond::Service;

TEST(LogText, LeavesPrintableTextAlone) {
    EXPECT_EQ(Escaped("/etc/x y/~name.conf"), "/etc/x y/~name.conf");
    EXPECT_EQ(Quoted("5a"), "\"5a\"");
    EXPECT_EQ(Quoted(""), "\"\"");
}

TEST(LogText, EscapesWhatCouldForgeALineOrMoveACursor) {
    EXPECT_EQ(Escaped("a\nvukocrond[1]: b"), "a\\x0avukocrond[1]: b");
    EXPECT_EQ(Escaped("\x1b[2J\r\x7f"), "\\x1b[2J\\x0d\\x7f");
    EXPECT_EQ(Escaped("\xc2\x9b"), "\\xc2\\x9b");
    EXPECT_EQ(Escaped(std::string_view("a\0b", 3)), "a\\x00b");
}

TEST(LogText, EscapesEveryByteThatIsNotPrintableAscii) {
    for (int iByte = 0; iByte < 256; ++iByte) {
        const std::string strByte(1, static_cast<char>(iByte));
        const bool bPlain = iByte >= 0x20 && iByte <= 0x7e;
        EXPECT_EQ(Escaped(strByte).size(), bPlain ? 1U : 4U) << iByte;
    }
}

TEST(LogText, KeepsAQuoteInsideTheQuotes) {
    EXPECT_EQ(Quoted("a\" is fine\\"), "\"a\\\" is fine\\\\\"");
}

TEST(LogText, CutsALongText) {
    EXPECT_EQ(Quoted("abcdef", 6), "\"abcdef\"");
    EXPECT_EQ(Quoted("abcdefg", 6), "\"abcdef\"...");
    EXPECT_LT(Quoted(std::string(1 << 20, '\n')).size(), 300U);
}

TEST(LogText, KnowsControlCharacters) {
    EXPECT_FALSE(HoldsControlCharacter("plain"));
    EXPECT_FALSE(HoldsControlCharacter("gr\xc3\xbc\xc3\x9f"));
    EXPECT_TRUE(HoldsControlCharacter("a\nb"));
    EXPECT_TRUE(HoldsControlCharacter("a\x7f"));
    EXPECT_TRUE(HoldsControlCharacter(std::string_view("\0", 1)));
}
