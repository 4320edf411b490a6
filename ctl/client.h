#pragma once

#include <json/json.h>

#include <string>

namespace VUKO::VUKOCrond::Ctl {

/// The service, as the tool sees it: one connection to its control socket.
class Client {
public:
    /// @param strRoot  the folder of --root; empty for none.
    explicit Client(const std::string& strRoot);
    ~Client();
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    /// Asks for a verb; further members of the request are in `jsMembers`. Where that is too much for a second, it is
    /// asked again a little later.
    ///
    /// @return the result. @throws ToolError with the status that belongs to the service's error code, or
    ///         EXIT_UNREACHABLE.
    Json::Value Ask(const std::string& strVerb, Json::Value jsMembers = Json::Value(Json::objectValue));
    /// The two halves of Ask(), for whoever has something else to do meanwhile: the descriptor becomes readable when
    /// the reply is there.
    void Send(const std::string& strVerb, Json::Value jsMembers);
    Json::Value Receive();
    int Descriptor() const { return _iFd; }
    /// After so long without a reply the service counts as one that cannot be reached; a minute, where nobody says so.
    void SetPatience(int iSeconds);
    /// All pages of a list, one after the other.
    Json::Value AskAll(const std::string& strVerb, Json::Value jsMembers = Json::Value(Json::objectValue));

private:
    [[noreturn]] void Unreachable(int iErrno) const;

    std::string _strPath;
    int _iFd = -1;
    int _iSendErrno = 0;
};

} // namespace VUKO::VUKOCrond::Ctl
