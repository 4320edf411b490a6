#include "service/control/server.h"

#include <sys/epoll.h>
#include <sys/socket.h>

#include <cerrno>
#include <ctime>
#include <exception>
#include <map>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "service/control/accounts.h"
#include "service/control/listeningsocket.h"
#include "service/control/packet.h"
#include "service/eventsource.h"
#include "service/uniquefd.h"

namespace VUKO::VUKOCrond::Service {

namespace {

constexpr std::uint64_t USEC_PER_SEC = 1000000;
/// How long the descriptors that ran out are left alone. The socket stays readable meanwhile: looking at it at once
/// would go round without end.
constexpr std::uint64_t ACCEPT_PAUSE_USEC = USEC_PER_SEC;
/// How long a connection is not read from after a request too many.
constexpr std::uint64_t RATE_PAUSE_USEC = USEC_PER_SEC / 10;
constexpr std::uint64_t TIMER_ACCURACY_USEC = 10000;

void Check(int iResult, const char* szWhat) {
    if (iResult < 0) {
        throw std::system_error(-iResult, std::generic_category(), szWhat);
    }
}

std::uint64_t NowUsec() {
    timespec tsNow = {};
    clock_gettime(CLOCK_MONOTONIC, &tsNow);
    return static_cast<std::uint64_t>(tsNow.tv_sec) * USEC_PER_SEC + static_cast<std::uint64_t>(tsNow.tv_nsec) / 1000;
}

EventSourcePtr Adopt(sd_event_source* pSource) {
    EventSourcePtr source(pSource);
    Check(sd_event_source_set_priority(pSource, SD_EVENT_PRIORITY_IDLE), "sd_event_source_set_priority");
    return source;
}

EventSourcePtr Watch(sd_event* pEvent, int iFd, sd_event_io_handler_t pCallback, void* pUser) {
    sd_event_source* pSource = nullptr;
    Check(sd_event_add_io(pEvent, &pSource, iFd, EPOLLIN, pCallback, pUser), "sd_event_add_io");
    return Adopt(pSource);
}

EventSourcePtr After(sd_event* pEvent, std::uint64_t uUsec, sd_event_time_handler_t pCallback, void* pUser) {
    sd_event_source* pSource = nullptr;
    Check(sd_event_add_time_relative(pEvent, &pSource, CLOCK_MONOTONIC, uUsec, TIMER_ACCURACY_USEC, pCallback, pUser),
          "sd_event_add_time_relative");
    return Adopt(pSource);
}

/// Tells a connection that is not taken why. A request that is there already is taken out first: with one unread, the
/// closing would reach the peer as an error before the reply.
void TurnAway(int iFd, const char* szMessage) {
    DropPacket(iFd);
    SendPacket(iFd, ErrorText(Json::Value(), Protocol::CODE_BUSY, szMessage));
}

/// Whether accept4() failed for a reason that lies with the one who connected, or is none.
bool IsPassing(int iErrno) {
    return iErrno == EAGAIN || iErrno == EINTR || iErrno == ECONNABORTED;
}

} // namespace

struct ControlServer::Connection : std::enable_shared_from_this<Connection> {
    Connection(Private& owner, UniqueFd fdPeer, const Peer& who) : server(owner), fd(std::move(fdPeer)), peer(who) {}

    Private& server;
    UniqueFd fd;
    Peer peer;
    std::size_t uWaits = 0;
    // Behind the descriptor, so that they leave the loop before it is closed.
    EventSourcePtr io;
    EventSourcePtr idle;
    EventSourcePtr resume;
};

struct ControlServer::Private {
    Private(sd_event* pLoop, const std::string& strPath, Handler fnHandler, const Limits& someLimits)
        : pEvent(sd_event_ref(pLoop), sd_event_unref), socket(strPath), handler(std::move(fnHandler)),
          limits(someLimits), accounts(someLimits.uRequestsPerSecond), vecBuffer(someLimits.uRequestBytes),
          accepting(Watch(pLoop, socket.Descriptor(), OnConnect, this)),
          acceptAgain(After(pLoop, ACCEPT_PAUSE_USEC, OnAcceptAgain, this)) {}

    static int OnConnect(sd_event_source* pSource, int iFd, std::uint32_t uEvents, void* pPrivate);
    static int OnAcceptAgain(sd_event_source* pSource, std::uint64_t uUsec, void* pPrivate);
    static int OnPacket(sd_event_source* pSource, int iFd, std::uint32_t uEvents, void* pConnection);
    static int OnIdle(sd_event_source* pSource, std::uint64_t uUsec, void* pConnection);
    static int OnResume(sd_event_source* pSource, std::uint64_t uUsec, void* pConnection);

    void Accept();
    const char* WhyNotTaken(const Peer& peer);
    void Take(UniqueFd fd, const Peer& peer);
    void Receive(Connection& connection);
    void Answer(Connection& connection, std::string_view strText);
    bool IsTooFast(const Peer& peer);
    void Pause(Connection& connection);
    void Write(Connection& connection, const Json::Value& jsId, const std::string& strText);
    void Close(Connection& connection);
    void BeginWait(Connection& connection);
    void EndWait(Connection& connection);

    Accounts::Account& AccountOf(const Peer& peer) { return accounts.Of(peer.uid, NowUsec()); }

    std::unique_ptr<sd_event, sd_event* (*)(sd_event*)> pEvent;
    ListeningSocket socket;
    Handler handler;
    Limits limits;
    Accounts accounts;
    std::size_t uOthers = 0; ///< connections that are not root's
    std::vector<char> vecBuffer;
    std::map<int, std::shared_ptr<Connection>> mapConnections;
    EventSourcePtr accepting;
    EventSourcePtr acceptAgain; ///< made before it is needed: the loop's first timer takes a descriptor
};

struct Reply::State {
    State(const std::shared_ptr<ControlServer::Connection>& peer, Json::Value jsMark)
        : connection(peer), jsId(std::move(jsMark)) {}
    ~State();
    State(const State&) = delete;
    State& operator=(const State&) = delete;

    /// @return the connection, when there is one and nothing was answered yet; from then on it counts as answered.
    std::shared_ptr<ControlServer::Connection> Claim();
    void Write(const std::string& strText);

    std::weak_ptr<ControlServer::Connection> connection;
    Json::Value jsId;
    bool bDeferred = false;
    bool bAnswered = false;
};

Reply::State::~State() {
    try {
        if (bDeferred && !bAnswered) {
            Write(ErrorText(jsId, Protocol::CODE_INTERNAL, "the request was given up"));
        }
    } catch (const std::exception&) {
        // Out of memory: the peer waits until it gives up.
    }
}

std::shared_ptr<ControlServer::Connection> Reply::State::Claim() {
    std::shared_ptr<ControlServer::Connection> held = bAnswered ? nullptr : connection.lock();
    bAnswered = true;
    if (held && bDeferred) {
        held->server.EndWait(*held);
    }
    return held;
}

void Reply::State::Write(const std::string& strText) {
    if (const std::shared_ptr<ControlServer::Connection> held = Claim()) {
        held->server.Write(*held, jsId, strText);
    }
}

void Reply::Defer() const {
    if (const auto held = _state->connection.lock(); held && !_state->bDeferred && !_state->bAnswered) {
        held->server.BeginWait(*held);
        _state->bDeferred = true;
    }
}

void Reply::Send(const Json::Value& jsResult) const {
    _state->Write(ResultText(_state->jsId, jsResult));
}

void Reply::Fail(const std::string& strCode, const std::string& strMessage) const {
    _state->Write(ErrorText(_state->jsId, strCode, strMessage));
}

bool Reply::IsAwaited() const {
    return !_state->bAnswered && !_state->connection.expired();
}

int ControlServer::Private::OnConnect(sd_event_source* /*pSource*/, int /*iFd*/, std::uint32_t /*uEvents*/,
                                      void* pPrivate) {
    try {
        static_cast<Private*>(pPrivate)->Accept();
    } catch (const std::exception&) {
        // No memory or no watch for one more: its descriptor is closed, and the peer sees that.
    }
    return 0;
}

int ControlServer::Private::OnAcceptAgain(sd_event_source* /*pSource*/, std::uint64_t /*uUsec*/, void* pPrivate) {
    sd_event_source_set_enabled(static_cast<Private*>(pPrivate)->accepting.get(), SD_EVENT_ON);
    return 0;
}

int ControlServer::Private::OnPacket(sd_event_source* /*pSource*/, int /*iFd*/, std::uint32_t /*uEvents*/,
                                     void* pConnection) {
    const std::shared_ptr<Connection> held = static_cast<Connection*>(pConnection)->shared_from_this();
    try {
        held->server.Receive(*held);
    } catch (const std::exception&) {
        held->server.Close(*held); // no answer can be made; that there is none is one
    }
    return 0;
}

int ControlServer::Private::OnIdle(sd_event_source* pSource, std::uint64_t /*uUsec*/, void* pConnection) {
    Connection& connection = *static_cast<Connection*>(pConnection);
    if (connection.uWaits == 0) {
        connection.server.Close(connection);
        return 0;
    }
    sd_event_source_set_time_relative(pSource, connection.server.limits.uIdleSeconds * USEC_PER_SEC);
    sd_event_source_set_enabled(pSource, SD_EVENT_ONESHOT);
    return 0;
}

int ControlServer::Private::OnResume(sd_event_source* /*pSource*/, std::uint64_t /*uUsec*/, void* pConnection) {
    sd_event_source_set_enabled(static_cast<Connection*>(pConnection)->io.get(), SD_EVENT_ON);
    return 0;
}

void ControlServer::Private::Accept() {
    UniqueFd fd(accept4(socket.Descriptor(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
    if (!fd) {
        if (!IsPassing(errno)) {
            sd_event_source_set_enabled(accepting.get(), SD_EVENT_OFF);
            sd_event_source_set_time_relative(acceptAgain.get(), ACCEPT_PAUSE_USEC);
            sd_event_source_set_enabled(acceptAgain.get(), SD_EVENT_ONESHOT);
        }
        return;
    }
    const Peer peer = PeerOf(fd.Get());
    if (const char* szWhyNot = WhyNotTaken(peer)) {
        TurnAway(fd.Get(), szWhyNot);
        return;
    }
    Take(std::move(fd), peer);
}

const char* ControlServer::Private::WhyNotTaken(const Peer& peer) {
    if (mapConnections.size() >= limits.uConnections) {
        return "too many connections";
    }
    if (peer.MayDoAll()) {
        return nullptr;
    }
    if (uOthers + limits.uConnectionsForRoot >= limits.uConnections) {
        return "too many connections";
    }
    return AccountOf(peer).uConnections >= limits.uConnectionsOfAccount ? "too many connections of this account"
                                                                        : nullptr;
}

void ControlServer::Private::Take(UniqueFd fd, const Peer& peer) {
    const int iFd = fd.Get();
    MakeRoom(iFd, limits.uReplyBytes);
    const auto connection = std::make_shared<Connection>(*this, std::move(fd), peer);
    connection->io = Watch(pEvent.get(), iFd, OnPacket, connection.get());
    connection->idle = After(pEvent.get(), limits.uIdleSeconds * USEC_PER_SEC, OnIdle, connection.get());
    Accounts::Account& account = AccountOf(peer);
    mapConnections.emplace(iFd, connection);
    ++account.uConnections;
    uOthers += peer.MayDoAll() ? 0 : 1;
}

void ControlServer::Private::Receive(Connection& connection) {
    // By recv(), which gives descriptors that a peer sends along no place to arrive at.
    const ssize_t iBytes = recv(connection.fd.Get(), vecBuffer.data(), vecBuffer.size(), MSG_DONTWAIT | MSG_TRUNC);
    if (iBytes < 0 && (errno == EAGAIN || errno == EINTR)) {
        return;
    }
    if (iBytes <= 0) {
        Close(connection); // an empty packet cannot be told from the end, and is nothing that anybody asks
        return;
    }
    sd_event_source_set_time_relative(connection.idle.get(), limits.uIdleSeconds * USEC_PER_SEC);
    if (IsTooFast(connection.peer)) {
        Pause(connection);
        Write(connection, {}, ErrorText({}, Protocol::CODE_RATE, "too many requests"));
        return;
    }
    const auto uBytes = static_cast<std::size_t>(iBytes);
    if (uBytes > vecBuffer.size()) {
        Write(connection, {}, ErrorText({}, Protocol::CODE_TOO_LARGE, "the request is too large"));
        return;
    }
    Answer(connection, {vecBuffer.data(), uBytes});
}

void ControlServer::Private::Answer(Connection& connection, std::string_view strText) {
    const RequestEnvelope request(strText);
    const auto state = std::make_shared<Reply::State>(connection.shared_from_this(), request.Id());
    const Reply reply(state);
    try {
        request.Check();
        const Json::Value jsResult = handler(request.Document(), connection.peer, reply);
        if (!state->bDeferred) {
            reply.Send(jsResult);
        }
    } catch (const ControlError& error) {
        reply.Fail(error.Code(), error.what());
    } catch (const std::exception& exception) {
        reply.Fail(Protocol::CODE_INTERNAL, connection.peer.MayDoAll() ? exception.what() : "internal error");
    }
}

bool ControlServer::Private::IsTooFast(const Peer& peer) {
    return !peer.MayDoAll() && !AccountOf(peer).requests.Take(NowUsec());
}

/// Refusing costs nearly as much as answering, so it must not be had as fast as one likes either.
void ControlServer::Private::Pause(Connection& connection) {
    connection.resume = After(pEvent.get(), RATE_PAUSE_USEC, OnResume, &connection);
    sd_event_source_set_enabled(connection.io.get(), SD_EVENT_OFF);
}

void ControlServer::Private::Write(Connection& connection, const Json::Value& jsId, const std::string& strText) {
    const bool bFits = strText.size() <= limits.uReplyBytes;
    if (!SendPacket(connection.fd.Get(),
                    bFits ? strText : ErrorText(jsId, Protocol::CODE_TOO_LARGE, "the reply is too large"))) {
        Close(connection);
    }
}

/// The connection lives on as long as somebody in a callback holds it.
void ControlServer::Private::Close(Connection& connection) {
    const auto it = mapConnections.find(connection.fd.Get());
    if (it == mapConnections.end() || it->second.get() != &connection) {
        return; // closed already, on the way here
    }
    const std::shared_ptr<Connection> held = it->second;
    Accounts::Account& account = AccountOf(held->peer);
    --account.uConnections;
    account.uWaits -= held->uWaits;
    held->uWaits = 0;
    uOthers -= held->peer.MayDoAll() ? 0 : 1;
    held->resume.reset();
    held->idle.reset();
    held->io.reset();
    mapConnections.erase(it);
    held->fd = UniqueFd();
}

void ControlServer::Private::BeginWait(Connection& connection) {
    Accounts::Account& account = AccountOf(connection.peer);
    if (account.uWaits >= limits.uWaitsOfAccount) {
        throw ControlError(Protocol::CODE_BUSY, "too many requests of this account wait for their answers");
    }
    ++account.uWaits;
    ++connection.uWaits;
}

void ControlServer::Private::EndWait(Connection& connection) {
    if (connection.uWaits > 0) { // none is left when the connection was closed under it
        --connection.uWaits;
        --AccountOf(connection.peer).uWaits;
    }
}

ControlServer::ControlServer(sd_event* pEvent, const std::string& strPath, Handler handler, const Limits& limits)
    : _p(std::make_unique<Private>(pEvent, strPath, std::move(handler), limits)) {}

ControlServer::~ControlServer() = default;

std::size_t ControlServer::Connections() const {
    return _p->mapConnections.size();
}

} // namespace VUKO::VUKOCrond::Service
