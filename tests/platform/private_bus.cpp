#include "tests/platform/private_bus.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <cstdlib>
#include <functional>
#include <stdexcept>

#include "tests/support/forked.h"

namespace support {

namespace {

constexpr const char* SZ_READY = "ready";

void Check(int iResult, const char* szWhat) {
    if (iResult < 0) {
        throw std::runtime_error(szWhat);
    }
}

/// Starts a process that ends with this one. Its body must not return.
pid_t Start(const std::function<void()>& body) {
    const pid_t pid = fork();
    Check(pid, "fork");
    if (pid == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        body();
        _exit(1);
    }
    return pid;
}

void End(pid_t pid) {
    kill(pid, SIGKILL);
    WaitFor(pid);
}

/// What comes first out of a pipe, up to a line end or the end.
std::string ReadLine(int iFd) {
    std::string strLine;
    char c = 0;
    while (read(iFd, &c, 1) == 1 && c != '\n') {
        strLine += c;
    }
    return strLine;
}

/// The fake's side of one connection.
struct Fake {
    const FakeAnswers& answers;
    int iReportFd;
};

int Refuse(const Fake& fake, sd_bus_error* pError) {
    return sd_bus_error_set(pError, fake.answers.strError.c_str(), "refused by the test");
}

int GetPreparing(sd_bus*, const char*, const char*, const char*, sd_bus_message* pReply, void* pUser,
                 sd_bus_error* pError) {
    const Fake& fake = *static_cast<const Fake*>(pUser);
    return fake.answers.strError.empty() ? sd_bus_message_append(pReply, "b", fake.answers.bPreparingForSleep)
                                         : Refuse(fake, pError);
}

int GetState(sd_bus*, const char*, const char*, const char*, sd_bus_message* pReply, void* pUser,
             sd_bus_error* pError) {
    const Fake& fake = *static_cast<const Fake*>(pUser);
    return fake.answers.strError.empty() ? sd_bus_message_append(pReply, "s", fake.answers.strSystemState.c_str())
                                         : Refuse(fake, pError);
}

int GetActive(sd_bus*, const char*, const char*, const char*, sd_bus_message* pReply, void* pUser,
              sd_bus_error* pError) {
    const Fake& fake = *static_cast<const Fake*>(pUser);
    return fake.answers.strError.empty() ? sd_bus_message_append(pReply, "s", fake.answers.strActiveState.c_str())
                                         : Refuse(fake, pError);
}

int FindUnit(sd_bus*, const char*, const char*, void* pUser, void** ppFound, sd_bus_error*) {
    *ppFound = pUser;
    return 1;
}

int Reload(sd_bus_message* pCall, void* pUser, sd_bus_error* pError) {
    const Fake& fake = *static_cast<const Fake*>(pUser);
    const char* szUnit = nullptr;
    const char* szMode = nullptr;
    const int iResult = sd_bus_message_read(pCall, "ss", &szUnit, &szMode);
    if (iResult < 0) {
        return iResult;
    }
    if (!fake.answers.strError.empty()) {
        return Refuse(fake, pError);
    }
    dprintf(fake.iReportFd, "%s %s;", szUnit, szMode);
    return sd_bus_reply_method_return(pCall, "o", "/org/freedesktop/systemd1/job/1");
}

const sd_bus_vtable aLogin[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_PROPERTY("PreparingForSleep", "b", GetPreparing, 0, 0),
    SD_BUS_VTABLE_END,
};

const sd_bus_vtable aManager[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_PROPERTY("SystemState", "s", GetState, 0, 0),
    SD_BUS_METHOD("ReloadUnit", "ss", "o", Reload, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END,
};

const sd_bus_vtable aUnit[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_PROPERTY("ActiveState", "s", GetActive, 0, 0),
    SD_BUS_VTABLE_END,
};

void AddObjects(sd_bus* pBus, Fake& fake) {
    Check(sd_bus_add_object_vtable(pBus, nullptr, "/org/freedesktop/login1", "org.freedesktop.login1.Manager", aLogin,
                                   &fake),
          "add login1");
    Check(sd_bus_add_object_vtable(pBus, nullptr, "/org/freedesktop/systemd1", "org.freedesktop.systemd1.Manager",
                                   aManager, &fake),
          "add systemd1");
    Check(sd_bus_add_fallback_vtable(pBus, nullptr, "/org/freedesktop/systemd1/unit", "org.freedesktop.systemd1.Unit",
                                     aUnit, FindUnit, &fake),
          "add units");
}

void Serve(sd_bus* pBus) {
    for (;;) {
        const int iResult = sd_bus_process(pBus, nullptr);
        if (iResult < 0 || (iResult == 0 && sd_bus_wait(pBus, UINT64_MAX) < 0)) {
            return;
        }
    }
}

void ServeOnBus(const std::string& strAddress, Fake fake) {
    sd_bus* pBus = nullptr;
    Check(sd_bus_new(&pBus), "new bus");
    Check(sd_bus_set_address(pBus, strAddress.c_str()), "set address");
    Check(sd_bus_set_bus_client(pBus, 1), "set client");
    Check(sd_bus_start(pBus), "start");
    AddObjects(pBus, fake);
    Check(sd_bus_request_name(pBus, "org.freedesktop.login1", 0), "request login1");
    Check(sd_bus_request_name(pBus, "org.freedesktop.systemd1", 0), "request systemd1");
    dprintf(fake.iReportFd, "%s\n", SZ_READY);
    if (fake.answers.bSilent) {
        for (;;) {
            pause();
        }
    }
    Serve(pBus);
}

void ServeConnection(int iFd, Fake& fake) {
    sd_id128_t id = {};
    sd_bus* pBus = nullptr;
    Check(sd_id128_randomize(&id), "make an id");
    Check(sd_bus_new(&pBus), "new bus");
    Check(sd_bus_set_fd(pBus, iFd, iFd), "set descriptor");
    Check(sd_bus_set_server(pBus, 1, id), "set server");
    Check(sd_bus_start(pBus), "start");
    AddObjects(pBus, fake);
    Serve(pBus);
    sd_bus_close_unref(pBus);
}

void ServeOnSocket(const std::string& strSocket, Fake fake) {
    struct sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    strSocket.copy(address.sun_path, sizeof(address.sun_path) - 1);
    const int iListenFd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    Check(bind(iListenFd, reinterpret_cast<const struct sockaddr*>(&address), sizeof(address)), "bind");
    Check(listen(iListenFd, 5), "listen");
    dprintf(fake.iReportFd, "%s\n", SZ_READY);
    for (;;) {
        if (fake.answers.bSilent) {
            pause();
            continue;
        }
        const int iFd = accept4(iListenFd, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
        Check(iFd, "accept");
        ServeConnection(iFd, fake);
    }
}

/// Starts a fake and waits until it is ready.
std::pair<pid_t, int> StartFake(const std::function<void(int iReportFd)>& serve) {
    int aiPipe[2];
    Check(pipe2(aiPipe, O_CLOEXEC), "pipe");
    const pid_t pid = Start([&] {
        try {
            serve(aiPipe[1]);
        } catch (const std::exception& e) {
            dprintf(aiPipe[1], "%s\n", e.what());
        }
    });
    close(aiPipe[1]);
    if (const std::string strLine = ReadLine(aiPipe[0]); strLine != SZ_READY) {
        End(pid);
        throw std::runtime_error("the fake is not ready: " + strLine);
    }
    return {pid, aiPipe[0]};
}

} // namespace

PrivateBus::PrivateBus() {
    const std::string strConfig = _dir / "bus.conf";
    WriteFile(strConfig, "<busconfig><listen>unix:path=" + (_dir / "bus") +
                             "</listen><auth>EXTERNAL</auth><policy context=\"default\"><allow user=\"*\"/>"
                             "<allow own=\"*\"/><allow send_destination=\"*\"/><allow receive_sender=\"*\"/>"
                             "</policy></busconfig>");
    int aiPipe[2];
    Check(pipe(aiPipe), "pipe");
    _pid = Start([&] {
        const std::string strConfigOption = "--config-file=" + strConfig;
        const std::string strPrintOption = "--print-address=" + std::to_string(aiPipe[1]);
        dup2(open("/dev/null", O_WRONLY | O_CLOEXEC), STDERR_FILENO); // it complains of limits that it cannot raise
        execlp("dbus-daemon", "dbus-daemon", strConfigOption.c_str(), "--nofork", "--nopidfile", "--nosyslog",
               strPrintOption.c_str(), static_cast<char*>(nullptr));
    });
    close(aiPipe[1]);
    _strAddress = ReadLine(aiPipe[0]);
    close(aiPipe[0]);
    if (_strAddress.empty()) {
        throw std::runtime_error("dbus-daemon does not start");
    }
    setenv("DBUS_SYSTEM_BUS_ADDRESS", _strAddress.c_str(), 1);
}

PrivateBus::~PrivateBus() {
    Stop();
    unsetenv("DBUS_SYSTEM_BUS_ADDRESS");
}

void PrivateBus::Stop() {
    if (_pid > 0) {
        End(_pid);
        _pid = -1;
    }
}

FakeManagers FakeManagers::OnBus(const PrivateBus& bus, const FakeAnswers& answers) {
    const auto [pid, iReportFd] = StartFake([&](int iFd) { ServeOnBus(bus.Address(), {answers, iFd}); });
    return FakeManagers(pid, iReportFd);
}

FakeManagers FakeManagers::OnSocket(const std::string& strSocket, const FakeAnswers& answers) {
    const auto [pid, iReportFd] = StartFake([&](int iFd) { ServeOnSocket(strSocket, {answers, iFd}); });
    return FakeManagers(pid, iReportFd);
}

FakeManagers::~FakeManagers() {
    End(_pid);
    close(_iReportFd);
}

std::string FakeManagers::Reloads() const {
    std::string strReloads;
    struct pollfd ready = {_iReportFd, POLLIN, 0};
    char c = 0;
    // The fake reports before it answers, so what has been answered is here.
    while (poll(&ready, 1, 0) == 1 && read(_iReportFd, &c, 1) == 1) {
        strReloads += c;
    }
    return strReloads;
}

} // namespace support
