#include "platform/vukojson.h"

#include <cstddef>
#include <exception>
#include <new>

#include "platform/linux/jsonreader.h"
#include "platform/linux/lasterror.h"
#include "platform/linux/replacefile.h"
#include "platform/linux/utf8.h"
#include "platform/linux/wholefile.h"

namespace VUKO {
namespace JSON {

namespace {

constexpr std::size_t FILE_SIZE_MAX = std::size_t{4} << 20;

std::string Write(const Json::Value& value, const char* szIndentation, bool bUtf8) {
    Json::StreamWriterBuilder builder;
    builder["commentStyle"] = "None";
    builder["indentation"] = szIndentation;
    builder["emitUTF8"] = bUtf8;
    return Json::writeString(builder, value);
}

/// The steps of fromFile(): 0, or the errno value of the failure.
int Read(const std::string& strPath, Json::Value& value) {
    if (strPath.find('\0') != std::string::npos) {
        return EINVAL;
    }
    std::string strText;
    if (const int iCode = PLATFORM::ReadWholeFile(strPath, FILE_SIZE_MAX, strText); iCode != 0) {
        return iCode;
    }
    Json::Value valueRead;
    if (!PLATFORM::ReadJson(strText, valueRead)) {
        return EBADMSG;
    }
    value.swap(valueRead);
    return 0;
}

/// The text of a file. What could not be read back is not written: texts that are no UTF-8, infinite numbers, and what
/// is nested too deep or too large.
bool MakeFileText(const Json::Value& value, std::string& strText) {
    strText = Write(value, "  ", true) + "\n";
    Json::Value valueRead;
    if (strText.size() > FILE_SIZE_MAX) {
        VUKO_SET_ERROR(EFBIG);
        return false;
    }
    if (!PLATFORM::ReadJson(strText, valueRead)) {
        VUKO_SET_ERROR(EBADMSG);
        return false;
    }
    return true;
}

} // namespace

bool fromFile(Json::Value& value, const std::string& path) {
    PLATFORM::ErrnoKeeper keeper;
    int iCode = 0;
    try {
        iCode = Read(path, value);
    } catch (const std::bad_alloc&) {
        iCode = ENOMEM;
    } catch (const std::exception&) {
        iCode = EBADMSG;
    }
    if (iCode != 0) {
        VUKO_SET_ERROR(iCode);
        keeper.LetGo();
    }
    return iCode == 0;
}

bool toFile(const Json::Value& value, const std::string& path, bool durable) {
    PLATFORM::ErrnoKeeper keeper;
    bool bDone = false;
    try {
        std::string strText;
        bDone = MakeFileText(value, strText) && PLATFORM::ReplaceFile(path, strText, durable);
    } catch (const std::bad_alloc&) {
        VUKO_SET_ERROR(ENOMEM);
    } catch (const std::exception&) {
        VUKO_SET_ERROR(EBADMSG);
    }
    if (!bDone) {
        keeper.LetGo();
    }
    return bDone;
}

std::string toString(const Json::Value& value) {
    const PLATFORM::ErrnoKeeper keeper;
    std::string strText = Write(value, "", true);
    return PLATFORM::IsUtf8(strText) ? strText : Write(value, "", false);
}

} // namespace JSON
} // namespace VUKO
