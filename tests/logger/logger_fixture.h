#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "logger/memorylogger.h"
#include "tests/logger/file_calls.h"
#include "tests/support/captured_syslog.h"
#include "tests/support/temp_dir.h"

/// A logger on files in a folder of its own, with the system log watched.
class LoggerOnFiles : public ::testing::Test {
protected:
    static constexpr unsigned long LIMIT_KB = 1;

    support::CapturedSyslog _syslog;
    fake::ScopedFileCalls _calls;
    support::TempDir _dir;
    const std::string _strLog = _dir / "execute.log";
    const std::string _strMemLog = _dir / "staged.log";
    VUKO::MemoryLogger _logger{_strLog, _strMemLog, LIMIT_KB};

    std::string Log() const { return support::ReadFile(_strLog); }
    std::string MemLog() const { return support::ReadFile(_strMemLog); }
    std::string Buffered() const { return _logger._ssLog.str(); }

    using Messages = std::vector<std::string>;
    static const Messages NONE;
};

inline const LoggerOnFiles::Messages LoggerOnFiles::NONE;
