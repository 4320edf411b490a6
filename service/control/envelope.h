#pragma once

#include <json/json.h>

#include <stdexcept>
#include <string>
#include <string_view>

namespace VUKO::VUKOCrond::Service {

/// Ends a request with an error reply: a stable word for programs, and a text for people.
class ControlError : public std::runtime_error {
public:
    ControlError(std::string strCode, const std::string& strMessage)
        : std::runtime_error(strMessage), _strCode(std::move(strCode)) {}

    const std::string& Code() const { return _strCode; }

private:
    std::string _strCode;
};

/// A request as it came in, before its verb is looked at. Parsing is strict: what two programs could understand
/// differently is no request.
class RequestEnvelope {
public:
    /// The document is to be asked for with Check().
    explicit RequestEnvelope(std::string_view strText);

    /// @throws ControlError when there is no request in it that anybody could answer.
    void Check() const;

    /// The sender's mark, to be given back with the reply; null as long as none could be made out.
    const Json::Value& Id() const { return _jsId; }
    /// After Check(): an object with a "verb".
    const Json::Value& Document() const { return _jsDocument; }

private:
    void Parse(std::string_view strText);

    Json::Value _jsDocument;
    Json::Value _jsId;
    std::string _strCode; ///< empty: it is good
    std::string _strMessage;
};

/// Reply texts, ASCII alone.
std::string ResultText(const Json::Value& jsId, const Json::Value& jsResult);
std::string ErrorText(const Json::Value& jsId, const std::string& strCode, const std::string& strMessage);

} // namespace VUKO::VUKOCrond::Service
