/// launch_burst COUNT [PROGRAM]: starts a program as often as that, all at once, hears every end, reaps every child,
/// and prints what that took. Exits with 1 when something is missing at the end.

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "service/launch/reaper.h"
#include "tests/service/launch/launch_fixture.h"

using namespace VUKO::VUKOCrond;
using namespace VUKO::VUKOCrond::Service;

namespace {

using Clock = std::chrono::steady_clock;

double MillisecondsSince(Clock::time_point tStart) {
    return std::chrono::duration<double, std::milli>(Clock::now() - tStart).count();
}

struct Heard {
    int iEnded = 0;
    int iGood = 0;
    int iReaped = 0;
    RunEnd last;
};

void Hear(launch_test::LaunchSite& site, Heard& heard) {
    for (const RunReport& report : site.TakeReports()) {
        if (report.eKind == RunReport::Kind::Ended) {
            heard.iEnded += 1;
            heard.iGood += report.end.eKind == EndKind::Exited && report.end.iCode == 0 ? 1 : 0;
            heard.last = report.end;
            site.Table().Release(report.uRun);
        }
    }
    heard.iReaped += static_cast<int>(ReapChildren().size());
}

} // namespace

int main(int argc, char** argv) {
    const int iCount = argc > 1 ? atoi(argv[1]) : 3;
    launch_test::LaunchSite site;
    CronJob job = launch_test::JobOf({argc > 2 ? argv[2] : "/bin/true"});
    std::vector<double> vecStarts;
    Heard heard;
    const Clock::time_point tStart = Clock::now();
    for (int i = 1; i <= iCount; ++i) {
        const Clock::time_point tOne = Clock::now();
        if (site.TheLauncher().Start(job, site.Order(static_cast<RunId>(i))) < 0) {
            return 1;
        }
        vecStarts.push_back(MillisecondsSince(tOne));
        if (i % 2000 == 0) { // a table holds no more than some thousand launches
            Hear(site, heard);
        }
    }
    const double dStarted = MillisecondsSince(tStart);
    while (heard.iReaped < iCount && MillisecondsSince(tStart) < 60000) {
        struct pollfd fdReport = {site.TheLauncher().ReportDescriptor(), POLLIN, 0};
        poll(&fdReport, 1, 1);
        Hear(site, heard);
    }
    Hear(site, heard); // a child tells of the end before its own
    const double dAll = MillisecondsSince(tStart);
    const std::string strLog = site.ExecutionLog();
    const auto iLines = std::count(strLog.begin(), strLog.end(), '\n');
    std::sort(vecStarts.begin(), vecStarts.end());
    printf("%d launches: start median %.3f ms, worst %.3f ms; all started %.1f ms, all ended and reaped %.1f ms; "
           "log lines %ld, good ends %d; the last: cpu %ld us, peak %ld KiB, %ld us\n",
           iCount, vecStarts[vecStarts.size() / 2], vecStarts.back(), dStarted, dAll, static_cast<long>(iLines),
           heard.iGood, static_cast<long>(heard.last.iCpuUsec), static_cast<long>(heard.last.iMaxRssKib),
           static_cast<long>(heard.last.iDurationUsec));
    return heard.iEnded == iCount && heard.iGood == iCount && heard.iReaped == iCount && iLines == iCount ? 0 : 1;
}
