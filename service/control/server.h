#pragma once

#include <sys/types.h>

#include <json/json.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <string>

struct sd_event;

namespace VUKO::VUKOCrond::Service {

/// Who is at the other end, as the kernel tells.
struct Peer {
    uid_t uid = 0;
    gid_t gid = 0;
    pid_t pid = 0;
    bool IsRoot() const { return uid == 0; }
};

/// The socket that the control tool talks to: a Unix socket of sequenced packets at which everybody may connect. One
/// packet is one request or one reply, each a JSON document. It owns nothing of what it is asked about: a handler
/// answers, from memory and at once.
class ControlServer {
public:
    /// Version of the protocol: member "version" of requests and replies.
    static constexpr int PROTOCOL_VERSION = 1;

    struct Limits {
        std::size_t uRequestBytes = 64 * 1024;
        std::size_t uReplyBytes = 128 * 1024;
        std::size_t uConnections = 64;
        std::size_t uConnectionsOfAccount = 16; ///< not for root
        unsigned uRequestsPerSecond = 50;       ///< of one account; root's are not counted
        unsigned uIdleSeconds = 60;             ///< a connection that asks nothing for so long is closed
    };

    /// Answers one request. May answer later through a Ticket of its own, see `Defer`. Throws nothing but std::exception,
    /// which becomes an error reply.
    using Handler = std::function<Json::Value(const Json::Value& jsRequest, const Peer& peer)>;

    /// Makes the socket (mode 0666) in place of whatever a former service left at the path.
    ///
    /// @param pEvent  the loop in which it works.
    /// @throws std::system_error when the socket cannot be made.
    ControlServer(sd_event* pEvent, std::string strPath, Handler handler, const Limits& limits);
    ~ControlServer();
    ControlServer(const ControlServer&) = delete;
    ControlServer& operator=(const ControlServer&) = delete;

private:
    struct Private;
    std::unique_ptr<Private> _p;
};

} // namespace VUKO::VUKOCrond::Service
