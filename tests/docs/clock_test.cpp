#include <gtest/gtest.h>

#include <json/json.h>

#include <regex>
#include <sstream>
#include <vector>

#include "crond/cronjob.h"
#include "service/engine/simulator.h"
#include "tests/support/scoped_tz.h"
#include "tests/support/temp_dir.h"

namespace {

using namespace VUKO::VUKOCrond;
using namespace VUKO::VUKOCrond::Service;

/// A table of docs/CLOCK.md: what some schedules come to in a zone and a span of time. It follows a comment such as
/// `<!-- starts: Europe/Berlin catchup 2026-03-29T00:00 2026-03-29T05:00 -->`.
struct StartTable {
    std::string strZone;
    ClockPolicy ePolicy = ClockPolicy::CatchUp;
    std::string strFrom;
    std::string strTo;
    struct Row {
        std::string strCrontab;
        std::string strStarts;
        std::string strSkips;
    };
    std::vector<Row> vecRows;
};

std::vector<StartTable> TablesOf(const std::string& strDocument) {
    static const std::regex head(R"(<!-- starts: (\S+) (\S+) (\S+) (\S+) -->)");
    static const std::regex row(R"(\| `([^`]+)` \| ([^|]*) \| ([^|]*) \|)");
    std::vector<StartTable> vecTables;
    std::istringstream lines(support::ReadFile(std::string(VUKO_SOURCE_DIR) + "/" + strDocument));
    bool bInTable = false;
    for (std::string strLine; std::getline(lines, strLine);) {
        std::smatch match;
        if (std::regex_match(strLine, match, head)) {
            vecTables.push_back({match[1], ClockPolicyOf(match[2].str()).value(), match[3], match[4], {}});
            bInTable = true;
        } else if (bInTable && std::regex_match(strLine, match, row)) {
            vecTables.back().vecRows.push_back({match[1], match[2], match[3]});
        } else {
            bInTable = bInTable && (strLine.empty() || strLine.front() == '|');
        }
    }
    return vecTables;
}

std::time_t InstantOf(const std::string& strLocal) {
    std::tm tmLocal = {};
    tmLocal.tm_isdst = -1;
    EXPECT_NE(strptime(strLocal.c_str(), "%Y-%m-%dT%H:%M", &tmLocal), nullptr) << strLocal;
    return mktime(&tmLocal);
}

JobTable TableOf(const std::string& strCrontab) {
    Json::Value jsDocument;
    Json::Value& jsDefinition = jsDocument["config"];
    jsDefinition["name"] = "job";
    jsDefinition["user"] = "root";
    jsDefinition["period"] = "crontab";
    jsDefinition["crontab"] = strCrontab;
    jsDefinition["cmd"] = "true";
    CronJob record(jsDocument);
    EXPECT_TRUE(record._bValid) << strCrontab;
    for (const std::string& strType : CronJob::GetAllScheduleTypes()) {
        record.GenerateSchedule(strType, -1);
    }
    Job job;
    TakeDefinition(job, jsDocument["config"], record);
    job.id.strName = "job";
    job.schedule = Schedule(ScheduleToText(record));
    return JobTable({job});
}

std::string Clock(const std::tm& tmLocal, const char* szForm) {
    char szText[32] = {};
    strftime(szText, sizeof(szText), szForm, &tmLocal);
    return szText;
}

void Append(std::string& strList, const std::string& strItem) {
    strList += (strList.empty() ? "" : ", ") + strItem;
}

std::string OrNone(const std::string& strList) {
    return strList.empty() ? "none" : strList;
}

/// What the engine makes of a row's schedule, in the words of the table.
StartTable::Row Simulated(const StartTable& table, const std::string& strCrontab) {
    std::string strStarts;
    std::string strSkips;
    Simulator simulator({table.ePolicy, 0}, TableOf(strCrontab));
    simulator.Run(InstantOf(table.strFrom), InstantOf(table.strTo), {},
                  [&](const ClockReading& reading, const Decision& decision, const JobTable&) {
                      std::tm tmLocal = {};
                      localtime_r(&reading.tNow, &tmLocal);
                      for (const Start& start : decision.vecStarts) {
                          const bool bMadeUp = start.eReason == StartReason::MadeUp;
                          Append(strStarts, Clock(tmLocal, "%H:%M %Z") + (bMadeUp ? " made-up" : ""));
                      }
                      for (const Skip& skip : decision.vecSkips) {
                          const WallMinute wall = WallMinuteOf(skip.iMinute);
                          std::tm tmWall = {};
                          tmWall.tm_hour = wall.iHour;
                          tmWall.tm_min = wall.iMinute;
                          Append(strSkips, Clock(tmWall, "%H:%M ") + ToText(skip.eReason));
                      }
                      return true;
                  });
    return {strCrontab, OrNone(strStarts), OrNone(strSkips)};
}

TEST(ClockDocument, ShowsWhatTheEngineDoes) {
    const std::vector<StartTable> vecTables = TablesOf("docs/CLOCK.md");
    EXPECT_GE(vecTables.size(), 5U);
    for (const StartTable& table : vecTables) {
        const support::ScopedTz tz(table.strZone);
        EXPECT_FALSE(table.vecRows.empty()) << table.strZone << " " << table.strFrom;
        for (const StartTable::Row& row : table.vecRows) {
            const StartTable::Row real = Simulated(table, row.strCrontab);
            EXPECT_EQ(row.strStarts, real.strStarts) << table.strZone << " " << table.strFrom << " " << row.strCrontab;
            EXPECT_EQ(row.strSkips, real.strSkips) << table.strZone << " " << table.strFrom << " " << row.strCrontab;
        }
    }
}

TEST(ClockDocument, ShowsTheBordersOfThePolicy) {
    static const std::regex row(R"(\| (-?\d+) to (-?\d+) \| [^|]* \| ([^|]*) \| ([^|]*) \| ([^|]*) \|)");
    std::istringstream lines(support::ReadFile(std::string(VUKO_SOURCE_DIR) + "/docs/CLOCK.md"));
    constexpr std::int64_t iNow = 1000;
    int iRows = 0;
    for (std::string strLine; std::getline(lines, strLine);) {
        std::smatch match;
        if (!std::regex_match(strLine, match, row)) {
            continue;
        }
        ++iRows;
        for (const std::int64_t iPassed : {std::stoll(match[1]), std::stoll(match[2])}) {
            const TickWindow window = WindowOf(ClockPolicy::CatchUp, iNow - iPassed, iNow);
            EXPECT_EQ(match[3] == "v+1 to r", window.bWildcardLooksBack) << strLine;
            EXPECT_EQ(match[4] == "v+1 to r", window.iOldest == iNow - iPassed + 1 && window.HasGap()) << strLine;
            EXPECT_EQ(match[4] == "never", !window.bFixedDueNow) << strLine;
            EXPECT_EQ(match[5] == "stays", window.iWorkedUpTo != iNow || iPassed == 0) << strLine;
        }
    }
    EXPECT_EQ(iRows, 6);
}

} // namespace
