/// An outsider's program: installed headers and libraries, C++17. It works in the folder that is its first argument and
/// prints what it found.

#include <crond/configmanager.h>
#include <crond/cronjob.h>
#include <crond/utils.h>
#include <logger/memorylogger.h>
#include <platform/vukojson.h>

#include <fstream>
#include <iostream>

using namespace VUKO::VUKOCrond;

namespace {

Json::Value Definition() {
    Json::Value jsConf;
    jsConf["name"] = "backup";
    jsConf["user"] = "root";
    jsConf["period"] = "crontab";
    jsConf["crontab"] = "0,30 3 ~ * *";
    jsConf["cmd"] = "/bin/true --quiet";
    return jsConf;
}

std::string LineOf(const ScheduleTemplate& scheduleTemplate) {
    Json::Value jsJob;
    jsJob["config"] = Definition();
    CronJob job(jsJob);
    for (const std::string& strType : CronJob::GetAllScheduleTypes()) {
        job.GenerateSchedule(strType, scheduleTemplate.GetGeneratedSchedule(strType));
    }
    return job.ToCurrentCrontabString();
}

std::string StoredName(const std::string& strFolder) {
    SZF_CRON_FOLDER_BUILT_IN_DYN = strFolder.c_str();
    if (!VUKO::JSON::toFile(Definition(), strFolder + "/backup.conf")) {
        return "not written";
    }
    ConfigManager manager("backup", false);
    Json::Value jsLoaded;
    return manager.Load(jsLoaded) && isIdenticalJSON(Definition(), jsLoaded) ? jsLoaded["name"].asString() : "not read";
}

std::string LoggedLine(const std::string& strFolder) {
    VUKO::MemoryLogger logger(strFolder + "/log", strFolder + "/memlog", 1);
    logger._ssLog << "a line\n";
    logger.FlushAll();
    std::string strLine;
    std::getline(std::ifstream(strFolder + "/log") >> std::ws, strLine);
    return strLine;
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        return 2;
    }
    ScheduleTemplate scheduleTemplate;
    scheduleTemplate._jsJob["schedule"]["day"][0] = 17;
    std::cout << "schedule: " << LineOf(scheduleTemplate) << "\n"
              << "valid: " << checkJobFormat(Definition()) << checkJobFormat(Json::Value(Json::objectValue)) << "\n"
              << "stored: " << StoredName(argv[1]) << "\n"
              << "logged: " << LoggedLine(argv[1]) << "\n"
              << "ticks: " << SLEEP_TIME << "\n";
}
