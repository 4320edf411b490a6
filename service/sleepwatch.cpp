#include "service/sleepwatch.h"

#include <fcntl.h>
#include <systemd/sd-bus.h>
#include <systemd/sd-event.h>

#include <cerrno>
#include <cstring>
#include <exception>
#include <utility>

#include "service/logtext.h"
#include "service/uniquefd.h"

namespace VUKO::VUKOCrond::Service {

namespace {

constexpr const char* LOGIND = "org.freedesktop.login1";
constexpr const char* LOGIND_PATH = "/org/freedesktop/login1";
constexpr const char* LOGIND_MANAGER = "org.freedesktop.login1.Manager";
constexpr const char* BUS = "org.freedesktop.DBus";
constexpr const char* BUS_ITSELF = "org.freedesktop.DBus.Local";
constexpr const char* BUS_ITSELF_PATH = "/org/freedesktop/DBus/Local";
constexpr const char* NAME_FILTER = "type='signal',sender='org.freedesktop.DBus',path='/org/freedesktop/DBus',"
                                    "interface='org.freedesktop.DBus',member='NameOwnerChanged',"
                                    "arg0='org.freedesktop.login1'";
/// How long logind may take to answer. Nobody waits meanwhile; it is so short that Retry() finds the matter settled.
constexpr std::uint64_t ANSWER_USEC = 20000000;

struct BusCloser {
    void operator()(sd_bus* pBus) const {
        sd_bus_detach_event(pBus);
        sd_bus_close_unref(pBus); // without a flush, which could wait
    }
};
struct MessageDropper {
    void operator()(sd_bus_message* pMessage) const { sd_bus_message_unref(pMessage); }
};
using BusPtr = std::unique_ptr<sd_bus, BusCloser>;

bool MeansNobodyThere(int iErrno) {
    return iErrno == ENOENT || iErrno == ECONNREFUSED || iErrno == ENOTDIR;
}

bool SaysNobodyThere(const sd_bus_error* pError) {
    return sd_bus_error_has_name(pError, SD_BUS_ERROR_SERVICE_UNKNOWN) > 0 ||
           sd_bus_error_has_name(pError, SD_BUS_ERROR_NAME_HAS_NO_OWNER) > 0;
}

bool IsFrom(sd_bus_message* pMessage, const std::string& strSender) {
    const char* szSender = sd_bus_message_get_sender(pMessage);
    return szSender != nullptr && strSender == szSender;
}

} // namespace

struct SleepWatch::Private {
    static int OnLost(sd_bus_message* pMessage, void* pPrivate, sd_bus_error* pError);
    static int OnNameOwner(sd_bus_message* pMessage, void* pPrivate, sd_bus_error* pError);
    static int OnPrepare(sd_bus_message* pMessage, void* pPrivate, sd_bus_error* pError);
    static int OnInhibited(sd_bus_message* pMessage, void* pPrivate, sd_bus_error* pError);

    void Connect();
    int Subscribe(sd_bus* pBus);
    void Disconnect();
    void Inhibit();
    int CallInhibit();
    void TakeInhibitor(sd_bus_message* pReply);
    void Sleep(bool bSleeping);
    void Call(const std::function<void()>& callback, const char* szWhat);
    void Note(const std::string& strReason);

    std::unique_ptr<sd_event, sd_event* (*)(sd_event*)> event{nullptr, sd_event_unref};
    Callbacks callbacks;
    BusPtr bus;
    bool bAsked = false; ///< an inhibitor is on its way
    bool bAsleep = false;
    std::string strLogind; ///< whom logind's signals come from; anybody may send signals that look like them
    UniqueFd inhibitor;
    std::string strProblem;
    std::string strLastProblem;
};

void SleepWatch::Private::Connect() {
    sd_bus* pBus = nullptr;
    int iResult = sd_bus_open_system(&pBus); // does not wait for the bus to answer
    if (iResult >= 0) {
        bus.reset(pBus);
        iResult = Subscribe(pBus);
    }
    if (iResult < 0) {
        Disconnect();
        if (!MeansNobodyThere(-iResult)) {
            Note(std::string("cannot connect to the system bus: ") + strerror(-iResult));
        }
        return;
    }
    Inhibit();
}

int SleepWatch::Private::Subscribe(sd_bus* pBus) {
    int iResult = sd_bus_attach_event(pBus, event.get(), SD_EVENT_PRIORITY_NORMAL);
    if (iResult >= 0) {
        iResult =
            sd_bus_match_signal(pBus, nullptr, BUS_ITSELF, BUS_ITSELF_PATH, BUS_ITSELF, "Disconnected", OnLost, this);
    }
    if (iResult >= 0) {
        iResult = sd_bus_add_match_async(pBus, nullptr, NAME_FILTER, OnNameOwner, nullptr, this);
    }
    if (iResult >= 0) {
        iResult = sd_bus_match_signal_async(pBus, nullptr, LOGIND, LOGIND_PATH, LOGIND_MANAGER, "PrepareForSleep",
                                            OnPrepare, nullptr, this);
    }
    return iResult;
}

void SleepWatch::Private::Disconnect() {
    inhibitor = UniqueFd();
    bAsked = false;
    strLogind.clear();
    bus.reset();
}

void SleepWatch::Private::Inhibit() {
    if (bAsked || inhibitor || bAsleep) {
        return;
    }
    const int iResult = CallInhibit();
    bAsked = iResult >= 0;
    if (iResult < 0) {
        Note(std::string("cannot ask logind: ") + strerror(-iResult));
    }
}

int SleepWatch::Private::CallInhibit() {
    sd_bus_message* pCall = nullptr;
    int iResult = sd_bus_message_new_method_call(bus.get(), &pCall, LOGIND, LOGIND_PATH, LOGIND_MANAGER, "Inhibit");
    const std::unique_ptr<sd_bus_message, MessageDropper> call(pCall);
    if (iResult >= 0) {
        iResult = sd_bus_message_set_auto_start(pCall, 0); // a machine without logind is none that it makes sleep
    }
    if (iResult >= 0) {
        iResult = sd_bus_message_append(pCall, "ssss", "sleep", "vukocrond", "saving the state", "delay");
    }
    if (iResult >= 0) {
        iResult = sd_bus_call_async(bus.get(), nullptr, pCall, OnInhibited, this, ANSWER_USEC);
    }
    return iResult;
}

void SleepWatch::Private::TakeInhibitor(sd_bus_message* pReply) {
    bAsked = false;
    if (const char* szSender = sd_bus_message_get_sender(pReply)) {
        strLogind = szSender; // also of a refusal: its signals come all the same
    }
    if (const sd_bus_error* pError = sd_bus_message_get_error(pReply)) {
        if (!SaysNobodyThere(pError) && sd_bus_is_open(bus.get()) > 0) {
            Note(std::string("logind does not let sleep be held up: ") +
                 (pError->message != nullptr ? pError->message : pError->name));
        }
        return;
    }
    int iFd = -1;
    const int iResult = sd_bus_message_read(pReply, "h", &iFd);
    inhibitor = UniqueFd(iResult < 0 ? -1 : fcntl(iFd, F_DUPFD_CLOEXEC, 0)); // the message keeps its own
    if (!inhibitor) {
        Note(std::string("logind's answer is of no use: ") + strerror(iResult < 0 ? -iResult : errno));
        return;
    }
    strLastProblem.clear();
}

void SleepWatch::Private::Sleep(bool bSleeping) {
    bAsleep = bSleeping;
    if (bSleeping) {
        Call(callbacks.onSleep, "going to sleep");
        inhibitor = UniqueFd();
    } else {
        Inhibit(); // first: the machine may be sent to sleep again at once
        Call(callbacks.onWake, "waking up");
    }
}

void SleepWatch::Private::Call(const std::function<void()>& callback, const char* szWhat) {
    try {
        if (callback) {
            callback();
        }
    } catch (const std::exception& exception) {
        Note(std::string(szWhat) + ": " + exception.what());
    }
}

void SleepWatch::Private::Note(const std::string& strReason) {
    if (std::exchange(strLastProblem, strReason) != strReason) {
        strProblem = Escaped(strReason);
    }
}

int SleepWatch::Private::OnLost(sd_bus_message* /*pMessage*/, void* pPrivate, sd_bus_error* /*pError*/) {
    static_cast<Private*>(pPrivate)->Disconnect();
    return 0;
}

int SleepWatch::Private::OnNameOwner(sd_bus_message* pMessage, void* pPrivate, sd_bus_error* /*pError*/) {
    Private& self = *static_cast<Private*>(pPrivate);
    const char* szName = nullptr;
    const char* szOld = nullptr;
    const char* szNew = nullptr;
    if (!IsFrom(pMessage, BUS) || sd_bus_message_read(pMessage, "sss", &szName, &szOld, &szNew) < 0 ||
        strcmp(szName, LOGIND) != 0) {
        return 0;
    }
    self.strLogind = szNew;
    self.inhibitor = UniqueFd(); // the one before this one may not have told the new one of it
    self.bAsleep = false;
    if (*szNew != '\0') {
        self.Inhibit();
    }
    return 0;
}

int SleepWatch::Private::OnPrepare(sd_bus_message* pMessage, void* pPrivate, sd_bus_error* /*pError*/) {
    Private& self = *static_cast<Private*>(pPrivate);
    int iSleeping = 0;
    if (IsFrom(pMessage, self.strLogind) && sd_bus_message_read(pMessage, "b", &iSleeping) >= 0) {
        self.Sleep(iSleeping != 0);
    }
    return 0;
}

int SleepWatch::Private::OnInhibited(sd_bus_message* pMessage, void* pPrivate, sd_bus_error* /*pError*/) {
    static_cast<Private*>(pPrivate)->TakeInhibitor(pMessage);
    return 0;
}

SleepWatch::SleepWatch(sd_event* pEvent, Callbacks callbacks) : _p(std::make_unique<Private>()) {
    _p->event.reset(sd_event_ref(pEvent));
    _p->callbacks = std::move(callbacks);
    _p->Connect();
}

SleepWatch::~SleepWatch() = default;

void SleepWatch::Retry() {
    if (!_p->bus) {
        _p->Connect();
    } else {
        _p->Inhibit();
    }
}

bool SleepWatch::HoldsSleep() const {
    return static_cast<bool>(_p->inhibitor);
}

std::string SleepWatch::TakeProblem() {
    return std::exchange(_p->strProblem, std::string());
}

} // namespace VUKO::VUKOCrond::Service
