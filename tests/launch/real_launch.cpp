#include "tests/launch/real_launch.h"

#include <fstream>
#include <regex>
#include <sstream>

using VUKO::VUKOCrond::CronJob;

CronJob RealLaunch::WitnessJob(const std::string& strUser, const std::string& strProgram, const std::string& strReport,
                               const Texts& vecArguments) {
    Texts vecCommand = {strProgram, strReport};
    vecCommand.insert(vecCommand.end(), vecArguments.begin(), vecArguments.end());
    return CronJob(ListCommandJob("witness", strUser, vecCommand));
}

CronJob RealLaunch::WitnessJob(const Texts& vecArguments) const {
    return WitnessJob("root", VUKO_WITNESS, _strReport, vecArguments);
}

void RealLaunch::RunToItsEnd(CronJob& job) {
    job.Run(0, "");
    EXPECT_EQ(support::WaitFor(-1), 0);
}

Json::Value RealLaunch::Report() const {
    Json::Value js;
    std::ifstream fs(_strReport);
    if (fs) {
        fs >> js;
    }
    return js;
}

RealLaunch::Texts RealLaunch::Lines() const {
    static const std::regex stamp("[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}[+-][0-9]{2}:[0-9]{2} ");
    Texts vecLines;
    std::istringstream ssLog(_log.Text());
    for (std::string strLine; std::getline(ssLog, strLine);) {
        std::smatch match;
        const bool bStamped = std::regex_search(strLine, match, stamp, std::regex_constants::match_continuous);
        vecLines.push_back(bStamped ? match.suffix().str() : "no stamp: " + strLine);
    }
    return vecLines;
}
