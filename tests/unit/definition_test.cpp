#include <gtest/gtest.h>

#include "crond/cronjob.h"
#include "tests/unit/definitions.h"
#include "tests/unit/messages.h"

using namespace unit;

namespace {

using Lines = std::vector<std::string>;

const Lines SILENT_REFUSAL{"<3>cronjob:166 parse error"};

const char* const ANY_MINUTE = "1:0..59";

/// The fields that a period's first letter stands for, "" for none. The crontab kind is told apart by its own text.
std::string FieldsOfKind(char cFirst) {
    switch (cFirst) {
    case 'c':
    case 'C':
        return "0:1..-1|0:2..-1|0:3..-1|0:4..-1|0:5..-1";
    case 'd':
    case 'D':
        return "1:0..59|1:0..23|2:-1..-1|2:-1..-1|2:-1..-1";
    case 'h':
    case 'H':
        return "1:0..59|2:-1..-1|2:-1..-1|2:-1..-1|2:-1..-1";
    case 'm':
    case 'M':
        return "1:0..59|1:0..23|1:1..28|2:-1..-1|2:-1..-1";
    case 'w':
    case 'W':
        return "1:0..59|1:0..23|2:-1..-1|2:-1..-1|1:0..6";
    default:
        return "";
    }
}

/// Builds a job and tells what it logged; the job itself comes back through the argument.
Lines Build(const Json::Value& jsConf, CronJob& job) {
    return Logged([&] { job = CronJob(Document(jsConf)); });
}

CronJob Invalid() {
    CronJob job(Document(Definition()));
    job._bValid = false;
    return job;
}

} // namespace

TEST(PeriodKind, IsToldByTheFirstCharacterAlone) {
    for (int i = 0; i < 256; ++i) {
        const char cFirst = static_cast<char>(i);
        for (const char* const szRest : {"", "x", "aily", "rontab", " daily", "crontab"}) {
            const Json::Value jsConf = With("crontab", "1 2 3 4 5", With("period", std::string(1, cFirst) + szRest));
            CronJob job = Invalid();
            const Lines vecLines = Build(jsConf, job);
            const std::string strFields = FieldsOfKind(cFirst);
            ASSERT_EQ(job._bValid, !strFields.empty()) << "first byte " << i << ", then " << szRest;
            if (strFields.empty()) {
                EXPECT_EQ(vecLines, (Lines{"<3>cronjob:265 error period", "<3>cronjob:166 parse error"}));
                EXPECT_TRUE(job._mapRanges.empty());
            } else {
                EXPECT_EQ(vecLines, Lines{});
                EXPECT_EQ(AllRanges(job), strFields) << "first byte " << i;
            }
        }
    }
}

TEST(PeriodKind, ThatIsUnknownIsReportedInBothForms) {
    for (const char* const szPeriod : {"yearly", " daily", "0 0 * * *", "~", "-"}) {
        ExpectInBothForms([szPeriod] { EXPECT_FALSE(CronJob(Document(With("period", szPeriod)))._bValid); },
                          {{265, "error period"}, {166, "parse error"}});
    }
}

TEST(PeriodKind, OfCapitalCrontabNeedsNoCrontabTextAndFindsNone) {
    ExpectInBothForms([] { EXPECT_FALSE(CronJob(Document(With("period", "Crontab")))._bValid); },
                      {{166, "parse error"}});
}

TEST(PeriodKind, OfAWordThatHoldsCrontabIsStillToldByItsFirstLetter) {
    const CronJob job(Document(With("crontab", "not read", With("period", "daily, not crontab"))));
    EXPECT_TRUE(job._bValid);
    EXPECT_EQ(AllRanges(job), FieldsOfKind('d'));
}

TEST(CrontabText, IsFiveFieldsSeparatedByBlanks) {
    struct Case {
        const char* szFields;
        bool bValid;
        const char* szComment;
    };
    const Case aCases[] = {
        {"1 2 3 4 5", true, "five fields"},
        {"1  2   3 4 5", true, "adjacent blanks count as one"},
        {"  1 2 3 4 5 ", true, "blanks around count as none"},
        {"", false, "no text"},
        {"     ", false, "blanks alone"},
        {"1", false, "one field"},
        {"1 2 3 4", false, "four fields"},
        {"1 2 3 4 5 5", false, "six fields"},
        {"1 2 3 4\t5", false, "a tab separates nothing"},
        {"1 2 3 4 5\n", true, "a line's end belongs to the number before it"},
        {"1 2 3 4 5 \n", false, "a line's end after a blank is a sixth field"},
        {"@daily", false, "no names of schedules"},
    };
    for (const Case& c : aCases) {
        SCOPED_TRACE(c.szComment);
        CronJob job = Invalid();
        const Lines vecLines = Build(Crontab(c.szFields), job);
        EXPECT_EQ(job._bValid, c.bValid);
        EXPECT_EQ(vecLines, c.bValid ? Lines{} : SILENT_REFUSAL);
        EXPECT_EQ(AllRanges(job), c.bValid ? FieldsOfKind('c') : "none|none|none|none|none");
    }
}

TEST(CrontabText, MayHoldRandomItemsOfItsOwn) {
    const CronJob job(Document(Crontab("0,30 ~ * * 1~5")));
    EXPECT_TRUE(job._bValid);
    EXPECT_EQ(AllRanges(job), "0:0..-1 0:30..-1|1:0..23|2:-1..-1|2:-1..-1|1:1..5");
}

TEST(CrontabText, WithAFieldOfCommasAloneIsAcceptedWithoutItemsThere) {
    const CronJob job(Document(Crontab("1 , 3 4 5")));
    EXPECT_TRUE(job._bValid);
    EXPECT_EQ(AllRanges(job), "0:1..-1|none|0:3..-1|0:4..-1|0:5..-1");
}

TEST(CrontabText, IsReadUpToItsFirstBadFieldAndKeepsTheFieldsBefore) {
    struct Case {
        const char* szFields;
        const char* szRanges;
        std::vector<Message> vecMessages;
    };
    const Case aCases[] = {
        {"x y z a b", "none|none|none|none|none", {{338, "x is not a valid number"}}},
        {"1 y z a b", "0:1..-1|none|none|none|none", {{338, "y is not a valid number"}}},
        {"1 2 5~3 a b", "0:1..-1|0:2..-1|none|none|none", {{360, "range.from[5] cannot greater than range.to[3]"}}},
        {"1 2 3 1,13 b", "0:1..-1|0:2..-1|0:3..-1|0:1..-1|none", {}},
        {"1 2 3 4 1,2,7", "0:1..-1|0:2..-1|0:3..-1|0:4..-1|0:1..-1 0:2..-1", {}},
    };
    for (const Case& c : aCases) {
        SCOPED_TRACE(c.szFields);
        std::vector<Message> vecExpected = c.vecMessages;
        vecExpected.push_back({166, "parse error"});
        ExpectInBothForms(
            [&c] {
                const CronJob job(Document(Crontab(c.szFields)));
                EXPECT_FALSE(job._bValid);
                EXPECT_EQ(AllRanges(job), c.szRanges);
                EXPECT_FALSE(job._jsJob.isMember("cmd_list"));
                EXPECT_FALSE(job._jsJob.isMember("cmd_str"));
            },
            vecExpected);
    }
}

TEST(AssureExecute, IsReadWithTheJsonLibrarysConversionToAnInt) {
    struct Case {
        const char* szComment;
        Json::Value jsHours;
        bool bValid;
        int iHours;
    };
    const Case aCases[] = {
        {"a number", 24, true, 24},
        {"a negative number", -3, true, -3},
        {"the greatest int", 2147483647, true, 2147483647},
        {"the least int", Json::Value::minInt, true, Json::Value::minInt},
        {"a fraction is cut", 1.9, true, 1},
        {"null", Json::Value(), true, 0},
        {"true", true, true, 1},
        {"false", false, true, 0},
        {"one above the greatest int", Json::Value(Json::Int64{2147483648}), false, 0},
        {"one below the least int", Json::Value(Json::Int64{-2147483649}), false, 0},
        {"the greatest unsigned number", Json::Value(Json::Value::maxUInt64), false, 0},
        {"a fraction out of range", 1e300, false, 0},
        {"a text", "24", false, 0},
        {"an array", FromText("[24]"), false, 0},
        {"an object", FromText(R"({"hours":24})"), false, 0},
    };
    for (const Case& c : aCases) {
        SCOPED_TRACE(c.szComment);
        CronJob job = Invalid();
        const Lines vecLines = Build(With("assure_execute", c.jsHours), job);
        EXPECT_EQ(job._bValid, c.bValid);
        EXPECT_EQ(job._iAssureExecute, c.iHours);
        EXPECT_EQ(vecLines, c.bValid ? Lines{} : SILENT_REFUSAL);
        EXPECT_EQ(job._jsJob["config"]["assure_execute"], c.jsHours);
    }
}

TEST(AssureExecuteAction, IsRunOnlyWhenItSaysExactlyThat) {
    const Json::Value aOthers[] = {Json::Value("wait"), Json::Value("Run"),    Json::Value("RUN"),
                                   Json::Value("run "), Json::Value(" run"),   Json::Value(""),
                                   Json::Value("runs"), Json::Value(1),        Json::Value(true),
                                   Json::Value(),       FromText("[\"run\"]"), Json::Value(std::string("run\0", 4))};
    for (const Json::Value& jsOther : aOthers) {
        const CronJob job(Document(With("assure_execute_action", jsOther)));
        EXPECT_TRUE(job._bValid) << jsOther;
        EXPECT_EQ(job._iAssureExecuteAction, 0) << jsOther;
    }
    const CronJob job(Document(With("assure_execute_action", "run")));
    EXPECT_TRUE(job._bValid);
    EXPECT_EQ(job._iAssureExecuteAction, 1);
}

TEST(RunOnPassive, IsReadWithTheJsonLibrarysConversionToABool) {
    struct Case {
        const char* szComment;
        Json::Value jsPassive;
        bool bValid;
        bool bPassive;
    };
    const Case aCases[] = {
        {"true", true, true, true},
        {"false", false, true, false},
        {"null", Json::Value(), true, false},
        {"zero", 0, true, false},
        {"a number", -2, true, true},
        {"a fraction", 0.5, true, true},
        {"a text", "true", false, false},
        {"an array", Json::Value(Json::arrayValue), false, false},
        {"an object", Json::Value(Json::objectValue), false, false},
    };
    for (const Case& c : aCases) {
        SCOPED_TRACE(c.szComment);
        CronJob job = Invalid();
        const Lines vecLines = Build(With("run_on_passive", c.jsPassive), job);
        EXPECT_EQ(job._bValid, c.bValid);
        EXPECT_EQ(job._bRunOnPassive, c.bPassive);
        EXPECT_EQ(vecLines, c.bValid ? Lines{} : SILENT_REFUSAL);
    }
}

TEST(Parse, NeverChangesTheDefinition) {
    const Json::Value aDefinitions[] = {
        Definition(),
        Crontab("1 2 3 4 5"),
        With("period", "Crontab"),
        With("period", "yearly"),
        With("cmd_list", FromText(R"(["/bin/true", 5, null])")),
        With("cmd_list", "text"),
        Without("cmd"),
        With("assure_execute", "x"),
    };
    for (const Json::Value& jsConf : aDefinitions) {
        CronJob job(Document(Definition()));
        job._jsJob = Document(jsConf);
        const Json::Value jsBefore = job._jsJob["config"];
        Logged([&job] {
            try {
                job.Parse();
            } catch (const Json::LogicError&) {
                EXPECT_EQ(job._jsJob["config"]["assure_execute"], "x");
            }
        });
        EXPECT_EQ(job._jsJob["config"], jsBefore);
    }
}

TEST(Parse, LeavesWhatItWroteBeforeItFailed) {
    const Json::Value jsHours = With("assure_execute", 5, With("assure_execute_action", "run"));
    struct Case {
        const char* szComment;
        Json::Value jsConf;
        int iHours;
        int iAction;
        bool bPassive;
        const char* szRuntimeKeys;
    };
    const Case aCases[] = {
        {"the hours", With("assure_execute", "x", With("assure_execute_action", "run")), 0, 0, false, ""},
        {"the passive mark", With("run_on_passive", "x", jsHours), 5, 1, false, ""},
        {"an argument", With("cmd_list", FromText(R"(["a",[]])"), With("run_on_passive", true, jsHours)), 5, 1, true,
         "cmd_list"},
        {"no argument", With("cmd_list", FromText("[]"), With("run_on_passive", true, jsHours)), 5, 1, true,
         "cmd_list cmd_str"},
    };
    for (const Case& c : aCases) {
        SCOPED_TRACE(c.szComment);
        CronJob job = Invalid();
        Build(c.jsConf, job);
        EXPECT_FALSE(job._bValid);
        EXPECT_EQ(AllRanges(job), FieldsOfKind('d')) << "the fields come first";
        EXPECT_EQ(job._iAssureExecute, c.iHours);
        EXPECT_EQ(job._iAssureExecuteAction, c.iAction);
        EXPECT_EQ(job._bRunOnPassive, c.bPassive);
        std::string strKeys = job._jsJob.isMember("cmd_list") ? "cmd_list" : "";
        strKeys += job._jsJob.isMember("cmd_str") ? " cmd_str" : "";
        EXPECT_EQ(strKeys, c.szRuntimeKeys);
    }
}

TEST(Parse, LetsTheJsonLibrarysErrorOutAndTheConstructorTurnsItIntoAnInvalidRecord) {
    CronJob job(Document(Definition()));
    job._jsJob = Document(With("assure_execute", FromText("{}")));
    EXPECT_THROW(job.Parse(), Json::LogicError);
    ExpectInBothForms([] { EXPECT_FALSE(CronJob(Document(With("assure_execute", FromText("{}"))))._bValid); },
                      {{166, "parse error"}});
}

TEST(Parse, ReadsAMissingMemberWithoutAddingIt) {
    CronJob job(Document(Definition()));
    job._mapRanges.clear();
    job._jsJob = FromText(R"({"config":{"period":"daily"}})");
    EXPECT_TRUE(job.Parse());
    EXPECT_EQ(job._jsJob["config"].size(), 1U);
    EXPECT_EQ(RangesOf(job, "Minute"), ANY_MINUTE);
}
