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

TEST(LogText, KnowsTheCharactersBeyondAsciiThatDoMoreThanBeRead) {
    for (const char* const szText : {"\xc2\x80", "\xc2\x85", "\xc2\x9f", "\xe2\x80\xa8", "\xe2\x80\xa9", "\xe2\x80\xaa",
                                     "\xe2\x80\xae", "\xe2\x81\xa6", "\xe2\x81\xa9"}) {
        EXPECT_TRUE(HoldsControlCharacter(std::string("a") + szText + "b")) << Escaped(szText);
    }
    for (const char* const szText : {"\xc2\xa0", "\xc2\xbf", "\xe2\x80\xa7", "\xe2\x80\xaf", "\xe2\x81\xa5",
                                     "\xe2\x81\xaa", "\xef\xbf\xbf", "\xf0\x90\x80\x80", "\xf4\x8f\xbf\xbf"}) {
        EXPECT_FALSE(HoldsControlCharacter(std::string("a") + szText + "b")) << Escaped(szText);
    }
}

TEST(LogText, TakesBytesThatAreNoUtf8ForControlCharacters) {
    for (const char* const szText :
         {"\x80", "\xbf", "\xc3", "\xc3x", "\xc0\xaf", "\xc1\xbf", "\xe0\x9f\xbf", "\xe2\x82", "\xed\xa0\x80",
          "\xf0\x8f\xbf\xbf", "\xf4\x90\x80\x80", "\xf8\x88\x80\x80\x80", "\xfe", "\xff"}) {
        EXPECT_TRUE(HoldsControlCharacter(szText)) << Escaped(szText);
    }
}

TEST(LogText, CountsCharactersAndNotBytes) {
    EXPECT_EQ(CountCharacters(""), 0U);
    EXPECT_EQ(CountCharacters("abc"), 3U);
    EXPECT_EQ(CountCharacters("gr\xc3\xbc\xc3\x9f \xe2\x82\xac \xf0\x9f\x98\x80"), 8U);
    EXPECT_EQ(CountCharacters("\xff\xe2\x82"), 3U);
}
