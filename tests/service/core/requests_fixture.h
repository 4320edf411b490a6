#pragma once

#include <memory>

#include "service/control/requests.h"
#include "tests/service/control/control_fixture.h"
#include "tests/service/core/core_fixture.h"

namespace core_test {

constexpr uid_t ROOT = 0;
constexpr uid_t ALICE = 1001;
constexpr uid_t BOB = 1002;
constexpr uid_t STRANGER = 4711;

inline Service::ControlServer::Limits Unhurried() {
    Service::ControlServer::Limits limits;
    limits.uRequestsPerSecond = 1'000'000;
    limits.uIdleSeconds = 1'000'000;
    return limits;
}

inline sd_event* NewLoop() {
    sd_event* pEvent = nullptr;
    EXPECT_GE(sd_event_new(&pEvent), 0);
    return pEvent;
}

/// A service that is asked at its socket, by whomever a test likes: the handler hears of that peer.
class RequestsTest : public CoreTest {
protected:
    RequestsTest() : _event(NewLoop(), sd_event_unref) {
        _life.Machine().mapAccounts = {{"root", ROOT}, {"alice", ALICE}, {"bob", BOB}};
        _life.Start();
        const Service::ControlServer::Handler handler = Service::MakeRequestHandler(_life.Core(), [this] { Load(); });
        _server = std::make_unique<Service::ControlServer>(
            _event.get(), _life.Path("control"),
            [this, handler](const Json::Value& jsRequest, const Service::Peer&, const Service::Reply& reply) {
                return handler(jsRequest, Service::Peer{_uidAsker, _uidAsker, 1}, reply);
            },
            Unhurried());
        _client = std::make_unique<control_test::Client>(_life.Path("control"));
    }

    void Define(const std::string& strId, const std::string& strAccount = "root",
                const std::string& strCrontab = "1 11 * * *") {
        const Service::JobId id = Service::IdFromText(strId);
        Json::Value jsDefinition = sim::DefinitionOf(id.strName, strCrontab);
        if (strAccount != "root") {
            jsDefinition["user"] = "package";
            jsDefinition["package_username"] = strAccount;
        }
        const std::string strFile = "/" + strId + ".conf";
        _scan.vecDefinitions.push_back({id, strFile, strFile, jsDefinition, Service::DefinitionToText(jsDefinition)});
    }
    void Load() {
        ++_iLoads;
        _life.Core().Load(_scan, _life.Now());
    }

    void Send(const std::string& strVerb, const Json::Value& jsMembers) {
        Json::Value jsRequest = control_test::Request(strVerb, "mark");
        for (const std::string& strMember : jsMembers.getMemberNames()) {
            jsRequest[strMember] = jsMembers[strMember];
        }
        EXPECT_TRUE(_client->Send(jsRequest));
        control_test::TurnLoop(_event.get());
    }
    Json::Value Ask(const std::string& strVerb, const Json::Value& jsMembers = Json::Value(Json::objectValue)) {
        Send(strVerb, jsMembers);
        return _client->ReceiveJson();
    }
    Json::Value AskAs(uid_t uid, const std::string& strVerb,
                      const Json::Value& jsMembers = Json::Value(Json::objectValue)) {
        _uidAsker = uid;
        return Ask(strVerb, jsMembers);
    }
    Texts Listed(uid_t uid) {
        Texts vecIds;
        const Json::Value jsReply = AskAs(uid, "list");
        for (const Json::Value& jsItem : jsReply["result"]["items"]) {
            vecIds.push_back(jsItem["id"].asString());
        }
        return vecIds;
    }
    const Service::Job& Find(const std::string& strId) { return *_life.Core().Jobs().Find(Service::IdFromText(strId)); }

    std::unique_ptr<sd_event, sd_event* (*)(sd_event*)> _event;
    std::unique_ptr<Service::ControlServer> _server;
    std::unique_ptr<control_test::Client> _client;
    Service::DefinitionScan _scan;
    uid_t _uidAsker = ROOT;
    int _iLoads = 0;
};

inline Json::Value Member(const char* szMember, const Json::Value& jsValue) {
    Json::Value jsMembers(Json::objectValue);
    jsMembers[szMember] = jsValue;
    return jsMembers;
}

inline Json::Value JobNamed(const std::string& strJob) {
    return Member("job", strJob);
}

inline std::string MessageOf(const Json::Value& jsReply) {
    return jsReply["error"]["message"].asString();
}

} // namespace core_test
