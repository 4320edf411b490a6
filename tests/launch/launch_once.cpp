/// Launches one job that runs, one whose program is missing and one without an account, and tells by its exit status
/// whether each went as it should. Run under valgrind.

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>

#include "tests/launch/execution_log.h"
#include "tests/launch/job_documents.h"
#include "tests/support/forked.h"

using VUKO::VUKOCrond::CronJob;

namespace {

constexpr int RETURNED = 7;

/// The exit status of the job's child; -1 when a signal ended it.
int StatusOf(const Json::Value& jsDocument) {
    CronJob job(jsDocument);
    const pid_t pidService = getpid();
    job.Run(0, "under watch");
    if (getpid() != pidService) {
        _exit(RETURNED);
    }
    const int iStatus = support::WaitFor(-1);
    return WIFEXITED(iStatus) ? WEXITSTATUS(iStatus) : -1;
}

bool Expect(const char* szWhat, int iStatus, int iExpected) {
    if (iStatus != iExpected) {
        fprintf(stderr, "%s: child ended with %d instead of %d\n", szWhat, iStatus, iExpected);
    }
    return iStatus == iExpected;
}

} // namespace

int main() {
    const ScopedExecutionLog log;
    const bool bRan = Expect("a program", StatusOf(TextCommandJob("runs", "root", "/bin/true with arguments")), 0);
    const bool bFailed = Expect("no program", StatusOf(TextCommandJob("fails", "root", "/no/such/program")), 0);
    const bool bUnknown =
        Expect("no account", StatusOf(TextCommandJob("unknown", "no-such-system-account", "/bin/true")), RETURNED);
    const std::string strText = log.Text();
    const bool bLogged =
        strText.find("running job: runs with command: ") != std::string::npos &&
        strText.find("failed, return code: -1, error: No such file or directory\n") != std::string::npos;
    if (!bLogged) {
        fprintf(stderr, "unexpected log:\n%s", strText.c_str());
    }
    return bRan && bFailed && bUnknown && bLogged ? 0 : 1;
}
