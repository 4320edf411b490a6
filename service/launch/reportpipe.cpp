#include "service/launch/reportpipe.h"

#include <fcntl.h>

#include <climits>
#include <system_error>
#include <type_traits>

namespace VUKO::VUKOCrond::Service {

namespace {

constexpr int ROOMY = 1 << 20;

// What is written as it lies in memory has no gaps, and comes out in one piece.
static_assert(std::is_trivially_copyable_v<RunReport> && std::has_unique_object_representations_v<RunReport>);
static_assert(sizeof(RunReport) <= PIPE_BUF && PIPE_BUF % sizeof(RunReport) == 0);

} // namespace

ReportPipe::ReportPipe() {
    int aiEnds[2];
    if (pipe2(aiEnds, O_CLOEXEC | O_NONBLOCK) != 0) {
        throw std::system_error(errno, std::generic_category(), "no pipe for the reports of jobs");
    }
    _fdRead = UniqueFd(aiEnds[0]);
    _fdWrite = UniqueFd(aiEnds[1]);
    (void)fcntl(_fdWrite.Get(), F_SETPIPE_SZ, ROOMY); // what does not fit is looked up in the run table
}

std::vector<RunReport> ReportPipe::Read() {
    std::vector<RunReport> vecReports;
    RunReport aReports[64];
    for (;;) {
        const ssize_t iRead = read(_fdRead.Get(), aReports, sizeof(aReports));
        if (iRead < 0 && errno == EINTR) {
            continue;
        }
        if (iRead <= 0) {
            return vecReports;
        }
        vecReports.insert(vecReports.end(), aReports, aReports + static_cast<std::size_t>(iRead) / sizeof(RunReport));
    }
}

bool ReportPipe::Write(int iWriteEnd, const RunReport& report) {
    ssize_t iWritten = 0;
    do {
        iWritten = write(iWriteEnd, &report, sizeof(report));
    } while (iWritten < 0 && errno == EINTR);
    return iWritten == static_cast<ssize_t>(sizeof(report));
}

} // namespace VUKO::VUKOCrond::Service
