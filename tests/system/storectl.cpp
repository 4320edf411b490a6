/// Makes one call of the library, so that tests can make it where they need it: on a machine that is going down, in a
/// unit's own commands, on a bus of their own.
///
///     storectl save|remove builtin-dyn|pkg JOB [DEFINITION]
///     storectl pkgsave|pkgremove PACKAGE JOB [DEFINITION]
///     storectl step | hibernating | reload SERVICE
///
/// Prints what the call returned and how long it took, as one line of JSON. The library's messages go to the system log
/// and, each on a line that begins with "storectl: ", to standard error.

#include <json/json.h>
#include <syslog.h>

#include <chrono>
#include <exception>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "crond/configmanager.h"
#include "crond/pkgconfigmanager.h"
#include "crond/utils.h"
#include "platform/vukojson.h"
#include "platform/vukosdk.h"
#include "platform/vukosystemd.h"

namespace {

using namespace VUKO::VUKOCrond;

constexpr int EXIT_USAGE = 2;

Json::Value SoundDefinition(const std::string& strJob) {
    Json::Value jsJob(Json::objectValue);
    jsJob["name"] = strJob;
    jsJob["user"] = "root";
    jsJob["period"] = "daily";
    jsJob["cmd"] = "/bin/true";
    return jsJob;
}

Json::Value ParseDefinition(const std::string& strText) {
    const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
    Json::Value jsJob;
    std::string strErrors;
    if (!reader->parse(strText.data(), strText.data() + strText.size(), &jsJob, &strErrors)) {
        throw std::invalid_argument(strErrors);
    }
    return jsJob;
}

/// The words of the command line; one that is not there throws std::out_of_range.
class Words {
public:
    Words(int iCount, char** aWords) : _vecWords(aWords + 1, aWords + iCount) {}

    const std::string& Command() const { return _vecWords.at(0); }
    const std::string& Owner() const { return _vecWords.at(1); }
    const std::string& Job() const { return _vecWords.at(2); }
    Json::Value Definition() const {
        return _vecWords.size() > 3 ? ParseDefinition(_vecWords[3]) : SoundDefinition(Job());
    }
    bool IsOfPackageFolder() const {
        if (Owner() != "pkg" && Owner() != "builtin-dyn") {
            throw std::invalid_argument("no such folder: " + Owner());
        }
        return Owner() == "pkg";
    }

private:
    std::vector<std::string> _vecWords;
};

Json::Value MakeCall(const Words& words) {
    const std::string& strCommand = words.Command();
    if (strCommand == "save") {
        return ConfigManager(words.Job(), words.IsOfPackageFolder()).Save(words.Definition());
    }
    if (strCommand == "remove") {
        return ConfigManager(words.Job(), words.IsOfPackageFolder()).Remove();
    }
    if (strCommand == "pkgsave") {
        return PkgConfigManager(words.Owner(), words.Job()).Save(words.Definition());
    }
    if (strCommand == "pkgremove") {
        return PkgConfigManager(words.Owner(), words.Job()).Remove();
    }
    if (strCommand == "step") {
        return VUKOSystemGetBootStep();
    }
    if (strCommand == "hibernating") {
        return isHibernating();
    }
    if (strCommand == "reload") {
        return VUKOSystemdReload(words.Owner());
    }
    throw std::invalid_argument("no such command: " + strCommand);
}

} // namespace

int main(int iCount, char** aWords) {
    openlog("storectl", LOG_PERROR, LOG_USER);
    try {
        const Words words(iCount, aWords);
        const auto tBefore = std::chrono::steady_clock::now();
        Json::Value jsTold(Json::objectValue);
        jsTold["result"] = MakeCall(words);
        jsTold["seconds"] = std::chrono::duration<double>(std::chrono::steady_clock::now() - tBefore).count();
        std::cout << VUKO::JSON::toString(jsTold) << std::endl;
        return 0;
    } catch (const std::exception& exception) {
        std::cerr << "storectl cannot: " << exception.what() << "\n";
        return EXIT_USAGE;
    }
}
