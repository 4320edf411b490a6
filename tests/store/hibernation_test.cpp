#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "crond/utils.h"
#include "tests/fake/call_record.h"
#include "tests/fake/fake_store_platform.h"
#include "tests/unit/messages.h"

using unit::ExpectInBothForms;
using VUKO::VUKOCrond::isHibernating;

namespace {

struct Case {
    int iResult;
    std::optional<int> iWritten;
    bool bHibernating;
    bool bReported;
};

} // namespace

TEST(Hibernation, AsksForTheFirstStatusOnceWithOneAsThePresetAnswer) {
    const fake::ScopedStorePlatform platform;
    EXPECT_FALSE(isHibernating());
    EXPECT_EQ(fake::Calls(), std::vector<std::string>{"status 1 preset=1"});
}

TEST(Hibernation, IsTheStatusTwoAlsoWhenTheCallWroteItBeforeItFailed) {
    const Case aCases[] = {
        {0, 2, true, false},
        {0, 1, false, false},
        {0, 0, false, false},
        {0, 3, false, false},
        {0, -2, false, false},
        {0, std::nullopt, false, false},
        {-1, std::nullopt, false, true},
        {-1, 2, true, true},
        {-1, 5, false, true},
        {-2, std::nullopt, false, false},
        {1, 2, true, false},
    };
    for (const Case& c : aCases) {
        const fake::ScopedStorePlatform platform;
        fake::StorePlatform().iStatusResult = c.iResult;
        fake::StorePlatform().iStatusWritten = c.iWritten;
        const std::vector<unit::Message> vecNone;
        const std::vector<unit::Message> vecReport = {{73, "Fail to VUKOEvmgrStatusGet()"}};
        ExpectInBothForms([&] { EXPECT_EQ(isHibernating(), c.bHibernating); }, c.bReported ? vecReport : vecNone,
                          "utils");
    }
}
