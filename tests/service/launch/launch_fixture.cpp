#include "tests/service/launch/launch_fixture.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <thread>

#include "tests/launch/job_documents.h"

using namespace VUKO::VUKOCrond;
using namespace VUKO::VUKOCrond::Service;

namespace launch_test {

Account OwnAccount() {
    return {"root", geteuid(), getegid(), "/", "/bin/sh"};
}

CronJob JobOf(const Texts& vecCommand, const std::string& strUser) {
    CronJob job(ListCommandJob("job", strUser, vecCommand));
    for (const std::string& strType : CronJob::GetAllScheduleTypes()) {
        job.GenerateSchedule(strType, -1);
    }
    return job;
}

bool Eventually(const std::function<bool()>& isTrue) {
    const auto tEnd = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!isTrue()) {
        if (std::chrono::steady_clock::now() > tEnd) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

LaunchSite::LaunchSite() {
    StartAnew();
}

void LaunchSite::StartAnew() {
    _launcher.reset();
    _launcher.emplace(Settings());
}

Launcher::Settings LaunchSite::Settings() const {
    Launcher::Settings settings;
    settings.strRunTable = _dir / "runs";
    settings.strOutputFolder = _dir / "output";
    settings.strBootId = "this boot";
    settings.bJournal = false;
    return settings;
}

LaunchOrder LaunchSite::Order(RunId uRun) const {
    LaunchOrder order;
    order.uRun = uRun;
    order.strIdentifier = "job";
    order.account = OwnAccount();
    return order;
}

pid_t LaunchSite::Start(RunId uRun, const Texts& vecCommand, int iDelaySec) {
    CronJob job = JobOf(vecCommand);
    LaunchOrder order = Order(uRun);
    order.iDelaySec = iDelaySec;
    const pid_t pid = _launcher->Start(job, order);
    EXPECT_GT(pid, 0);
    EXPECT_TRUE(job._strReadyCrontab.empty());
    return pid;
}

pid_t LaunchSite::StartShell(RunId uRun, const std::string& strScript, int iDelaySec) {
    return Start(uRun, {"/bin/sh", "-c", strScript}, iDelaySec);
}

RunReport LaunchSite::Await(RunId uRun, RunReport::Kind eKind) {
    const auto tEnd = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (std::chrono::steady_clock::now() < tEnd) {
        const std::vector<RunReport> vecNew = _launcher->TakeReports();
        _vecHeard.insert(_vecHeard.end(), vecNew.begin(), vecNew.end());
        const auto itReport = std::find_if(_vecHeard.begin(), _vecHeard.end(), [&](const RunReport& report) {
            return report.uRun == uRun && report.eKind == eKind;
        });
        if (itReport != _vecHeard.end()) {
            const RunReport report = *itReport;
            _vecHeard.erase(itReport);
            return report;
        }
        struct pollfd fdReport = {_launcher->ReportDescriptor(), POLLIN, 0};
        poll(&fdReport, 1, 1000);
    }
    ADD_FAILURE() << "nothing of that kind was told of run " << uRun;
    return {};
}

RunEnd LaunchSite::AwaitEnd(RunId uRun) {
    return Await(uRun, RunReport::Kind::Ended).end;
}

std::vector<RunReport> LaunchSite::TakeReports() {
    std::vector<RunReport> vecReports = _launcher->TakeReports();
    vecReports.insert(vecReports.begin(), _vecHeard.begin(), _vecHeard.end());
    _vecHeard.clear();
    return vecReports;
}

std::string LaunchSite::Output(const std::string& strIdentifier) const {
    return support::ReadFile(_dir / ("output/" + strIdentifier + ".log"));
}

} // namespace launch_test
