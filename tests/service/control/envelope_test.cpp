#include "service/control/envelope.h"

#include <gtest/gtest.h>

#include <string>

using namespace VUKO::VUKOCrond::Service;

namespace {

/// The code with which a text is refused; empty when it is taken.
std::string Refusal(const std::string& strText) {
    try {
        RequestEnvelope(strText).Check();
        return std::string();
    } catch (const ControlError& error) {
        EXPECT_STRNE(error.what(), "");
        return error.Code();
    }
}

std::string Nested(int iDepth) {
    const auto uArrays = static_cast<std::size_t>(iDepth - 1);
    return "{\"version\":1,\"verb\":\"x\",\"a\":" + std::string(uArrays, '[') + std::string(uArrays, ']') + "}";
}

} // namespace

TEST(RequestEnvelope, IsAnObjectWithVersionAndVerb) {
    const RequestEnvelope request(R"({"version": 1, "id": [7, "x"], "verb": "list", "job": "a"})");
    EXPECT_NO_THROW(request.Check());
    EXPECT_EQ(request.Document()["job"], "a");
    EXPECT_EQ(request.Id()[0], 7);
}

TEST(RequestEnvelope, RefusesWhatIsNotJson) {
    for (const char* szText :
         {"", " ", "x", "{\"version\":1,\"verb\":\"x\"} x", "{\"version\":1,\"verb\":\"x\",}",
          "{\"version\":1,\"verb\":\"x\" /* no */}", "{\"version\":1,\"version\":1,\"verb\":\"x\"}", "{'version':1}",
          "{\"version\":1,\"verb\":\"x\",\"n\":NaN}", "{\"version\":01,\"verb\":\"x\"}",
          "{\"version\":1,\"verb\":\"x\",\"t\":\"\t\"}", "\xef\xbb\xbf{\"version\":1,\"verb\":\"x\"}"}) {
        EXPECT_EQ(Refusal(szText), "bad-json") << szText;
    }
}

TEST(RequestEnvelope, RefusesWhatIsNestedTooDeep) {
    EXPECT_EQ(Refusal(Nested(20)), "");
    EXPECT_EQ(Refusal(Nested(40)), "bad-json");
    EXPECT_EQ(Refusal(Nested(30000)), "bad-json");
}

TEST(RequestEnvelope, RefusesWhatIsNoRequest) {
    for (const char* szText : {"[]", "[1]", "{\"version\":1}", "{\"version\":1,\"verb\":3}"}) {
        EXPECT_EQ(Refusal(szText), "bad-request") << szText;
    }
    const std::string strLong(300, 'x');
    EXPECT_EQ(Refusal("{\"version\":1,\"verb\":\"x\",\"id\":\"" + strLong + "\"}"), "bad-request");
}

TEST(RequestEnvelope, RefusesOtherVersions) {
    for (const char* szText : {"{\"verb\":\"x\"}", "{\"version\":2,\"verb\":\"x\"}", "{\"version\":1.0,\"verb\":\"x\"}",
                               "{\"version\":\"1\",\"verb\":\"x\"}", "{\"version\":true,\"verb\":\"x\"}",
                               "{\"version\":null,\"verb\":\"x\"}"}) {
        EXPECT_EQ(Refusal(szText), "bad-version") << szText;
    }
}

TEST(RequestEnvelope, KnowsTheMarkOfARequestThatIsRefused) {
    EXPECT_EQ(RequestEnvelope(R"({"version":2,"id":5,"verb":"x"})").Id(), 5);
    EXPECT_TRUE(RequestEnvelope("{").Id().isNull());
}

TEST(ReplyText, IsAsciiOnOneLine) {
    EXPECT_EQ(ResultText(5, "\u00e9\n"), "{\"id\":5,\"ok\":true,\"result\":\"\\u00e9\\n\",\"version\":1}");
    EXPECT_EQ(ErrorText(Json::Value(), "busy", "no"),
              "{\"error\":{\"code\":\"busy\",\"message\":\"no\"},\"id\":null,\"ok\":false,\"version\":1}");
}
