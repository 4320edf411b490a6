#include "tests/service/control/control_fixture.h"

#include <sys/socket.h>
#include <sys/un.h>

#include <sstream>
#include <stdexcept>

namespace control_test {

namespace {

sd_event* NewLoop() {
    sd_event* pEvent = nullptr;
    if (sd_event_new(&pEvent) < 0) {
        throw std::runtime_error("no event loop");
    }
    return pEvent;
}

Json::Value Parsed(const std::string& strText) {
    Json::Value jsValue;
    std::istringstream stream(strText);
    stream >> jsValue;
    return jsValue;
}

} // namespace

Client::Client(const std::string& strPath) : _fd(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    strPath.copy(address.sun_path, sizeof(address.sun_path) - 1);
    if (connect(_fd.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
        throw std::system_error(errno, std::generic_category(), "connect");
    }
}

bool Client::Send(const std::string& strPacket) const {
    return send(_fd.Get(), strPacket.data(), strPacket.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(strPacket.size());
}

bool Client::Send(const Json::Value& jsRequest) const {
    return Send(Json::writeString(Json::StreamWriterBuilder(), jsRequest));
}

std::optional<std::string> Client::Receive() const {
    std::string strPacket(std::size_t{1} << 20, '\0');
    const ssize_t iBytes = recv(_fd.Get(), strPacket.data(), strPacket.size(), 0);
    if (iBytes <= 0) {
        return std::nullopt;
    }
    strPacket.resize(static_cast<std::size_t>(iBytes));
    return strPacket;
}

Json::Value Client::ReceiveJson() const {
    const std::optional<std::string> packet = Receive();
    return packet ? Parsed(*packet) : Json::Value();
}

bool Client::IsClosed() const {
    char c = 0;
    return recv(_fd.Get(), &c, sizeof(c), MSG_PEEK) == 0;
}

Json::Value Request(const std::string& strVerb, const Json::Value& jsId) {
    Json::Value jsRequest;
    jsRequest["version"] = 1;
    jsRequest["verb"] = strVerb;
    if (!jsId.isNull()) {
        jsRequest["id"] = jsId;
    }
    return jsRequest;
}

std::string CodeOf(const Json::Value& jsReply) {
    return jsReply.isObject() && jsReply["ok"] == false ? jsReply["error"]["code"].asString() : std::string();
}

int TurnLoop(sd_event* pEvent) {
    int iTurns = 0;
    while (sd_event_run(pEvent, 0) > 0) {
        ++iTurns;
    }
    return iTurns;
}

ControlTest::ControlTest(Service::ControlServer::Limits limits)
    : _strPath(_dir / "control.sock"), _event(NewLoop(), sd_event_unref) {
    Serve(limits);
}

void ControlTest::Serve(const Service::ControlServer::Limits& limits) {
    _server.reset();
    _server = std::make_unique<Service::ControlServer>(
        _event.get(), _strPath,
        [this](const Json::Value& jsRequest, const Service::Peer& peer, const Service::Reply& reply) {
            return Handle(jsRequest, peer, reply);
        },
        limits);
}

Json::Value ControlTest::Ask(const Client& client, const std::string& strPacket) {
    EXPECT_TRUE(client.Send(strPacket)) << strerror(errno);
    Turn();
    return client.ReceiveJson();
}

Json::Value ControlTest::Ask(const Client& client, const Json::Value& jsRequest) {
    return Ask(client, Json::writeString(Json::StreamWriterBuilder(), jsRequest));
}

Json::Value ControlTest::Handle(const Json::Value& jsRequest, const Service::Peer& peer, const Service::Reply& reply) {
    const std::string strVerb = jsRequest["verb"].asString();
    if (strVerb == "echo") {
        return jsRequest;
    }
    if (strVerb == "who") {
        Json::Value jsPeer;
        jsPeer["uid"] = peer.uid;
        jsPeer["gid"] = peer.gid;
        jsPeer["pid"] = peer.pid;
        return jsPeer;
    }
    if (strVerb == "large") {
        return std::string(jsRequest["bytes"].asUInt(), 'x');
    }
    if (strVerb == "later") {
        reply.Defer();
        _vecReplies.push_back(reply);
        return "not looked at";
    }
    if (strVerb == "refuse") {
        throw Service::ControlError("unknown-verb", "no such thing");
    }
    throw std::runtime_error("a secret");
}

} // namespace control_test
