#include "platform/linux/jsonreader.h"

#include <memory>

#include "platform/linux/jsontokens.h"
#include "platform/linux/utf8.h"

namespace VUKO::PLATFORM {

namespace {

Json::CharReaderBuilder StrictBuilder() {
    Json::CharReaderBuilder builder;
    Json::CharReaderBuilder::strictMode(&builder.settings_);
    builder["strictRoot"] = false; // a document may be any value
    builder["skipBom"] = false;
    builder["stackLimit"] = JSON_DEPTH_MAX + 1; // the innermost value counts too
    return builder;
}

} // namespace

bool ReadJson(const std::string& strText, Json::Value& value) {
    if (!IsUtf8(strText) || !HasStrictJsonTokens(strText)) {
        return false;
    }
    static const Json::CharReaderBuilder builder = StrictBuilder(); // its making takes as long as reading a small file
    const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    const char* const pBegin = strText.data();
    return reader->parse(pBegin, pBegin + strText.size(), &value, nullptr);
}

} // namespace VUKO::PLATFORM
