#include "platform/linux/jsonreader.h"

#include <algorithm>
#include <memory>

#include "platform/linux/utf8.h"

namespace VUKO::PLATFORM {

namespace {

/// Blanks aside, no control character may stand in a JSON text; jsoncpp takes them in strings.
bool IsControlCharacter(char c) {
    return static_cast<unsigned char>(c) < 0x20 && c != '\t' && c != '\n' && c != '\r';
}

} // namespace

bool ReadJson(const std::string& strText, Json::Value& value) {
    if (!IsUtf8(strText) || std::any_of(strText.begin(), strText.end(), IsControlCharacter)) {
        return false;
    }
    Json::CharReaderBuilder builder;
    Json::CharReaderBuilder::strictMode(&builder.settings_);
    builder["strictRoot"] = false; // a document may be any value
    builder["skipBom"] = false;
    builder["stackLimit"] = JSON_DEPTH_MAX + 1; // the innermost value counts too
    const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    const char* const pBegin = strText.data();
    return reader->parse(pBegin, pBegin + strText.size(), &value, nullptr);
}

} // namespace VUKO::PLATFORM
