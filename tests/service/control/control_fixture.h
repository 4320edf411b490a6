#pragma once

#include <gtest/gtest.h>
#include <json/json.h>
#include <systemd/sd-event.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "service/control/server.h"
#include "service/uniquefd.h"
#include "tests/support/temp_dir.h"

namespace control_test {

namespace Service = VUKO::VUKOCrond::Service;

/// One end of a connection. It never waits: what is not there is not there.
class Client {
public:
    explicit Client(const std::string& strPath);

    bool Send(const std::string& strPacket) const;
    bool Send(const Json::Value& jsRequest) const;
    /// The next packet; nothing when there is none.
    std::optional<std::string> Receive() const;
    /// The next packet as JSON; null when there is none.
    Json::Value ReceiveJson() const;
    /// Whether the other end has closed it and nothing is left to read.
    bool IsClosed() const;
    int Descriptor() const { return _fd.Get(); }

private:
    Service::UniqueFd _fd;
};

/// A request with the members that each needs.
Json::Value Request(const std::string& strVerb, const Json::Value& jsId = Json::Value());
/// The "code" of an error reply; empty for any other document.
std::string CodeOf(const Json::Value& jsReply);

/// Lets a loop work until nothing is left to do at once. @return how many turns that took.
int TurnLoop(sd_event* pEvent);

/// A server in a folder of its own, in a loop that turns on demand. It answers "echo" with the request, "who" with the
/// peer, "large" with so many bytes, "later" by a Reply that is kept, and fails for "refuse" and "break".
class ControlTest : public testing::Test {
protected:
    explicit ControlTest(Service::ControlServer::Limits limits = {});

    /// Restarts the server with other limits.
    void Serve(const Service::ControlServer::Limits& limits);
    int Turn() { return TurnLoop(_event.get()); }
    /// Sends a request, lets the server work and takes the reply.
    Json::Value Ask(const Client& client, const Json::Value& jsRequest);
    Json::Value Ask(const Client& client, const std::string& strPacket);
    Client Connect() const { return Client(_strPath); }

    support::TempDir _dir;
    std::string _strPath;
    std::unique_ptr<sd_event, sd_event* (*)(sd_event*)> _event;
    std::vector<Service::Reply> _vecReplies;
    std::unique_ptr<Service::ControlServer> _server;

private:
    Json::Value Handle(const Json::Value& jsRequest, const Service::Peer& peer, const Service::Reply& reply);
};

} // namespace control_test
