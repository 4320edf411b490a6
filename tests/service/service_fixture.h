#pragma once

#include <json/json.h>

#include <string>

#include "service/engine/job.h"
#include "service/rootdir.h"
#include "tests/support/temp_dir.h"

namespace service_test {

/// A definition that everybody accepts: {"name": ..., "user": "root", "period": "crontab", "crontab": ...,
/// "cmd": "/bin/true"}.
Json::Value JobDefinition(const std::string& strName, const std::string& strCrontab = "* * * * *");

/// The text of a JSON value, or the value of a JSON text; a text that is no JSON fails the test.
std::string ToJson(const Json::Value& jsValue);
Json::Value FromJson(const std::string& strText);

/// A job as the service would hold it, with its values drawn.
VUKO::VUKOCrond::Service::Job BuildJob(const Json::Value& jsDefinition);

/// The service's folders in a temporary folder of the test's own.
class ServiceFolders {
public:
    ServiceFolders();

    /// Writes NAME.conf with mode 0644 and returns its path.
    std::string Put(const char* szFolder, const std::string& strName, const Json::Value& jsDocument);
    /// The same with any text and any file name, in a sub-folder that is made when it is missing.
    std::string PutText(const std::string& strFolder, const std::string& strFileName, const std::string& strText);

    const support::TempDir& Root() const { return _dir; }

private:
    support::TempDir _dir;
    VUKO::VUKOCrond::Service::RootDir _root;
};

} // namespace service_test
