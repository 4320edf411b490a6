#include "tests/service/service_fixture.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <filesystem>
#include <memory>
#include <stdexcept>

using namespace VUKO::VUKOCrond;
using namespace VUKO::VUKOCrond::Service;

namespace service_test {

Json::Value JobDefinition(const std::string& strName, const std::string& strCrontab) {
    Json::Value jsDefinition;
    jsDefinition["name"] = strName;
    jsDefinition["user"] = "root";
    jsDefinition["period"] = "crontab";
    jsDefinition["crontab"] = strCrontab;
    jsDefinition["cmd"] = "/bin/true";
    return jsDefinition;
}

std::string ToJson(const Json::Value& jsValue) {
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    return Json::writeString(builder, jsValue);
}

Json::Value FromJson(const std::string& strText) {
    Json::Value jsValue;
    std::string strErrors;
    const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
    EXPECT_TRUE(reader->parse(strText.data(), strText.data() + strText.size(), &jsValue, &strErrors)) << strErrors;
    return jsValue;
}

Job BuildJob(const Json::Value& jsDefinition) {
    Json::Value jsDocument;
    jsDocument["config"] = jsDefinition;
    CronJob record(jsDocument);
    EXPECT_TRUE(record._bValid);
    for (const std::string& strType : CronJob::GetAllScheduleTypes()) {
        record.GenerateSchedule(strType, -1);
    }
    Job job;
    job.id.strName = jsDefinition["name"].asString();
    job.strFile = "/test.conf";
    TakeDefinition(job, jsDefinition, record);
    job.strSchedule = ScheduleToText(record);
    job.schedule = Schedule(job.strSchedule);
    return job;
}

ServiceFolders::ServiceFolders() : _root(_dir.Path()) {
    const std::string strReason = _root.MakeFolders();
    if (!strReason.empty()) {
        throw std::runtime_error(strReason);
    }
}

std::string ServiceFolders::Put(const char* szFolder, const std::string& strName, const Json::Value& jsDocument) {
    return PutText(szFolder, strName + ".conf", ToJson(jsDocument));
}

std::string ServiceFolders::PutText(const std::string& strFolder, const std::string& strFileName,
                                    const std::string& strText) {
    if (std::filesystem::create_directories(strFolder)) {
        chmod(strFolder.c_str(), 0755);
    }
    const std::string strPath = strFolder + "/" + strFileName;
    support::WriteFile(strPath, strText);
    chmod(strPath.c_str(), 0644);
    return strPath;
}

} // namespace service_test
