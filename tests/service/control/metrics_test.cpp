#include "service/metrics.h"

#include <gtest/gtest.h>

#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <string>

#include "tests/support/scoped_umask.h"
#include "tests/support/temp_dir.h"

using namespace VUKO::VUKOCrond::Service;

namespace {

/// What a collector makes of a page. Strict: whatever it would not take fails the test.
class Scrape {
public:
    explicit Scrape(const std::string& strText) {
        EXPECT_TRUE(!strText.empty() && strText.back() == '\n');
        std::istringstream stream(strText);
        for (std::string strLine; std::getline(stream, strLine);) {
            if (strLine.starts_with("# HELP ")) {
                TakeHelp(strLine);
            } else if (strLine.starts_with("# TYPE ")) {
                TakeType(strLine);
            } else {
                TakeSample(strLine);
            }
        }
    }

    const std::map<std::string, std::string>& Samples() const { return _mapSamples; }
    std::string operator[](const std::string& strSeries) const {
        const auto it = _mapSamples.find(strSeries);
        return it == _mapSamples.end() ? "none" : it->second;
    }
    std::size_t CountOf(const std::string& strPrefix) const {
        std::size_t uCount = 0;
        for (const auto& [strSeries, strValue] : _mapSamples) {
            uCount += strSeries.starts_with(strPrefix) ? 1u : 0u;
        }
        return uCount;
    }

private:
    void TakeHelp(const std::string& strLine) {
        static const std::regex form(R"(# HELP ([a-z_]+) ([ -\[\]-~]+))"); // a backslash would begin an escape
        std::smatch match;
        ASSERT_TRUE(std::regex_match(strLine, match, form)) << strLine;
        _strName = match[1];
        EXPECT_TRUE(_setNames.insert(_strName).second) << "twice: " << strLine;
        _bTyped = false;
    }
    void TakeType(const std::string& strLine) {
        static const std::regex form("# TYPE ([a-z_]+) (counter|gauge)");
        std::smatch match;
        ASSERT_TRUE(std::regex_match(strLine, match, form)) << strLine;
        EXPECT_EQ(match[1], _strName);
        EXPECT_FALSE(_bTyped);
        EXPECT_EQ(_strName.ends_with("_total"), match[2] == "counter") << strLine;
        _bTyped = true;
    }
    void TakeSample(const std::string& strLine) {
        static const std::regex form(
            R"re((([a-z_]+)(\{[a-z_]+="([ -!#-\[\]-~]|\\[\\"n])*"(,[a-z_]+="([ -!#-\[\]-~]|\\[\\"n])*")*\})?) ([0-9]+(\.[0-9]+)?|-[0-9]+))re");
        std::smatch match;
        ASSERT_TRUE(std::regex_match(strLine, match, form)) << strLine;
        EXPECT_EQ(match[2], _strName);
        EXPECT_TRUE(_bTyped);
        EXPECT_TRUE(_mapSamples.try_emplace(match[1], match[7]).second) << "twice: " << strLine;
    }

    std::string _strName;
    bool _bTyped = false;
    std::set<std::string> _setNames;
    std::map<std::string, std::string> _mapSamples;
};

MetricsSnapshot Full() {
    MetricsSnapshot snapshot;
    snapshot.strVersion = "1.2.3";
    snapshot.strPolicy = "catchup";
    snapshot.iStarted = 1793000000;
    snapshot.iLastTick = 1793000040;
    snapshot.iZoneOffset = -12600;
    snapshot.bActive = false;
    snapshot.uReloads = 3;
    snapshot.uRefusedDefinitions = 2;
    snapshot.mapJobs = {{"enabled", 7}, {"disabled", 1}};
    snapshot.mapStarts = {{"started", 12}, {"made-up", 1}};
    snapshot.mapSkips = {{"clock step", 4}};
    snapshot.mapEnds = {{"exited", 11}};
    snapshot.uRunning = 1;
    snapshot.vecJobs.push_back({"builtin/a", true, 3, 1500, 1793000000, 1792990000});
    snapshot.vecJobs.push_back({"builtin/new", false, {}, {}, {}, {}});
    return snapshot;
}

} // namespace

TEST(Metrics, TellWhatTheServiceDoes) {
    const Scrape scrape(MetricsText(Full()));
    EXPECT_EQ(scrape["vukocrond_build_info{version=\"1.2.3\",policy=\"catchup\"}"], "1");
    EXPECT_EQ(scrape["vukocrond_start_timestamp_seconds"], "1793000000");
    EXPECT_EQ(scrape["vukocrond_last_tick_timestamp_seconds"], "1793000040");
    EXPECT_EQ(scrape["vukocrond_state_saved_timestamp_seconds"], "0");
    EXPECT_EQ(scrape["vukocrond_zone_offset_seconds"], "-12600");
    EXPECT_EQ(scrape["vukocrond_active"], "0");
    EXPECT_EQ(scrape["vukocrond_hibernating"], "0");
    EXPECT_EQ(scrape["vukocrond_reloads_total"], "3");
    EXPECT_EQ(scrape["vukocrond_refused_definitions"], "2");
    EXPECT_EQ(scrape["vukocrond_running_jobs"], "1");
    EXPECT_EQ(scrape["vukocrond_jobs{state=\"enabled\"}"], "7");
    EXPECT_EQ(scrape["vukocrond_starts_total{kind=\"made-up\"}"], "1");
    EXPECT_EQ(scrape["vukocrond_skips_total{reason=\"clock step\"}"], "4");
    EXPECT_EQ(scrape["vukocrond_run_ends_total{end=\"exited\"}"], "11");
    EXPECT_EQ(scrape["vukocrond_jobs_not_told"], "0");
}

TEST(Metrics, TellOfEachJobWhatIsKnown) {
    const Scrape scrape(MetricsText(Full()));
    EXPECT_EQ(scrape["vukocrond_job_running{job=\"builtin/a\"}"], "1");
    EXPECT_EQ(scrape["vukocrond_job_last_exit_status{job=\"builtin/a\"}"], "3");
    EXPECT_EQ(scrape["vukocrond_job_last_duration_seconds{job=\"builtin/a\"}"], "0.001500");
    EXPECT_EQ(scrape["vukocrond_job_last_start_timestamp_seconds{job=\"builtin/a\"}"], "1793000000");
    EXPECT_EQ(scrape["vukocrond_job_last_success_timestamp_seconds{job=\"builtin/a\"}"], "1792990000");
    EXPECT_EQ(scrape["vukocrond_job_running{job=\"builtin/new\"}"], "0");
    EXPECT_EQ(scrape.CountOf("vukocrond_job_last_"), 4u) << "of one that never ran, nothing is known";
}

TEST(Metrics, WriteDurationsToTheMicrosecond) {
    const std::pair<std::int64_t, const char*> aCases[] = {
        {0, "0.000000"}, {1, "0.000001"}, {999999, "0.999999"}, {1000000, "1.000000"}, {86400000001, "86400.000001"},
        {-1, "0.000000"}};
    for (const auto& [iUsec, szText] : aCases) {
        MetricsSnapshot snapshot;
        snapshot.vecJobs.push_back({"j", false, {}, iUsec, {}, {}});
        EXPECT_EQ(Scrape(MetricsText(snapshot))["vukocrond_job_last_duration_seconds{job=\"j\"}"], szText);
    }
}

TEST(Metrics, CannotBeForgedByTheNameOfAJob) {
    MetricsSnapshot snapshot;
    snapshot.vecJobs.push_back({"a\"} 1\nvukocrond_active 9 \\ \xff\x01", false, {}, {}, {}, {}});
    const Scrape scrape(MetricsText(snapshot));
    EXPECT_EQ(scrape["vukocrond_active"], "1");
    EXPECT_EQ(scrape[R"(vukocrond_job_running{job="a\"} 1\nvukocrond_active 9 \\ ??"})"], "0");
}

TEST(Metrics, TellOfSoManyJobsAndCountTheRest) {
    MetricsSnapshot snapshot;
    for (std::size_t i = 0; i < METRICS_JOBS_MAX + 5; ++i) {
        snapshot.vecJobs.push_back({"job" + std::to_string(i), false, {}, {}, {}, {}});
    }
    const Scrape scrape(MetricsText(snapshot));
    EXPECT_EQ(scrape.CountOf("vukocrond_job_running{"), METRICS_JOBS_MAX);
    EXPECT_EQ(scrape["vukocrond_jobs_not_told"], "5");
}

TEST(Metrics, AreWrittenForAllToReadAndInOneStep) {
    const support::ScopedUmask umask(077);
    const support::TempDir dir;
    const std::string strPath = dir / "vukocrond.prom";
    support::WriteFile(strPath, "old");
    EXPECT_EQ(WriteMetrics(strPath, Full()), "");
    EXPECT_EQ(support::ReadFile(strPath), MetricsText(Full()));
    EXPECT_EQ(support::ModeOf(strPath), 0644);
    EXPECT_EQ(WriteMetrics(dir / "missing/x.prom", Full()),
              dir / "missing/x.prom" + " cannot be written: No such file or directory");
}
