#include <crond/cronjob.h>
#include <unistd.h>

void RunIfDue(const Json::Value& jsDefinition) {
    Json::Value jsDocument;
    jsDocument["config"] = jsDefinition;
    VUKO::VUKOCrond::CronJob job(jsDocument); // messages go to syslog, the verdict is in _bValid
    if (!job._bValid)
        return;
    for (const std::string& strType : job.GetAllScheduleTypes())
        job.GenerateSchedule(strType, -1);
    const pid_t pidSelf = getpid();
    if (job.SetReadyIfScheduled())
        job.Run(0, "");
    if (getpid() != pidSelf)
        _exit(1); // Run() may return in the child: see its contract
}
