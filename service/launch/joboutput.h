#pragma once

#include <sys/resource.h>
#include <sys/types.h>

#include <string>

#include "service/uniquefd.h"

namespace VUKO::VUKOCrond::Service {

/// Where a job's standard output and standard error go, seen from the process that waits for the job: to the journal,
/// or by way of that process, which then passes it on, to a file that cannot grow without bound. What cannot be kept
/// is dropped; the job is never held up by it for longer than a disk takes.
class JobOutput {
public:
    /// The file that output goes to where there is no journal.
    static std::string FileOf(const std::string& strIdentifier, const std::string& strFolder);

    /// Puts the two in place in this process, for the program to inherit.
    ///
    /// @param strIdentifier  names the job in the journal, or the file.
    /// @param strFolder      where the file is; made when it is missing.
    void Open(const std::string& strIdentifier, bool bJournal, const std::string& strFolder);

    /// Waits for the program as wait4() does, passing on what it writes meanwhile. To be called once.
    pid_t WaitFor(pid_t pid, int& iStatus, struct rusage& usage);

    /// Passes on what is written by processes that the program left behind, until they have all ended.
    void PassOnTheRest();

private:
    void OpenFile(const std::string& strIdentifier, const std::string& strFolder);
    void LetGoOfTheWritingEnd();
    pid_t WaitAndPassOn(pid_t pid, int& iStatus, struct rusage& usage);
    bool PassOn();
    void PassOnWhatIsThere();
    void Keep(const char* pBytes, std::size_t uSize);

    UniqueFd _fdFile;
    UniqueFd _fdPipe;
};

} // namespace VUKO::VUKOCrond::Service
