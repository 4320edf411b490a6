#include "service/metrics.h"

#include <algorithm>
#include <functional>

#include "service/replacefile.h"

namespace VUKO::VUKOCrond::Service {

namespace {

constexpr mode_t METRICS_FILE_MODE = 0644;
constexpr std::size_t MICROSECOND_DIGITS = 6;

/// Bytes that are no UTF-8 would make the whole file unreadable; names of jobs are the only strangers' texts here, and
/// a question mark in one of them costs nobody anything.
std::string LabelValue(const std::string& strText) {
    std::string strOut;
    for (const char c : strText) {
        switch (c) {
        case '\\':
            strOut += "\\\\";
            break;
        case '"':
            strOut += "\\\"";
            break;
        case '\n':
            strOut += "\\n";
            break;
        default:
            strOut += ' ' <= c && c <= '~' ? c : '?';
        }
    }
    return strOut;
}

std::string Label(const char* szName, const std::string& strValue) {
    return std::string(szName) + "=\"" + LabelValue(strValue) + '"';
}

/// Microseconds as seconds, to the last digit.
std::string Seconds(std::int64_t iUsec) {
    std::string strDigits = std::to_string(iUsec < 0 ? 0 : iUsec);
    strDigits.insert(0, MICROSECOND_DIGITS + 1 - std::min(strDigits.size(), MICROSECOND_DIGITS + 1), '0');
    return strDigits.insert(strDigits.size() - MICROSECOND_DIGITS, 1, '.');
}

class Page {
public:
    /// Begins a metric; its samples must follow before the next one begins.
    void Begin(const char* szName, const char* szType, const char* szHelp) {
        _strName = std::string("vukocrond_") + szName;
        _strText += "# HELP " + _strName + ' ' + szHelp + "\n# TYPE " + _strName + ' ' + szType + '\n';
    }
    void Sample(const std::string& strValue, const std::string& strLabels = std::string()) {
        _strText += _strName + (strLabels.empty() ? "" : '{' + strLabels + '}') + ' ' + strValue + '\n';
    }
    void Gauge(const char* szName, const char* szHelp, std::int64_t iValue) {
        Begin(szName, "gauge", szHelp);
        Sample(std::to_string(iValue));
    }
    template <typename Map>
    void ByLabel(const char* szName, const char* szType, const char* szHelp, const char* szLabel, const Map& map) {
        Begin(szName, szType, szHelp);
        for (const auto& [strValue, uCount] : map) {
            Sample(std::to_string(uCount), Label(szLabel, strValue));
        }
    }
    std::string Take() { return std::move(_strText); }

private:
    std::string _strText;
    std::string _strName;
};

void AddService(Page& page, const MetricsSnapshot& snapshot) {
    page.Begin("build_info", "gauge", "The version and the clock policy of the service; always 1.");
    page.Sample("1", Label("version", snapshot.strVersion) + ',' + Label("policy", snapshot.strPolicy));
    page.Gauge("start_timestamp_seconds", "When the service started.", snapshot.iStarted);
    page.Gauge("last_tick_timestamp_seconds", "When the service last looked at the clock; 0 before the first time.",
               snapshot.iLastTick);
    page.Gauge("state_saved_timestamp_seconds", "When the state was last brought to the disk; 0 before the first time.",
               snapshot.iStateSaved);
    page.Gauge("zone_offset_seconds", "Offset of local time from UTC, positive east of Greenwich.",
               snapshot.iZoneOffset);
    page.Gauge("active", "1 where the service has the active role, 0 where it is passive.", snapshot.bActive ? 1 : 0);
    page.Gauge("hibernating", "1 while the machine hibernates.", snapshot.bHibernating ? 1 : 0);
    page.Begin("reloads_total", "counter", "How often the definitions were read again since the service started.");
    page.Sample(std::to_string(snapshot.uReloads));
}

void AddCounts(Page& page, const MetricsSnapshot& snapshot) {
    page.ByLabel("jobs", "gauge", "Jobs by state.", "state", snapshot.mapJobs);
    page.Gauge("refused_definitions", "Definitions and files that are refused.",
               static_cast<std::int64_t>(snapshot.uRefusedDefinitions));
    page.Gauge("running_jobs", "Runs that have not ended.", static_cast<std::int64_t>(snapshot.uRunning));
    page.ByLabel("starts_total", "counter", "Starts since the service started, by kind.", "kind", snapshot.mapStarts);
    page.ByLabel("skips_total", "counter", "Due minutes in which a job was not started, by reason.", "reason",
                 snapshot.mapSkips);
    page.ByLabel("run_ends_total", "counter", "Runs that ended since the service started, by how.", "end",
                 snapshot.mapEnds);
}

/// One sample for each job for which there is a value; the function tells it as text, or an empty one.
void AddForEachJob(Page& page, const MetricsSnapshot& snapshot, const char* szName, const char* szHelp,
                   const std::function<std::string(const JobMetrics&)>& value) {
    page.Begin(szName, "gauge", szHelp);
    const std::size_t uCount = std::min(snapshot.vecJobs.size(), METRICS_JOBS_MAX);
    for (std::size_t i = 0; i < uCount; ++i) {
        if (const std::string strValue = value(snapshot.vecJobs[i]); !strValue.empty()) {
            page.Sample(strValue, Label("job", snapshot.vecJobs[i].strJob));
        }
    }
}

template <typename T>
std::string TextOf(const std::optional<T>& value) {
    return value ? std::to_string(*value) : std::string();
}

void AddJobs(Page& page, const MetricsSnapshot& snapshot) {
    AddForEachJob(page, snapshot, "job_running", "1 while the job runs.",
                  [](const JobMetrics& job) { return std::string(job.bRunning ? "1" : "0"); });
    AddForEachJob(page, snapshot, "job_last_exit_status", "Exit status of the last run; 128 and N after signal N.",
                  [](const JobMetrics& job) { return TextOf(job.lastExitStatus); });
    AddForEachJob(page, snapshot, "job_last_duration_seconds", "How long the last run took.",
                  [](const JobMetrics& job) { return job.lastDurationUsec ? Seconds(*job.lastDurationUsec) : ""; });
    AddForEachJob(page, snapshot, "job_last_start_timestamp_seconds", "When the job was last started.",
                  [](const JobMetrics& job) { return TextOf(job.lastStart); });
    AddForEachJob(page, snapshot, "job_last_success_timestamp_seconds", "When a run last ended with exit status 0.",
                  [](const JobMetrics& job) { return TextOf(job.lastSuccess); });
    page.Gauge(
        "jobs_not_told", "Jobs that have no series of their own, as there are too many.",
        static_cast<std::int64_t>(snapshot.vecJobs.size() - std::min(snapshot.vecJobs.size(), METRICS_JOBS_MAX)));
}

} // namespace

std::string MetricsText(const MetricsSnapshot& snapshot) {
    Page page;
    AddService(page, snapshot);
    AddCounts(page, snapshot);
    AddJobs(page, snapshot);
    return page.Take();
}

std::string WriteMetrics(const std::string& strPath, const MetricsSnapshot& snapshot) {
    return ReplaceFile(strPath, MetricsText(snapshot), METRICS_FILE_MODE, Durability::Written);
}

} // namespace VUKO::VUKOCrond::Service
