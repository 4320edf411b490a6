#include <gtest/gtest.h>

#include <json/json.h>

#include "crond/utils.h"
#include "platform/vukojson.h"
#include "tests/docs/document.h"

TEST(Readme, ShowsADefinitionThatMakesAJob) {
    const support::TempDir dir;
    const std::string strPath = dir / "definition";
    support::WriteFile(strPath, docs::BlockAfter("README.md", "begins with the other surprises"));
    Json::Value jsDefinition;
    ASSERT_TRUE(VUKO::JSON::fromFile(jsDefinition, strPath));
    EXPECT_TRUE(VUKO::VUKOCrond::checkJobFormat(jsDefinition));
}

/// The library's example compiles: it is built into this program, and this holds the two texts together.
TEST(Readme, ShowsTheCodeThatIsCompiledHere) {
    const std::string strExample = docs::BlockAfter("README.md", "## The library in use");
    const std::string strCompiled = support::ReadFile(VUKO_SOURCE_DIR "/tests/docs/example.cpp");
    EXPECT_FALSE(strExample.empty());
    EXPECT_EQ(strCompiled, strExample);
}
