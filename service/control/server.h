#pragma once

#include <json/json.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <string>

#include "service/control/envelope.h"
#include "service/control/packet.h"
#include "service/control/protocol.h"

struct sd_event;

namespace VUKO::VUKOCrond::Service {

/// A handler's hold on one request, for an answer that comes later. Copies are the same hold. It may outlive the
/// connection and the server: what is said then goes nowhere.
class Reply {
public:
    /// Announces that the answer comes later; to be called by the handler before it does anything that it would not
    /// do in vain. What the handler returns after that is not looked at. Whoever lets go of the last copy without an
    /// answer answers with an error.
    ///
    /// @throws ControlError "busy" when as many requests of that account wait as may.
    void Defer() const;

    /// Answers; the first answer counts.
    void Send(const Json::Value& jsResult) const;
    void Fail(const std::string& strCode, const std::string& strMessage) const;

    /// Whether an answer would still reach somebody.
    bool IsAwaited() const;

private:
    friend class ControlServer;
    struct State;
    explicit Reply(std::shared_ptr<State> state) : _state(std::move(state)) {}
    std::shared_ptr<State> _state;
};

/// The socket that the control tool talks to: a Unix socket of sequenced packets at which everybody may connect. One
/// packet is one request or one reply, each a JSON document (docs/CONTROL.md). It owns nothing of what it is asked
/// about: a handler answers, from memory and at once.
///
/// It works at the lowest priority of the loop and takes one packet a turn, so that whatever else has to be done comes
/// first and waits for one request at most.
class ControlServer {
public:
    struct Limits {
        std::size_t uRequestBytes = Protocol::REQUEST_BYTES_MAX;
        std::size_t uReplyBytes = Protocol::REPLY_BYTES_MAX;
        std::size_t uConnections = 64;
        std::size_t uConnectionsForRoot = 8;    ///< of those, which nobody else is given
        std::size_t uConnectionsOfAccount = 16; ///< not for root
        std::size_t uWaitsOfAccount = 16;       ///< requests that wait for a later answer
        unsigned uRequestsPerSecond = 50;       ///< of one account; root's are not counted
        unsigned uIdleSeconds = 60;             ///< a connection that asks nothing for so long is closed
    };

    /// Answers one request: an object whose member "verb" is a string. What it returns is the "result" of the reply;
    /// what it throws becomes an error reply: a ControlError as it is, anything else as "internal" (its text is shown
    /// to root alone).
    using Handler = std::function<Json::Value(const Json::Value& jsRequest, const Peer& peer, const Reply& reply)>;

    /// Makes the socket (mode 0666) in place of whatever a former service left at the path.
    ///
    /// @param pEvent  the loop in which it works.
    /// @throws std::system_error when the socket cannot be made.
    ControlServer(sd_event* pEvent, const std::string& strPath, Handler handler, const Limits& limits);
    /// Not from within a handler.
    ~ControlServer();
    ControlServer(const ControlServer&) = delete;
    ControlServer& operator=(const ControlServer&) = delete;

    /// How many are connected now.
    std::size_t Connections() const;

private:
    friend class Reply;
    struct Private;
    struct Connection;
    std::unique_ptr<Private> _p;
};

} // namespace VUKO::VUKOCrond::Service
