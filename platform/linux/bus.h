#pragma once

#include <systemd/sd-bus.h>

#include <cstdint>
#include <memory>

namespace VUKO::PLATFORM {

struct BusCloser {
    void operator()(sd_bus* pBus) const { sd_bus_close_unref(pBus); }
};
struct MessageReleaser {
    void operator()(sd_bus_message* pMessage) const { sd_bus_message_unref(pMessage); }
};
using MessagePtr = std::unique_ptr<sd_bus_message, MessageReleaser>;

/// What answers on a bus, and by which interface.
struct BusObject {
    const char* szService;
    const char* szPath;
    const char* szInterface;
};

/// systemd's manager object.
constexpr BusObject MANAGER{"org.freedesktop.systemd1", "/org/freedesktop/systemd1",
                            "org.freedesktop.systemd1.Manager"};

/// One connection, for a few questions. Opening and all questions together take at most BUS_PATIENCE_USEC. Every
/// function returns 0, or the negative errno value of the failure.
class Bus {
public:
    /// To the system bus; DBUS_SYSTEM_BUS_ADDRESS may name another.
    int OpenSystem();

    /// To where MANAGER answers. Root asks systemd itself on its private socket: the bus stops early in a shutdown,
    /// which is when the answer counts.
    int OpenManager();

    /// Asks for one property of a basic type, read as by sd_bus_message_read_basic(). A text lives as long as `reply`.
    int GetProperty(const BusObject& object, const char* szProperty, char cType, void* pValue, MessagePtr& reply);

    /// Calls a method with two texts and ignores what it returns.
    int CallWithTexts(const BusObject& object, const char* szMethod, const char* szFirst, const char* szSecond);

    /// Whether a failure means that nobody has the service's name on the bus.
    static bool IsNobody(int iResult);
    /// Whether a failure to open means that there is no bus at all.
    static bool IsNoBus(int iResult);

private:
    int OpenPrivateManager();
    int WaitUntilReady();
    int NewCall(const BusObject& object, const char* szInterface, const char* szMethod, MessagePtr& call);
    int Send(const MessagePtr& call, MessagePtr& reply);
    int TimeLeft(std::uint64_t& uUsec) const;

    std::unique_ptr<sd_bus, BusCloser> _bus;
    std::uint64_t _uDeadline = 0;
};

} // namespace VUKO::PLATFORM
