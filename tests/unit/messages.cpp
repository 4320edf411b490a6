#include "tests/unit/messages.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>

#include "tests/support/captured_syslog.h"

namespace unit {

namespace {

constexpr const char* LOG_ERR_LEAD = "<3>";
constexpr const char* FORMAT_LEAD = "%s:%d ";
constexpr const char* SECOND_FORM_END = " (%m)";

struct Outcome {
    std::vector<std::string> vecTexts;
    std::vector<std::string> vecFormats;
    int iErrnoAfter = 0;
};

Outcome RunWithErrno(const std::function<void()>& action, int iErrno) {
    support::CapturedSyslog log;
    Outcome outcome;
    errno = iErrno;
    action();
    outcome.iErrnoAfter = errno;
    outcome.vecTexts = log.Take();
    outcome.vecFormats = log.Formats();
    return outcome;
}

std::string Expand(std::string strText, int iErrno) {
    const std::string strReason = std::strerror(iErrno);
    for (std::size_t uAt = strText.find("%m"); uAt != std::string::npos; uAt = strText.find("%m", uAt)) {
        strText.replace(uAt, 2, strReason);
        uAt += strReason.size();
    }
    return strText;
}

std::vector<std::string> Texts(const std::vector<Message>& vecMessages, const std::string& strSource, int iErrno) {
    std::vector<std::string> vecTexts;
    for (const Message& message : vecMessages) {
        const std::string strEnd = iErrno == 0 ? "" : SECOND_FORM_END;
        vecTexts.push_back(LOG_ERR_LEAD + strSource + ":" + std::to_string(message.iNumber) + " " +
                           Expand(message.strText + strEnd, iErrno));
    }
    return vecTexts;
}

} // namespace

Message Failed(int iNumber, const std::string& strCondition) {
    return {iNumber, "Failed [" + strCondition + "], err=%m"};
}

void ExpectInBothForms(const std::function<void()>& action, const std::vector<Message>& vecExpected,
                       const std::string& strSource) {
    const Outcome plain = RunWithErrno(action, 0);
    EXPECT_EQ(plain.vecTexts, Texts(vecExpected, strSource, 0));
    EXPECT_EQ(plain.iErrnoAfter, 0);
    const Outcome second = RunWithErrno(action, EIO);
    EXPECT_EQ(second.vecTexts, Texts(vecExpected, strSource, EIO));
    EXPECT_EQ(second.iErrnoAfter, EIO);
    ASSERT_EQ(plain.vecFormats.size(), second.vecFormats.size());
    for (std::size_t i = 0; i < plain.vecFormats.size(); ++i) {
        EXPECT_EQ(plain.vecFormats[i].rfind(FORMAT_LEAD, 0), 0U) << plain.vecFormats[i];
        EXPECT_EQ(plain.vecFormats[i] + SECOND_FORM_END, second.vecFormats[i]);
    }
}

std::vector<std::string> Logged(const std::function<void()>& action) {
    return RunWithErrno(action, 0).vecTexts;
}

} // namespace unit
