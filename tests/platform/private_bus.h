#pragma once

#include <sys/types.h>

#include <string>

#include "tests/support/temp_dir.h"

namespace support {

/// A message bus of the test's own, in the place of the system bus (DBUS_SYSTEM_BUS_ADDRESS) for the life of the
/// object.
class PrivateBus {
public:
    PrivateBus();
    ~PrivateBus();
    PrivateBus(const PrivateBus&) = delete;
    PrivateBus& operator=(const PrivateBus&) = delete;

    const std::string& Address() const { return _strAddress; }
    /// Ends the bus; its address stays.
    void Stop();

private:
    TempDir _dir;
    std::string _strAddress;
    pid_t _pid = -1;
};

/// How a fake service answers.
struct FakeAnswers {
    bool bPreparingForSleep = false;
    std::string strSystemState = "running";
    /// The state of every unit.
    std::string strActiveState = "active";
    /// Name of the D-Bus error with which everything is answered; empty for none.
    std::string strError = {};
    /// Takes its name and then never answers.
    bool bSilent = false;
};

/// Plays both logind's manager object and systemd's, in a process of its own that ends with this object.
class FakeManagers {
public:
    /// On the private bus, under both names.
    static FakeManagers OnBus(const PrivateBus& bus, const FakeAnswers& answers);
    /// On a socket of its own, without a bus, as systemd serves root.
    static FakeManagers OnSocket(const std::string& strSocket, const FakeAnswers& answers);

    ~FakeManagers();
    FakeManagers(const FakeManagers&) = delete;
    FakeManagers& operator=(const FakeManagers&) = delete;

    /// The arguments of the ReloadUnit calls so far, as "UNIT MODE;".
    std::string Reloads() const;

private:
    FakeManagers(pid_t pid, int iReportFd) : _pid(pid), _iReportFd(iReportFd) {}

    pid_t _pid;
    int _iReportFd;
};

} // namespace support
