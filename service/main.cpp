#include <ctime>
#include <exception>
#include <iostream>
#include <utility>

#include "base/syslog_line.h"
#include "service/daemon.h"
#include "service/definitions/definitionscan.h"
#include "service/jobloader.h"
#include "service/logtext.h"
#include "service/options.h"
#include "service/pidfile.h"
#include "service/process.h"
#include "service/report.h"
#include "service/rootdir.h"

namespace {

using namespace VUKO::VUKOCrond;
using namespace VUKO::VUKOCrond::Service;

constexpr const char* szLogSource = "main";

/// Reads the definitions as the service would and tells what it would refuse. The values shown are drawn for the
/// occasion: those that the service keeps are its own.
ExitStatus CheckDefinitions(const Options& options) {
    LoadResult result = LoadJobs(ScanDefinitions(), JobTable(), KnownJobs(), ScheduleTemplate(), time(nullptr));
    for (const Refusal& refusal : result.report.vecRefusals) {
        std::cout << refusal.strText << "\n";
    }
    if (options.bPrintSchedule) {
        PrintSchedule(std::cout, JobTable(std::move(result.vecJobs)));
    }
    std::cout.flush();
    if (!std::cout) {
        std::cerr << "vukocrond: cannot write to standard output\n";
        return EXIT_FAILED;
    }
    return result.report.vecRefusals.empty() ? EXIT_ORDERLY : EXIT_FAILED;
}

ExitStatus Serve(const Options& options, const RootDir& root) {
    SettleProcess();
    BlockSignals();
    const std::string strNoFolders = root.MakeFolders();
    if (!strNoFolders.empty()) {
        VUKO_LOG_PLAIN(LOG_ERR, 1, "%s", strNoFolders.c_str());
        return EXIT_FAILED;
    }
    const PidFile pidFile(SZF_PIDPATH);
    if (!pidFile.IsHeld()) {
        VUKO_LOG_PLAIN(LOG_ERR, 2, "%s", pidFile.WhyNot().c_str());
        return EXIT_FAILED;
    }
    return Daemon(options, root).Run();
}

} // namespace

int main(int iCount, char** aArguments) {
    try {
        Options options;
        if (const auto status = ParseOptions(iCount, aArguments, options, std::cout, std::cerr)) {
            return *status;
        }
        OpenSystemLog();
        const RootDir root(options.strRoot);
        return options.bCheck ? CheckDefinitions(options) : Serve(options, root);
    } catch (const std::exception& exception) {
        VUKO_LOG_PLAIN(LOG_ERR, 3, "%s", Escaped(exception.what()).c_str());
        return EXIT_FAILED;
    }
}
