#pragma once

#include <boost/interprocess/sync/interprocess_sharable_mutex.hpp>

#include <sstream>
#include <string>

#include "base/export.h"

namespace VUKO {

/// Collects log lines in memory and moves them to a persistent file in two stages.
///
/// A text passes through three holders: the buffer `_ssLog`, the memory log file, the persistent log file. A writer
/// follows the same protocol for every line: take the stamp of GetNewLine(), insert the stamp, the text and "\n" into
/// `_ssLog`, and call FlushAll(). When that returns and both files could be opened, the line is in the persistent log
/// file.
///
/// Threads: the two mutexes order the threads of one process. One thread at a time writes and flushes; inserting into
/// the buffer takes no lock. Processes: each has its own buffer, and a child starts with a copy of its parent's,
/// unflushed lines included. What they share are the files, opened to append; the mutexes do not reach across. So that
/// jobs that start at once lose or double no line, appending to the memory log file and moving it on each lock that
/// file itself (see StagingLock); a process that waits in vain goes on without.
///
/// What each operation locks (always in the order `_mutexLog`, `_mutexMemLog`):
///
///     operation                                   _mutexLog           _mutexMemLog
///     SoftFlush, buffer to the memory log file    -                   exclusive
///     SoftFlush, size check and Flush it calls    -                   released before
///     Flush                                       exclusive, first    shared, second
///     GetNewLine, insertion into _ssLog           -                   -
///
/// In a folder that others may write, as /tmp is, a memory log file that is a stranger's or a link is neither followed
/// nor copied; where it cannot be taken away, it counts as a file that cannot be opened.
///
/// File errors are logged to syslog (source "memorylogger") and swallowed. A mutex that cannot be locked throws
/// boost::interprocess::lock_exception out of the operation.
class VUKO_API MemoryLogger {
public:
    /// Keeps the paths and the limit; opens, makes and checks no file.
    ///
    /// @param strLogPath       the persistent log file.
    /// @param strMemLogPath    the memory log file, where lines are staged.
    /// @param ulMemLogLimitKB  size of the memory log file, in units of 1024 bytes, above which SoftFlush() moves it
    /// on.
    /// @throws boost::interprocess::interprocess_exception when a mutex cannot be initialised.
    MemoryLogger(const std::string& strLogPath, const std::string& strMemLogPath, unsigned long ulMemLogLimitKB);

    /// Does not flush: text still in the buffer is lost, and a memory log file stays as it is.
    virtual ~MemoryLogger();

    MemoryLogger(const MemoryLogger&) = delete;
    MemoryLogger& operator=(const MemoryLogger&) = delete;

    /// Appends the buffer to the memory log file (made with the process's default mode) and empties the buffer; calls
    /// Flush() when that file is larger than the limit. When it cannot be opened, the buffer keeps its text for the
    /// next call, and "open memory logger failed" is logged at LOG_ERR.
    void SoftFlush();

    /// Appends the memory log file to the persistent log file, sets that to mode 0600, and deletes the memory log
    /// file, also when nothing could be copied: what was staged is then lost. Each of the three steps that can fail
    /// logs its condition at LOG_ERR ("!fs", "!fsMem", the chmod).
    void Flush();

    /// SoftFlush(), then Flush(), in any case. When SoftFlush() has just moved the file on, the second finds none and
    /// logs "!fsMem": that message is expected.
    void FlushAll();

    /// The stamp that begins every line: local time, offset from UTC, one blank, as in "2026-11-15T16:30:33+08:00 ".
    /// Seconds of the offset are dropped.
    ///
    /// @return the stamp, or the empty string when the time could not be converted. Not safe beside other users of
    ///         localtime() in other threads.
    std::string GetNewLine();

    std::stringstream _ssLog;                                      ///< the buffer: writers insert here
    std::string _strLogPath;                                       ///< the persistent log file
    std::string _strMemLogPath;                                    ///< the memory log file
    unsigned long _ulMemLogLimitKB;                                ///< its limit, in units of 1024 bytes
    boost::interprocess::interprocess_sharable_mutex _mutexLog;    ///< guards the persistent log file
    boost::interprocess::interprocess_sharable_mutex _mutexMemLog; ///< guards the memory log file and the hand-over
};

} // namespace VUKO
