#include "service/options.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "tests/support/temp_dir.h"

using namespace VUKO::VUKOCrond::Service;

namespace {

struct Parsed {
    std::optional<ExitStatus> status;
    Options options;
    std::string strOut;
    std::string strErr;
};

Parsed Parse(std::vector<const char*> vecArguments) {
    vecArguments.insert(vecArguments.begin(), "vukocrond");
    Parsed parsed;
    std::ostringstream out;
    std::ostringstream err;
    parsed.status = ParseOptions(static_cast<int>(vecArguments.size()), vecArguments.data(), parsed.options, out, err);
    parsed.strOut = out.str();
    parsed.strErr = err.str();
    return parsed;
}

} // namespace

TEST(ServiceOptions, HaveNothingSetWithoutArguments) {
    const Parsed parsed = Parse({});
    EXPECT_FALSE(parsed.status);
    EXPECT_EQ(parsed.options.strRoot, "");
    EXPECT_FALSE(parsed.options.bCheck);
    EXPECT_FALSE(parsed.options.bPrintSchedule);
}

TEST(ServiceOptions, AreTakenFromTheCommandLine) {
    const support::TempDir dir;
    const Parsed parsed = Parse({"--root", dir.Path().c_str(), "--check", "--print-schedule"});
    EXPECT_FALSE(parsed.status);
    EXPECT_EQ(parsed.options.strRoot, dir.Path());
    EXPECT_TRUE(parsed.options.bCheck);
    EXPECT_TRUE(parsed.options.bPrintSchedule);
}

TEST(ServiceOptions, EndWithATextWhenAskedForOne) {
    for (const char* const szFlag : {"-h", "--help"}) {
        const Parsed parsed = Parse({szFlag});
        EXPECT_EQ(parsed.status, EXIT_ORDERLY);
        for (const char* const szOption : {"--root DIR", "--check", "--print-schedule", "--version", "Exit status"}) {
            EXPECT_NE(parsed.strOut.find(szOption), std::string::npos) << szOption;
        }
        EXPECT_EQ(parsed.strErr, "");
    }
    for (const char* const szFlag : {"-V", "--version"}) {
        const Parsed parsed = Parse({szFlag});
        EXPECT_EQ(parsed.status, EXIT_ORDERLY);
        EXPECT_EQ(parsed.strOut.rfind("vukocrond ", 0), 0U);
    }
}

TEST(ServiceOptions, TakeWordsAndTellWhichWhereOneIsUnknown) {
    const Parsed parsed = Parse({"--policy", "literal", "--on-stop", "terminate"});
    EXPECT_FALSE(parsed.status);
    EXPECT_EQ(parsed.options.ePolicy, ClockPolicy::Literal);
    EXPECT_EQ(parsed.options.eOnStop, OnStop::Terminate);
    EXPECT_NE(Parse({"--policy", "foo"}).strErr.find("--policy: expected catchup|literal, found \"foo\"\n"),
              std::string::npos);
}

TEST(ServiceOptions, RefuseWhatTheyDoNotKnow) {
    for (const std::vector<const char*>& vecArguments : {std::vector<const char*>{"--daemon"},
                                                         {"-x"},
                                                         {"start"},
                                                         {"--root"},
                                                         {"--root", ""},
                                                         {"--check=perhaps"},
                                                         {"--root", "/no/such/folder"},
                                                         {"--root", "/etc/passwd"},
                                                         {"--policy", "1"},
                                                         {"--on-stop", "kill"},
                                                         {"--", "start"}}) {
        const Parsed parsed = Parse(vecArguments);
        EXPECT_EQ(parsed.status, EXIT_BAD_USAGE) << vecArguments[0];
        EXPECT_EQ(parsed.strErr.rfind("vukocrond: ", 0), 0U) << parsed.strErr;
        EXPECT_EQ(parsed.strOut, "") << vecArguments[0];
    }
}
