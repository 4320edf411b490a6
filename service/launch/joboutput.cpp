#include "service/launch/joboutput.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <syslog.h>
#include <systemd/sd-journal.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <system_error>

#include "base/syslog_line.h"
#include "platform/vukosdk.h"
#include "service/logtext.h"

namespace VUKO::VUKOCrond::Service {

namespace {

constexpr const char* szLogSource = "joboutput";

constexpr off_t FILE_BOUND = off_t{1} << 20;
constexpr mode_t FILE_MODE = 0600;
constexpr mode_t FOLDER_MODE = 0755;
constexpr std::size_t CHUNK = std::size_t{64} << 10;
constexpr std::size_t LONGEST_NAME = 200;

/// Tells identities apart that look alike once they are fit for a file name (FNV-1a).
std::string MarkOf(const std::string& strIdentifier) {
    std::uint64_t uHash = 14695981039346656037U;
    for (const char c : strIdentifier) {
        uHash = (uHash ^ static_cast<unsigned char>(c)) * 1099511628211U;
    }
    char szMark[32];
    std::snprintf(szMark, sizeof(szMark), "-%08x", static_cast<unsigned>(uHash ^ (uHash >> 32)));
    return szMark;
}

/// The identity as the name of a file in a folder of ours: it can neither leave that nor hide there. With "_" for each
/// "/", which is all that most need; else with a mark, so that no two share a file.
std::string FileNameOf(const std::string& strIdentifier) {
    const std::size_t uFolderEnd = std::min(strIdentifier.find('/'), strIdentifier.size());
    bool bAlone = strIdentifier.size() <= LONGEST_NAME;
    std::string strName = strIdentifier.substr(0, LONGEST_NAME);
    for (std::size_t u = 0; u < strName.size(); ++u) {
        char& c = strName[u];
        const bool bPlain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
                            c == '_' || c == '.' || c == '+' || c == '@';
        bAlone = bAlone && (c == '/' || bPlain) && (c != '_' || u < uFolderEnd); // folder keys are ours
        c = bPlain ? c : '_';
    }
    if (strName.empty() || strName[0] == '.') {
        strName.insert(0, 1, '_');
        bAlone = false;
    }
    return strName + (bAlone ? "" : MarkOf(strIdentifier)) + ".log";
}

bool IsOurs(const struct stat& stFile) {
    return stFile.st_uid == geteuid() && (stFile.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

/// @throws std::system_error, std::runtime_error
UniqueFd OpenFolder(const std::string& strFolder) {
    constexpr int FLAGS = O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
    UniqueFd fd(open(strFolder.c_str(), FLAGS));
    if (!fd && errno == ENOENT && VUKOFSMkdirP(strFolder.c_str(), 0, 1, geteuid(), getegid(), FOLDER_MODE) == 0) {
        fd = UniqueFd(open(strFolder.c_str(), FLAGS));
    }
    struct stat stFolder = {};
    if (!fd || fstat(fd.Get(), &stFolder) != 0) {
        throw std::system_error(errno, std::generic_category(), Escaped(strFolder));
    }
    if (!IsOurs(stFolder)) {
        throw std::runtime_error(Escaped(strFolder) + ": others can write in it");
    }
    return fd;
}

/// @throws std::system_error, std::runtime_error
UniqueFd OpenBoundedFile(const std::string& strFolder, const std::string& strName) {
    const UniqueFd fdFolder = OpenFolder(strFolder);
    UniqueFd fd(openat(fdFolder.Get(), strName.c_str(),
                       O_WRONLY | O_APPEND | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, FILE_MODE));
    struct stat stFile = {};
    if (!fd || fstat(fd.Get(), &stFile) != 0) {
        throw std::system_error(errno, std::generic_category(), strName);
    }
    if (!S_ISREG(stFile.st_mode) || !IsOurs(stFile) || stFile.st_nlink != 1) {
        throw std::runtime_error(strName + ": it is no file of this service alone");
    }
    return fd;
}

/// Descriptor 1 and 2 become copies of a descriptor.
void PutInPlace(int iFd) {
    dup2(iFd, STDOUT_FILENO);
    dup2(iFd, STDERR_FILENO);
}

void WriteAll(int iFd, const char* pBytes, std::size_t uSize) {
    while (uSize > 0) {
        const ssize_t iWritten = write(iFd, pBytes, uSize);
        if (iWritten < 0 && errno == EINTR) {
            continue;
        }
        if (iWritten <= 0) {
            return; // no room, most likely: the job has more to do than to wait for some
        }
        pBytes += iWritten;
        uSize -= static_cast<std::size_t>(iWritten);
    }
}

pid_t WaitAgain(pid_t pid, int& iStatus, int iOptions, struct rusage& usage) {
    pid_t pidEnded = 0;
    do {
        pidEnded = wait4(pid, &iStatus, iOptions, &usage);
    } while (pidEnded == -1 && errno == EINTR);
    return pidEnded;
}

} // namespace

std::string JobOutput::FileOf(const std::string& strIdentifier, const std::string& strFolder) {
    return strFolder + "/" + FileNameOf(strIdentifier);
}

void JobOutput::Open(const std::string& strIdentifier, bool bJournal, const std::string& strFolder) {
    if (bJournal) {
        const UniqueFd fdJournal(sd_journal_stream_fd(strIdentifier.c_str(), LOG_INFO, 1));
        if (fdJournal) {
            PutInPlace(fdJournal.Get());
            return;
        }
    }
    try {
        OpenFile(strIdentifier, strFolder);
    } catch (const std::exception& exception) {
        VUKO_LOG_PLAIN(LOG_WARNING, 1, "the output of %s is dropped: %s", Escaped(strIdentifier).c_str(),
                       Escaped(exception.what()).c_str());
        const UniqueFd fdNull(open("/dev/null", O_WRONLY | O_CLOEXEC));
        PutInPlace(fdNull.Get());
    }
}

void JobOutput::OpenFile(const std::string& strIdentifier, const std::string& strFolder) {
    UniqueFd fdFile = OpenBoundedFile(strFolder, FileNameOf(strIdentifier));
    int aiEnds[2];
    if (pipe2(aiEnds, O_CLOEXEC) != 0) {
        throw std::system_error(errno, std::generic_category(), "pipe");
    }
    _fdFile = std::move(fdFile);
    _fdPipe = UniqueFd(aiEnds[0]);
    const UniqueFd fdWriting(aiEnds[1]);
    PutInPlace(fdWriting.Get());
}

/// Else the pipe would never come to its end.
void JobOutput::LetGoOfTheWritingEnd() {
    const UniqueFd fdNull(open("/dev/null", O_WRONLY | O_CLOEXEC));
    if (fdNull) {
        PutInPlace(fdNull.Get());
    } else {
        close(STDOUT_FILENO);
        close(STDERR_FILENO);
    }
}

pid_t JobOutput::WaitFor(pid_t pid, int& iStatus, struct rusage& usage) {
    if (!_fdPipe) {
        return WaitAgain(pid, iStatus, 0, usage);
    }
    LetGoOfTheWritingEnd();
    return WaitAndPassOn(pid, iStatus, usage);
}

pid_t JobOutput::WaitAndPassOn(pid_t pid, int& iStatus, struct rusage& usage) {
    constexpr int LOOK_EVERY_MS = 20; // only where a process has no descriptor
    const UniqueFd fdProgram(static_cast<int>(syscall(SYS_pidfd_open, pid, 0)));
    while (_fdPipe) {
        struct pollfd aFds[] = {{_fdPipe.Get(), POLLIN, 0}, {fdProgram.Get(), POLLIN, 0}};
        if (poll(aFds, 2, fdProgram ? -1 : LOOK_EVERY_MS) < 0) {
            if (errno != EINTR) {
                break;
            }
            continue;
        }
        if (aFds[1].revents != 0 || !fdProgram) {
            if (const pid_t pidEnded = WaitAgain(pid, iStatus, WNOHANG, usage); pidEnded != 0) {
                PassOnWhatIsThere();
                return pidEnded;
            }
        }
        if (aFds[0].revents != 0 && !PassOn()) {
            _fdPipe = UniqueFd();
        }
    }
    return WaitAgain(pid, iStatus, 0, usage);
}

void JobOutput::PassOnTheRest() {
    if (_fdPipe) {
        LetGoOfTheWritingEnd(); // once more, where there was no program to wait for
        while (PassOn()) {
        }
        _fdPipe = UniqueFd();
    }
}

/// What the program has written by its end is in the pipe then. Others may go on writing, so no more is taken than a
/// pipe can hold.
void JobOutput::PassOnWhatIsThere() {
    const int iCapacity = fcntl(_fdPipe.Get(), F_GETPIPE_SZ);
    for (off_t iPassed = 0; iPassed < iCapacity; iPassed += static_cast<off_t>(CHUNK)) {
        struct pollfd fdReady = {_fdPipe.Get(), POLLIN, 0};
        if (poll(&fdReady, 1, 0) <= 0 || !PassOn()) {
            return;
        }
    }
}

/// @return false at the end of the pipe.
bool JobOutput::PassOn() {
    char szChunk[CHUNK];
    ssize_t iRead = 0;
    do {
        iRead = read(_fdPipe.Get(), szChunk, sizeof(szChunk));
    } while (iRead < 0 && errno == EINTR);
    if (iRead > 0) {
        Keep(szChunk, static_cast<std::size_t>(iRead));
    }
    return iRead > 0;
}

/// The size is asked for each time: two runs of a job may share the file.
void JobOutput::Keep(const char* pBytes, std::size_t uSize) {
    struct stat stFile = {};
    if (fstat(_fdFile.Get(), &stFile) == 0 && stFile.st_size + static_cast<off_t>(uSize) > FILE_BOUND) {
        char szLine[80];
        const int iLength = snprintf(szLine, sizeof(szLine), "vukocrond: %lld bytes of older output were dropped\n",
                                     static_cast<long long>(stFile.st_size));
        if (ftruncate(_fdFile.Get(), 0) != 0) {
            return;
        }
        WriteAll(_fdFile.Get(), szLine, static_cast<std::size_t>(iLength));
    }
    WriteAll(_fdFile.Get(), pBytes, uSize);
}

} // namespace VUKO::VUKOCrond::Service
