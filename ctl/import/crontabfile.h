#pragma once

#include <string>

#include "ctl/import/item.h"

namespace VUKO::VUKOCrond::Ctl {

/// Whose lines a crontab holds.
struct CrontabFormat {
    bool bSystem = false;   ///< a column names each line's account
    std::string strAccount; ///< else all are this one's
};

/// What the place of a file tells of its format: /etc/crontab and /etc/cron.d are the system's, the spool of cron holds
/// a file for each account.
///
/// @throws ToolError where that tells nothing.
CrontabFormat GuessFormat(const std::string& strFile);

/// Reads a file or, for "-", standard input. @throws ToolError
std::string ReadCrontab(const std::string& strFile);

/// What the lines of a crontab become. @param strFile  its name, for messages and descriptions.
/// @throws ToolError for a text that is none at all: one that holds NUL bytes.
ImportItems ConvertCrontab(const std::string& strText, const std::string& strFile, const CrontabFormat& format);

} // namespace VUKO::VUKOCrond::Ctl
