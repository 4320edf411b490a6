#include "service/jsontext.h"

#include <gtest/gtest.h>

#include <string>

using VUKO::VUKOCrond::Service::HasStrictForm;

namespace {

std::string String(const std::string& strInside) {
    return "\"" + strInside + "\"";
}

} // namespace

TEST(JsonText, HasStrictFormWhenItIsJson) {
    for (const char* szText : {"{}", " [1, -2, 0, -0.5, 1e9, 2E+3, 10.25e-3]\r\n", "{\"a\": \"b\", \"c\":\tnull}",
                               "\"\\\"\"", "\"\\\\\"", "\"\\u0041\\n\"", "\"\\ud83d\\ude00\"", "\"\\uFFFF\"", ""}) {
        EXPECT_TRUE(HasStrictForm(szText)) << szText;
    }
}

TEST(JsonText, MayHoldAnyCharacterOfUtf8) {
    for (const char* szCharacter : {"\x7f", "\xc2\x80", "\xdf\xbf", "\xe0\xa0\x80", "\xed\x9f\xbf", "\xee\x80\x80",
                                    "\xef\xbf\xbf", "\xf0\x90\x80\x80", "\xf4\x8f\xbf\xbf"}) {
        EXPECT_TRUE(HasStrictForm(String(szCharacter))) << szCharacter;
    }
}

TEST(JsonText, HasNoOtherBytes) {
    for (const char* szBytes : {"\x80", "\xc3", "\xc0\x80", "\xc1\xbf", "\xe0\x9f\xbf", "\xed\xa0\x80", "\xed\xbf\xbf",
                                "\xf0\x8f\xbf\xbf", "\xf4\x90\x80\x80", "\xf8\x88\x80\x80\x80", "\xff", "\xe2\x82"}) {
        EXPECT_FALSE(HasStrictForm(String(szBytes)));
    }
}

TEST(JsonText, HasNoControlCharacterInAString) {
    for (char c = 0; c < ' '; ++c) {
        EXPECT_FALSE(HasStrictForm(String(std::string(1, c)))) << static_cast<int>(c);
    }
}

TEST(JsonText, HasNothingButTokensAndBlanksBetweenStrings) {
    for (const char* szText : {"{\v}", "{/**/}", "{}//", "\xef\xbb\xbf{}", "\xc2\xa0{}", "{}\x7f"}) {
        EXPECT_FALSE(HasStrictForm(szText)) << szText;
    }
    EXPECT_FALSE(HasStrictForm(std::string("{}\0", 3)));
}

TEST(JsonText, HasNoNumbersOfAnotherForm) {
    for (const char* szText : {"01", "-01", "-", "1.", "1.e5", "1e", "1e+", "-.5", "[00]"}) {
        EXPECT_FALSE(HasStrictForm(szText)) << szText;
    }
}

TEST(JsonText, HasNoEscapeThatNamesHalfACharacter) {
    for (const char* szText : {"\\udc00", "\\ud800", "\\ud800x", "\\ud800\\n", "\\ud800\\u0041", "\\ud800\\ud800",
                               "\\u12", "\\u12g4", "\\"}) {
        EXPECT_FALSE(HasStrictForm(String(szText))) << szText;
    }
}

TEST(JsonText, HasAnEndToEachString) {
    EXPECT_FALSE(HasStrictForm("{\"a"));
    EXPECT_FALSE(HasStrictForm("\"\\\""));
}
