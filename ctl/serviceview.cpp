#include "ctl/serviceview.h"

#include <unistd.h>

#include <chrono>
#include <thread>

#include "ctl/nextstarttext.h"
#include "ctl/place.h"
#include "ctl/toolerror.h"
#include "service/control/protocol.h"
#include "service/definitions/definitionpolicy.h"
#include "service/engine/job.h"

namespace VUKO::VUKOCrond::Ctl {

namespace {

using namespace std::chrono_literals;

/// A service that does not answer for so long is stopped or hangs.
constexpr int PATIENCE_SEC = 10;
/// It looks a fifth of a second after a change; in the last two seconds of a minute it waits for the next one.
constexpr auto UPTAKE_MAX = 8s;
constexpr auto UPTAKE_STEP = 100ms;

constexpr const char* CODE_NOT_FOUND = "not-found";

bool IsKnownBy(const Json::Value& jsJob, const std::optional<Json::Value>& definition) {
    if (!definition || jsJob.isNull()) {
        return jsJob.isNull() && !definition;
    }
    return jsJob["state"] != "invalid" &&
           Service::DefinitionToText(jsJob["definition"]) == Service::DefinitionToText(*definition);
}

/// The service shows a job to root, to its own account where that is another one, and to the job's account.
bool MaySee(const Json::Value& jsDefinition) {
    return MayChangeSystem() || Service::LookUpAccount(Service::AccountNameOf(jsDefinition)) == geteuid();
}

} // namespace

ServiceView::ServiceView(const std::string& strRoot) {
    try {
        _client = std::make_unique<Client>(strRoot);
        _client->SetPatience(PATIENCE_SEC);
    } catch (const ToolError& error) {
        _strLost = error.what();
    }
}

/// Asks, and gives the service up where it is not there any more. What it refuses is null.
template <typename Question>
Json::Value ServiceView::Asked(const Question& question) {
    if (!_client) {
        return Json::Value();
    }
    try {
        _strCode.clear();
        return question(*_client);
    } catch (const ToolError& error) {
        _strCode = error.Code();
        if (error.Code().empty() || error.Code() == Service::Protocol::CODE_TOO_LARGE) {
            _strLost = error.what();
            _client.reset();
        }
        return Json::Value();
    }
}

Json::Value ServiceView::Show(const Service::JobId& id) {
    Json::Value jsMembers(Json::objectValue);
    jsMembers["job"] = ToText(id);
    return Asked([&](Client& client) { return client.Ask("show", jsMembers); });
}

Json::Value ServiceView::Status() {
    const Json::Value jsStatus = Asked(AskStatus);
    return jsStatus.isNull() ? Json::Value(Json::objectValue) : jsStatus;
}

Json::Value ServiceView::List() {
    return Asked([](Client& client) { return client.AskAll("list"); });
}

void ServiceView::Refresh() {
    _bRefreshed = MayChangeSystem() && !Asked([](Client& client) { return client.Ask("reload"); }).isNull();
}

std::string ServiceView::WhyRefused(const std::string& strFile) {
    const Json::Value jsRefusals = Asked([](Client& client) { return client.AskAll("refused"); });
    for (const Json::Value& jsRefusal : jsRefusals) {
        if (jsRefusal["file"] == strFile) {
            return jsRefusal["text"].asString();
        }
    }
    return MayChangeSystem() ? "it does not say why" : "it does not say why; root may look at: vukocronctl status";
}

Uptake ServiceView::WaitFor(const Service::JobId& id, const std::string& strFile,
                            const std::optional<Json::Value>& definition) {
    if (definition && !MaySee(*definition)) {
        return {Uptake::Kind::NotAsked, "the service shows it to root and to the job's account only", Json::Value()};
    }
    const auto end = std::chrono::steady_clock::now() + UPTAKE_MAX;
    for (;;) {
        const Json::Value jsJob = Show(id);
        if (!_client) {
            const char* const szLater = definition ? "; the job will be known when the service starts" : "";
            return {Uptake::Kind::NotAsked, _strLost + szLater, Json::Value()};
        }
        const bool bAnswered = !jsJob.isNull() || _strCode == CODE_NOT_FOUND; // else it had too much to do
        if (bAnswered && IsKnownBy(jsJob, definition)) {
            return {Uptake::Kind::Taken, std::string(), jsJob};
        }
        if ((bAnswered && _bRefreshed) || std::chrono::steady_clock::now() > end) { // what has been read, has been read
            return {Uptake::Kind::NotTaken, WhyRefused(strFile), jsJob};
        }
        std::this_thread::sleep_for(UPTAKE_STEP);
    }
}

} // namespace VUKO::VUKOCrond::Ctl
