#include "tests/service/state/state_fixture.h"

#include <algorithm>
#include <filesystem>
#include <sstream>

#include "service/state/sqlite.h"

namespace state {

namespace Service = VUKO::VUKOCrond::Service;
namespace fs = std::filesystem;

StoredJob Job(const std::string& strName) {
    StoredJob job;
    job.id = {"package", "pkgA", strName};
    job.strFile = "/etc/jobs/pkgA/" + strName + ".conf";
    job.strFields = "~ 3 * * 1~5";
    job.strSchedule = R"({"Minute":[17],"hour":[3],"day":[-1],"month":[-1],"week":[2]})";
    job.iStartup = 1793000000;
    job.iLastExecution = 1793000400;
    job.bOverdueReported = true;
    job.iGoneSince = 1793000800;
    return job;
}

StoredClock Clock(RunId uLastRun) {
    StoredClock clock;
    clock.strBootId = "0b4f1f2e-6a7d-4b58-9a44-5d1c1f0e7a11";
    clock.iWorkedUpTo = 29883450;
    clock.iLastTick = 29883451;
    clock.iSleptSince = 29883400;
    clock.uLastRun = uLastRun;
    return clock;
}

Outcome OpenRun(RunId uRun) {
    Outcome outcome;
    outcome.iMinute = 29883000 + static_cast<std::int64_t>(uRun);
    outcome.iDecided = 1793000000 + static_cast<std::int64_t>(uRun);
    outcome.eKind = Service::OutcomeKind::Delayed;
    outcome.strLabel = "assure";
    outcome.iDelaySec = 77;
    outcome.uRun = uRun;
    return outcome;
}

Outcome EndedRun(RunId uRun) {
    Outcome outcome = OpenRun(uRun);
    outcome.eKind = Service::OutcomeKind::MadeUp;
    outcome.iDelaySec = 78;
    outcome.end = {Service::EndKind::Signaled, 9, 1793000000123456, 1793000001234567, 1111111, 222222, 33333};
    return outcome;
}

Outcome Skip(std::int64_t iMinute) {
    Outcome outcome;
    outcome.iMinute = iMinute;
    outcome.iDecided = iMinute * 60;
    outcome.eKind = Service::OutcomeKind::Skipped;
    outcome.eReason = Service::SkipReason::Overlap;
    outcome.pidOther = 4321;
    outcome.iOtherSince = 1792999999;
    return outcome;
}

std::string ToText(const Outcome& outcome) {
    const Service::RunEnd& end = outcome.end;
    std::ostringstream text;
    text << outcome.iMinute << ' ' << outcome.iDecided << ' ' << static_cast<int>(outcome.eKind) << ' '
         << static_cast<int>(outcome.eReason) << " \"" << outcome.strLabel << "\" delay " << outcome.iDelaySec
         << " run " << outcome.uRun << " other " << outcome.pidOther << ' ' << outcome.iOtherSince << " end "
         << static_cast<int>(end.eKind) << ' ' << end.iCode << ' ' << end.iStartedUsec << ' ' << end.iEndedUsec << ' '
         << end.iDurationUsec << ' ' << end.iCpuUsec << ' ' << end.iMaxRssKib;
    return text.str();
}

std::string ToText(const StoredJob& job) {
    std::ostringstream text;
    text << job.iKey << ' ' << job.id.strFolder << '/' << job.id.strPackage << '/' << job.id.strName << ' '
         << job.strFile << " \"" << job.strFields << "\" " << job.strSchedule << ' ' << job.iStartup << ' '
         << job.iLastExecution << ' ' << job.bOverdueReported << ' ' << job.iGoneSince;
    return text.str();
}

std::string Describe(StateStore& store) {
    const Service::StoredState stored = store.Load();
    const StoredClock& clock = stored.clock;
    std::ostringstream text;
    text << "clock " << clock.strBootId << ' ' << clock.iWorkedUpTo << ' ' << clock.iLastTick << ' '
         << clock.iSleptSince << ' ' << clock.uLastRun << '\n';
    for (const StoredJob& job : stored.vecJobs) {
        text << ToText(job) << '\n';
        for (const Outcome& outcome : store.History(job.iKey, 1000)) {
            text << "  " << ToText(outcome) << '\n';
        }
    }
    for (const Service::StoredRun& run : stored.vecOpenRuns) {
        text << "open " << run.iJobKey << ' ' << ToText(run.outcome) << '\n';
    }
    return text.str();
}

void Transact(StateStore& store, const std::function<void()>& changes) {
    store.Begin();
    changes();
    store.Commit();
}

std::string ErrorOf(const std::function<void()>& body) {
    try {
        body();
    } catch (const StateError& error) {
        return error.what();
    }
    ADD_FAILURE() << "no error";
    return std::string();
}

std::string StateFiles::DescribePersistent() const {
    const support::TempDir dir;
    fs::copy_file(_strPersistent, dir / "persistent");
    StateStore store(dir / "working", dir / "persistent");
    EXPECT_EQ(store.Notes(), std::vector<std::string>());
    return Describe(store);
}

std::vector<std::string> StateFiles::Others() const {
    std::vector<std::string> vecNames;
    for (const fs::directory_entry& entry : fs::directory_iterator(_dir.Path())) {
        const std::string strName = entry.path().filename().string();
        if (strName != "working" && strName != "persistent" && strName != "working-journal") {
            vecNames.push_back(strName);
        }
    }
    std::sort(vecNames.begin(), vecNames.end());
    return vecNames;
}

void StateFiles::Alter(const std::string& strPath, const char* szSql) {
    Service::Connection(strPath, Service::Connection::Access::ReadWrite).Run(szSql, "alter the file");
}

} // namespace state
