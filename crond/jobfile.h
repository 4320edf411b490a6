#pragma once

#include <json/json.h>

#include <string>

namespace VUKO::VUKOCrond {

/// The source name and the message numbers of a store: both stores say the same, each under its own.
struct JobFileMessages {
    const char* szSource;
    int iFormatError;
    int iSaveError;
    int iNotExist;
    int iLoadError;
    int iUnlinkFailed;
};

/// What a removal found.
enum class JobFileRemoval {
    Missing, ///< there was no file
    Deleted,
    Failed
};

bool ExistJobFile(const std::string& strPath);

/// Validates the definition and writes it, durably.
bool SaveJobFile(const JobFileMessages& messages, const std::string& strName, const std::string& strPath,
                 const Json::Value& jsJob);

/// Reads the file; `jsJob` is untouched unless the result is true.
bool LoadJobFile(const JobFileMessages& messages, const std::string& strName, const std::string& strPath,
                 Json::Value& jsJob);

JobFileRemoval RemoveJobFile(const JobFileMessages& messages, const std::string& strName, const std::string& strPath);

} // namespace VUKO::VUKOCrond
