#include "service/templatekeeper.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <map>

#include "platform/vukojson.h"
#include "tests/support/captured_syslog.h"
#include "tests/support/fake_clock.h"
#include "tests/support/temp_dir.h"

using namespace VUKO::VUKOCrond;
using namespace VUKO::VUKOCrond::Service;

namespace {

using Texts = std::vector<std::string>;
using Values = std::map<std::string, int>;

const Values ONES = {{"Minute", 1}, {"hour", 1}, {"day", 1}, {"month", 1}, {"week", 1}};
const Values TWOS = {{"Minute", 2}, {"hour", 2}, {"day", 2}, {"month", 2}, {"week", 2}};

Values ValuesOf(const ScheduleTemplate& scheduleTemplate) {
    Values mapValues;
    for (const std::string& strType : CronJob::GetAllScheduleTypes()) {
        mapValues[strType] = scheduleTemplate.GetGeneratedSchedule(strType);
    }
    return mapValues;
}

Json::Value DocumentOf(const Values& mapValues) {
    Json::Value jsDocument = ScheduleTemplate()._jsJob;
    for (const auto& [strType, iValue] : mapValues) {
        jsDocument["schedule"][strType] = Json::Value(Json::arrayValue);
        jsDocument["schedule"][strType].append(iValue);
    }
    return jsDocument;
}

class TemplateKeeping : public ::testing::Test {
protected:
    TemplateKeeping() {
        std::filesystem::create_directory(_dir / "disk");
        std::filesystem::create_directory(_dir / "memory");
    }

    TemplateKeeper Keeper(bool bMayWriteDisk = true) const { return {_strPath, _strMirrorPath, bMayWriteDisk}; }
    static Values InFile(const std::string& strPath) {
        ScheduleTemplate stored;
        return stored.fromFile(strPath) ? ValuesOf(stored) : Values();
    }
    static Json::Value Read(const std::string& strPath) {
        Json::Value jsDocument;
        EXPECT_TRUE(VUKO::JSON::fromFile(jsDocument, strPath)) << strPath;
        return jsDocument;
    }
    static void Put(const std::string& strPath, const Json::Value& jsDocument) {
        ASSERT_TRUE(VUKO::JSON::toFile(jsDocument, strPath)) << strPath;
    }
    std::string SetAside(const std::string& strPath) const {
        return strPath + " holds no schedule template, it was set aside as " + strPath + ".damaged-1772445630";
    }

    support::CapturedSyslog _log;
    support::FakeClock _clock{1'772'445'630};
    support::TempDir _dir;
    const std::string _strPath = _dir / "disk/template";
    const std::string _strMirrorPath = _dir / "memory/template";
};

TEST_F(TemplateKeeping, DrawsATemplateAtTheFirstStartAndPutsItIntoBothFiles) {
    TemplateKeeper keeper = Keeper();
    EXPECT_EQ(keeper.TakeNotes(), Texts{"no schedule template found, a new one was drawn"});
    EXPECT_EQ(keeper.TakeNotes(), Texts{});
    const Values mapValues = ValuesOf(keeper.Template());
    const std::map<std::string, std::pair<int, int>> mapRanges = {
        {"Minute", {0, 59}}, {"hour", {0, 23}}, {"day", {1, 31}}, {"month", {1, 12}}, {"week", {0, 6}}};
    ASSERT_EQ(mapValues.size(), mapRanges.size());
    for (const auto& [strType, range] : mapRanges) {
        EXPECT_GE(mapValues.at(strType), range.first) << strType;
        EXPECT_LE(mapValues.at(strType), range.second) << strType;
    }
    EXPECT_EQ(keeper.MaxDelay(), MAX_DELAY_BETWEEN_JOBS);
    for (const std::string& strPath : {_strPath, _strMirrorPath}) {
        EXPECT_EQ(InFile(strPath), mapValues) << strPath;
        EXPECT_EQ(support::ModeOf(strPath), 0600) << strPath;
    }
}

TEST_F(TemplateKeeping, KeepsTheTemplateOverARestartAndAReboot) {
    const Values mapValues = ValuesOf(Keeper().Template());
    EXPECT_EQ(ValuesOf(Keeper().Template()), mapValues);
    std::filesystem::remove(_strMirrorPath);
    TemplateKeeper keeper = Keeper();
    EXPECT_EQ(ValuesOf(keeper.Template()), mapValues);
    EXPECT_EQ(InFile(_strMirrorPath), mapValues);
    EXPECT_EQ(keeper.TakeNotes(), Texts{});
}

TEST_F(TemplateKeeping, PrefersTheFileToTheMirror) {
    Put(_strPath, DocumentOf(ONES));
    Put(_strMirrorPath, DocumentOf(TWOS));
    TemplateKeeper keeper = Keeper();
    EXPECT_EQ(ValuesOf(keeper.Template()), ONES);
    EXPECT_EQ(InFile(_strMirrorPath), ONES);
    EXPECT_EQ(keeper.TakeNotes(), Texts{});
}

TEST_F(TemplateKeeping, TakesTheMirrorWhereTheFileIsMissing) {
    Put(_strMirrorPath, DocumentOf(TWOS));
    TemplateKeeper keeper = Keeper();
    EXPECT_EQ(ValuesOf(keeper.Template()), TWOS);
    EXPECT_EQ(InFile(_strPath), TWOS);
    EXPECT_EQ(keeper.TakeNotes(), Texts{});
}

TEST_F(TemplateKeeping, SetsADamagedFileAsideAndTakesTheMirror) {
    support::WriteFile(_strPath, "{\"config\":");
    Put(_strMirrorPath, DocumentOf(TWOS));
    TemplateKeeper keeper = Keeper();
    EXPECT_EQ(ValuesOf(keeper.Template()), TWOS);
    EXPECT_EQ(InFile(_strPath), TWOS);
    EXPECT_EQ(keeper.TakeNotes(), Texts{SetAside(_strPath)});
    EXPECT_EQ(support::ReadFile(_strPath + ".damaged-1772445630"), "{\"config\":");
}

TEST_F(TemplateKeeping, TakesAFileWithAFieldOfSeveralValuesForDamaged) {
    Json::Value jsDocument = DocumentOf(ONES);
    jsDocument["schedule"]["hour"].append(3);
    Put(_strPath, jsDocument);
    Put(_strMirrorPath, DocumentOf(TWOS));
    TemplateKeeper keeper = Keeper();
    EXPECT_EQ(ValuesOf(keeper.Template()), TWOS);
    EXPECT_EQ(keeper.TakeNotes(), Texts{SetAside(_strPath)});
}

TEST_F(TemplateKeeping, DrawsANewTemplateWhereBothAreDamaged) {
    support::WriteFile(_strPath, "");
    support::WriteFile(_strMirrorPath, "{}");
    TemplateKeeper keeper = Keeper();
    EXPECT_EQ(keeper.TakeNotes(),
              (Texts{SetAside(_strPath), SetAside(_strMirrorPath), "no schedule template found, a new one was drawn"}));
    EXPECT_EQ(InFile(_strPath), ValuesOf(keeper.Template()));
    EXPECT_EQ(InFile(_strMirrorPath), ValuesOf(keeper.Template()));
    EXPECT_EQ(support::ReadFile(_strMirrorPath + ".damaged-1772445630"), "{}");
    const Texts vecMessages = _log.Take(); // of the library, about a document that is no job
    ASSERT_FALSE(vecMessages.empty());
    EXPECT_NE(vecMessages.back().find("Failed to parse schedule template from [" + _strMirrorPath + "]"),
              std::string::npos);
}

TEST_F(TemplateKeeping, KeepsWhatItDoesNotKnowAndTheDelay) {
    Json::Value jsDocument = DocumentOf(ONES);
    jsDocument["owner"]["note"] = "by hand";
    jsDocument["maxDelay"] = 77;
    Put(_strPath, jsDocument);
    TemplateKeeper keeper = Keeper();
    EXPECT_EQ(keeper.MaxDelay(), 77);
    EXPECT_EQ(keeper.Reroll(), "");
    EXPECT_EQ(keeper.Save(), "");
    for (const std::string& strPath : {_strPath, _strMirrorPath}) {
        EXPECT_EQ(Read(strPath)["owner"]["note"], "by hand") << strPath;
        EXPECT_EQ(Read(strPath)["maxDelay"], 77) << strPath;
    }
}

TEST_F(TemplateKeeping, BringsChangesIntoTheMirrorAtOnceAndIntoTheFileWhenSaved) {
    Put(_strPath, DocumentOf(ONES));
    TemplateKeeper keeper = Keeper();
    EXPECT_EQ(keeper.SetMaxDelay(5), "");
    EXPECT_EQ(keeper.MaxDelay(), 5);
    EXPECT_EQ(Read(_strMirrorPath)["maxDelay"], 5);
    EXPECT_FALSE(Read(_strPath).isMember("maxDelay"));
    EXPECT_EQ(keeper.Save(), "");
    EXPECT_EQ(Read(_strPath)["maxDelay"], 5);
    Values mapValues = ONES;
    for (int i = 0; i < 100 && mapValues == ONES; ++i) {
        EXPECT_EQ(keeper.Reroll(), "");
        mapValues = ValuesOf(keeper.Template());
    }
    EXPECT_NE(mapValues, ONES);
    EXPECT_EQ(InFile(_strMirrorPath), mapValues);
    EXPECT_EQ(InFile(_strPath), ONES);
    EXPECT_EQ(keeper.Save(), "");
    EXPECT_EQ(InFile(_strPath), mapValues);
}

TEST_F(TemplateKeeping, ForgetsAStoredDelayWhenTheUsualOneIsSet) {
    Json::Value jsDocument = DocumentOf(ONES);
    jsDocument["maxDelay"] = 77;
    Put(_strPath, jsDocument);
    {
        TemplateKeeper keeper = Keeper();
        EXPECT_EQ(keeper.SetMaxDelay(MAX_DELAY_BETWEEN_JOBS), "");
        EXPECT_EQ(keeper.Save(), "");
    }
    EXPECT_EQ(Keeper().MaxDelay(), MAX_DELAY_BETWEEN_JOBS);
}

TEST_F(TemplateKeeping, WritesTheFileOnlyWhenThereIsSomethingNew) {
    TemplateKeeper keeper = Keeper();
    std::filesystem::remove(_strPath);
    EXPECT_EQ(keeper.Save(), "");
    EXPECT_FALSE(support::Exists(_strPath));
    EXPECT_EQ(keeper.SetMaxDelay(5), "");
    EXPECT_EQ(keeper.Save(), "");
    EXPECT_TRUE(support::Exists(_strPath));
}

TEST_F(TemplateKeeping, LeavesTheDiskAloneUntilItIsToldToSave) {
    TemplateKeeper keeper = Keeper(false);
    EXPECT_FALSE(support::Exists(_strPath));
    EXPECT_EQ(InFile(_strMirrorPath), ValuesOf(keeper.Template()));
    EXPECT_EQ(keeper.Save(), "");
    EXPECT_EQ(InFile(_strPath), ValuesOf(keeper.Template()));
}

TEST_F(TemplateKeeping, TellsWhyTheFileCannotBeWrittenAndTriesAgain) {
    std::filesystem::remove(_dir / "disk");
    const std::string strReason = _strPath + " cannot be written: No such file or directory";
    TemplateKeeper keeper = Keeper();
    EXPECT_EQ(keeper.TakeNotes(), (Texts{"no schedule template found, a new one was drawn", strReason}));
    EXPECT_EQ(keeper.Save(), strReason);
    std::filesystem::create_directory(_dir / "disk");
    EXPECT_EQ(keeper.Save(), "");
    EXPECT_EQ(InFile(_strPath), ValuesOf(keeper.Template()));
}

TEST_F(TemplateKeeping, TellsWhyTheMirrorCannotBeWrittenAndServesNonetheless) {
    std::filesystem::remove(_dir / "memory");
    const std::string strReason = _strMirrorPath + " cannot be written: No such file or directory";
    TemplateKeeper keeper = Keeper();
    EXPECT_EQ(keeper.TakeNotes(), (Texts{"no schedule template found, a new one was drawn", strReason}));
    EXPECT_EQ(InFile(_strPath), ValuesOf(keeper.Template()));
    EXPECT_EQ(keeper.SetMaxDelay(5), strReason);
    EXPECT_EQ(keeper.MaxDelay(), 5);
    EXPECT_EQ(keeper.Save(), "");
    EXPECT_EQ(Read(_strPath)["maxDelay"], 5);
}

} // namespace
