#include "platform/linux/bus.h"

#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>

namespace VUKO::PLATFORM {

namespace {

constexpr std::uint64_t USEC_PER_SEC = 1000000;
constexpr std::uint64_t BUS_PATIENCE_USEC = 3 * USEC_PER_SEC;
constexpr const char* SZ_MANAGER_SOCKET = "unix:path=/run/systemd/private";

/// sd-bus gives many reasons for "nobody has that name"; here it is this one.
constexpr int NOBODY = -EHOSTUNREACH;

std::uint64_t Now() {
    struct timespec tsNow = {};
    ::clock_gettime(CLOCK_MONOTONIC, &tsNow);
    return static_cast<std::uint64_t>(tsNow.tv_sec) * USEC_PER_SEC + static_cast<std::uint64_t>(tsNow.tv_nsec) / 1000;
}

/// Whether root listens at the other end.
int CheckPeerIsRoot(sd_bus* pBus) {
    const int iFd = sd_bus_get_fd(pBus);
    if (iFd < 0) {
        return iFd;
    }
    struct ucred peer = {};
    socklen_t uLength = sizeof(peer);
    if (::getsockopt(iFd, SOL_SOCKET, SO_PEERCRED, &peer, &uLength) != 0) {
        return -errno;
    }
    return peer.uid == 0 ? 0 : -EPERM;
}

class BusError {
public:
    BusError() = default;
    ~BusError() { sd_bus_error_free(&_error); }
    BusError(const BusError&) = delete;
    BusError& operator=(const BusError&) = delete;

    sd_bus_error* Get() { return &_error; }
    bool SaysNobody() const {
        return sd_bus_error_has_name(&_error, SD_BUS_ERROR_SERVICE_UNKNOWN) > 0 ||
               sd_bus_error_has_name(&_error, SD_BUS_ERROR_NAME_HAS_NO_OWNER) > 0;
    }

private:
    sd_bus_error _error = {};
};

} // namespace

int Bus::OpenSystem() {
    _uDeadline = Now() + BUS_PATIENCE_USEC;
    sd_bus* pBus = nullptr;
    const int iResult = sd_bus_open_system(&pBus);
    if (iResult < 0) {
        return iResult;
    }
    _bus.reset(pBus);
    return WaitUntilReady();
}

int Bus::OpenManager() {
    if (::geteuid() == 0 && OpenPrivateManager() == 0) {
        return 0;
    }
    return OpenSystem();
}

int Bus::OpenPrivateManager() {
    _uDeadline = Now() + BUS_PATIENCE_USEC;
    sd_bus* pBus = nullptr;
    int iResult = sd_bus_new(&pBus);
    if (iResult < 0) {
        return iResult;
    }
    _bus.reset(pBus);
    iResult = sd_bus_set_address(pBus, SZ_MANAGER_SOCKET);
    if (iResult >= 0) {
        iResult = sd_bus_start(pBus);
    }
    if (iResult >= 0) {
        iResult = CheckPeerIsRoot(pBus);
    }
    return iResult < 0 ? iResult : WaitUntilReady();
}

/// Left to itself, a call waits for the connection far longer than its own timeout says.
int Bus::WaitUntilReady() {
    for (;;) {
        if (const int iReady = sd_bus_is_ready(_bus.get()); iReady != 0) {
            return iReady < 0 ? iReady : 0;
        }
        int iResult = sd_bus_process(_bus.get(), nullptr);
        if (iResult < 0) {
            return iResult;
        }
        if (iResult > 0) {
            continue;
        }
        std::uint64_t uLeft = 0;
        iResult = TimeLeft(uLeft);
        if (iResult == 0) {
            iResult = sd_bus_wait(_bus.get(), uLeft);
        }
        if (iResult < 0 && iResult != -EINTR) {
            return iResult;
        }
    }
}

int Bus::TimeLeft(std::uint64_t& uUsec) const {
    const std::uint64_t uNow = Now();
    if (uNow >= _uDeadline) {
        return -ETIMEDOUT;
    }
    uUsec = _uDeadline - uNow;
    return 0;
}

int Bus::NewCall(const BusObject& object, const char* szInterface, const char* szMethod, MessagePtr& call) {
    sd_bus_message* pCall = nullptr;
    const int iResult =
        sd_bus_message_new_method_call(_bus.get(), &pCall, object.szService, object.szPath, szInterface, szMethod);
    if (iResult < 0) {
        return iResult;
    }
    call.reset(pCall);
    // A question must not start the service that it asks about.
    return sd_bus_message_set_auto_start(pCall, 0);
}

int Bus::Send(const MessagePtr& call, MessagePtr& reply) {
    std::uint64_t uLeft = 0;
    int iResult = TimeLeft(uLeft);
    if (iResult < 0) {
        return iResult;
    }
    BusError error;
    sd_bus_message* pReply = nullptr;
    iResult = sd_bus_call(_bus.get(), call.get(), uLeft, error.Get(), &pReply);
    reply.reset(pReply);
    if (iResult < 0) {
        return error.SaysNobody() ? NOBODY : iResult;
    }
    return 0;
}

int Bus::GetProperty(const BusObject& object, const char* szProperty, char cType, void* pValue, MessagePtr& reply) {
    MessagePtr call;
    int iResult = NewCall(object, "org.freedesktop.DBus.Properties", "Get", call);
    if (iResult >= 0) {
        iResult = sd_bus_message_append(call.get(), "ss", object.szInterface, szProperty);
    }
    if (iResult >= 0) {
        iResult = Send(call, reply);
    }
    if (iResult >= 0) {
        const char szType[] = {cType, '\0'};
        iResult = sd_bus_message_enter_container(reply.get(), SD_BUS_TYPE_VARIANT, szType);
    }
    if (iResult >= 0) {
        iResult = sd_bus_message_read_basic(reply.get(), cType, pValue);
    }
    return iResult < 0 ? iResult : 0;
}

int Bus::CallWithTexts(const BusObject& object, const char* szMethod, const char* szFirst, const char* szSecond) {
    MessagePtr call;
    MessagePtr reply;
    int iResult = NewCall(object, object.szInterface, szMethod, call);
    if (iResult >= 0) {
        iResult = sd_bus_message_append(call.get(), "ss", szFirst, szSecond);
    }
    return iResult < 0 ? iResult : Send(call, reply);
}

bool Bus::IsNobody(int iResult) {
    return iResult == NOBODY;
}

bool Bus::IsNoBus(int iResult) {
    return iResult == -ENOENT || iResult == -ECONNREFUSED || iResult == -ENOTDIR;
}

} // namespace VUKO::PLATFORM
