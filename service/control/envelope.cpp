#include "service/control/envelope.h"

#include <exception>
#include <memory>

#include "service/control/protocol.h"
#include "service/jsontext.h"

namespace VUKO::VUKOCrond::Service {

namespace {

std::unique_ptr<Json::CharReader> NewReader() {
    Json::CharReaderBuilder builder;
    Json::CharReaderBuilder::strictMode(&builder.settings_);
    builder["stackLimit"] = Protocol::DEPTH_MAX;
    builder["skipBom"] = false;
    return std::unique_ptr<Json::CharReader>(builder.newCharReader());
}

bool ParseStrictly(std::string_view strText, Json::Value& jsDocument) {
    if (!HasStrictForm(strText)) {
        return false;
    }
    try {
        return NewReader()->parse(strText.data(), strText.data() + strText.size(), &jsDocument, nullptr);
    } catch (const Json::Exception&) {
        return false; // nested too deep
    }
}

std::string Text(const Json::Value& jsValue) {
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    builder["emitUTF8"] = false; // so that a terminal shows what a stranger's text is and does not obey it
    return Json::writeString(builder, jsValue);
}

Json::Value NewReply(const Json::Value& jsId, bool bOk) {
    Json::Value jsReply(Json::objectValue);
    jsReply[Protocol::KEY_VERSION] = Protocol::VERSION;
    jsReply[Protocol::KEY_ID] = jsId;
    jsReply[Protocol::KEY_OK] = bOk;
    return jsReply;
}

} // namespace

RequestEnvelope::RequestEnvelope(std::string_view strText) {
    try {
        Parse(strText);
    } catch (const ControlError& error) {
        _strCode = error.Code();
        _strMessage = error.what();
    }
}

void RequestEnvelope::Parse(std::string_view strText) {
    if (!ParseStrictly(strText, _jsDocument)) {
        throw ControlError(Protocol::CODE_BAD_JSON, "the request is not JSON");
    }
    if (!_jsDocument.isObject()) {
        throw ControlError(Protocol::CODE_BAD_REQUEST, "the request is not an object");
    }
    const Json::Value& jsDocument = _jsDocument; // asked as a constant, no member comes into being
    if (Text(jsDocument[Protocol::KEY_ID]).size() > Protocol::ID_BYTES_MAX) {
        throw ControlError(Protocol::CODE_BAD_REQUEST, "\"id\" is too long");
    }
    _jsId = jsDocument[Protocol::KEY_ID];
    const Json::Value& jsVersion = jsDocument[Protocol::KEY_VERSION];
    if (jsVersion.type() != Json::intValue || jsVersion != Json::Value(Protocol::VERSION)) {
        throw ControlError(Protocol::CODE_BAD_VERSION, "\"version\" is to be " + std::to_string(Protocol::VERSION));
    }
    if (!jsDocument[Protocol::KEY_VERB].isString()) {
        throw ControlError(Protocol::CODE_BAD_REQUEST, "\"verb\" is missing or no text");
    }
}

void RequestEnvelope::Check() const {
    if (!_strCode.empty()) {
        throw ControlError(_strCode, _strMessage);
    }
}

std::string ResultText(const Json::Value& jsId, const Json::Value& jsResult) {
    Json::Value jsReply = NewReply(jsId, true);
    jsReply[Protocol::KEY_RESULT] = jsResult;
    return Text(jsReply);
}

std::string ErrorText(const Json::Value& jsId, const std::string& strCode, const std::string& strMessage) {
    Json::Value jsReply = NewReply(jsId, false);
    jsReply[Protocol::KEY_ERROR][Protocol::KEY_CODE] = strCode;
    jsReply[Protocol::KEY_ERROR][Protocol::KEY_MESSAGE] = strMessage;
    return Text(jsReply);
}

} // namespace VUKO::VUKOCrond::Service
