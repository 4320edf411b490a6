#include "ctl/client.h"

#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <map>
#include <memory>
#include <thread>
#include <utility>
#include <vector>

#include "ctl/toolerror.h"
#include "service/control/protocol.h"

namespace VUKO::VUKOCrond::Ctl {

namespace {

namespace Protocol = Service::Protocol;

ExitStatus StatusOf(const std::string& strCode) {
    static const std::map<std::string, ExitStatus> mapStatuses = {
        {"denied", EXIT_DENIED},         {"not-found", EXIT_WRONG},  {"ambiguous", EXIT_BAD_USAGE},
        {"bad-request", EXIT_BAD_USAGE}, {"refused", EXIT_WRONG},    {"failed", EXIT_WRONG},
        {"busy", EXIT_UNREACHABLE},      {"rate", EXIT_UNREACHABLE}, {"bad-version", EXIT_UNREACHABLE}};
    const auto it = mapStatuses.find(strCode);
    return it != mapStatuses.end() ? it->second : EXIT_WRONG;
}

/// What to do next about some errors, behind the service's own words.
std::string AdviceOn(const std::string& strCode) {
    return strCode == "not-found"   ? "; vukocronctl list shows those that there are"
           : strCode == "ambiguous" ? "; say which of them"
                                    : "";
}

Json::Value Parse(const char* pText, std::size_t uSize) {
    const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
    Json::Value jsReply;
    std::string strErrors;
    if (!reader->parse(pText, pText + uSize, &jsReply, &strErrors) || !jsReply.isObject()) {
        throw ToolError(EXIT_UNREACHABLE, "the service's reply cannot be understood");
    }
    return jsReply;
}

} // namespace

Client::Client(const std::string& strRoot) : _strPath(strRoot + Protocol::SOCKET_PATH) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    if (_strPath.size() >= sizeof(address.sun_path)) {
        Unreachable(ENAMETOOLONG);
    }
    _strPath.copy(address.sun_path, sizeof(address.sun_path) - 1);
    _iFd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    // A service that hangs must not hold up whoever looks after it, as a script does. It answers at once, but for what
    // is waited for with poll().
    constexpr int PATIENCE_SEC = 60;
    SetPatience(PATIENCE_SEC);
    if (_iFd < 0 || connect(_iFd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
        Unreachable(errno);
    }
}

Client::~Client() {
    if (_iFd >= 0) {
        close(_iFd);
    }
}

Json::Value Client::Ask(const std::string& strVerb, Json::Value jsMembers) {
    // A service that is asked too much in a second lets its asker rest, and what is about many jobs is many requests.
    // The others of the same account may go on asking, so there is an end to it.
    constexpr int ATTEMPTS = 100;
    constexpr std::chrono::milliseconds REST{100};
    for (int iAttempt = 1;; ++iAttempt) {
        try {
            Send(strVerb, jsMembers);
            return Receive();
        } catch (const ToolError& error) {
            if (error.Code() != Protocol::CODE_RATE || iAttempt == ATTEMPTS) {
                throw;
            }
        }
        std::this_thread::sleep_for(REST);
    }
}

void Client::SetPatience(int iSeconds) {
    const timeval patience = {iSeconds, 0};
    setsockopt(_iFd, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof(patience));
    setsockopt(_iFd, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof(patience)); // holds for connect(), too
}

void Client::Send(const std::string& strVerb, Json::Value jsMembers) {
    jsMembers[Protocol::KEY_VERSION] = Protocol::VERSION;
    jsMembers[Protocol::KEY_VERB] = strVerb;
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    const std::string strRequest = Json::writeString(builder, jsMembers);
    // A service that refuses the connection for want of room says so before it closes it: its word is read first.
    _iSendErrno = send(_iFd, strRequest.data(), strRequest.size(), MSG_NOSIGNAL) < 0 ? errno : 0;
}

Json::Value Client::Receive() {
    std::vector<char> vecReply(Protocol::REPLY_BYTES_MAX);
    const ssize_t iRead = recv(_iFd, vecReply.data(), vecReply.size(), 0);
    if (iRead <= 0) {
        Unreachable(_iSendErrno != 0 ? _iSendErrno : iRead < 0 ? errno : ECONNRESET);
    }
    const Json::Value jsReply = Parse(vecReply.data(), static_cast<std::size_t>(iRead));
    if (!jsReply[Protocol::KEY_OK].asBool()) {
        const Json::Value& jsError = jsReply[Protocol::KEY_ERROR];
        const std::string strCode = jsError[Protocol::KEY_CODE].asString();
        throw ToolError(StatusOf(strCode), jsError[Protocol::KEY_MESSAGE].asString() + AdviceOn(strCode), strCode);
    }
    return jsReply[Protocol::KEY_RESULT];
}

Json::Value Client::AskAll(const std::string& strVerb, Json::Value jsMembers) {
    Json::Value jsItems(Json::arrayValue);
    jsMembers["from"] = 0;
    for (;;) {
        const Json::Value jsPage = Ask(strVerb, jsMembers);
        for (const Json::Value& jsItem : jsPage["items"]) {
            jsItems.append(jsItem);
        }
        if (jsPage["next"].isNull()) {
            return jsItems;
        }
        jsMembers["from"] = jsPage["next"];
    }
}

void Client::Unreachable(int iErrno) const {
    if (iErrno == EAGAIN) {
        throw ToolError(EXIT_UNREACHABLE, "the service does not answer at " + _strPath);
    }
    const bool bAbsent = iErrno == ENOENT || iErrno == ECONNREFUSED;
    // Of a service below a root folder, and where no service manager runs, nobody but its starter knows how.
    const bool bManaged = _strPath == Protocol::SOCKET_PATH && access("/run/systemd/system", F_OK) == 0;
    throw ToolError(iErrno == EACCES || iErrno == EPERM ? EXIT_DENIED : EXIT_UNREACHABLE,
                    "the service cannot be reached at " + _strPath + ": " + std::strerror(iErrno) +
                        (!bAbsent   ? ""
                         : bManaged ? " (is vukocrond running? See systemctl status vukocrond, and start it by "
                                      "systemctl start vukocrond)"
                                    : " (is vukocrond running?)"));
}

} // namespace VUKO::VUKOCrond::Ctl
