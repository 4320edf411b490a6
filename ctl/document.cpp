#include "ctl/document.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>

#include "ctl/textfile.h"
#include "platform/vukojson.h"
#include "service/definitions/jsonfault.h"
#include "service/uniquefd.h"

namespace VUKO::VUKOCrond::Ctl {

namespace {

using Service::UniqueFd;

/// The platform decides what a document is, and reads files only: it is given a copy in memory, so that what is told of
/// the text is told of what was read, and pipes can be read as well.
int JudgeText(const std::string& strText, Json::Value& jsValue) {
    const UniqueFd fdCopy(memfd_create("document", MFD_CLOEXEC));
    for (std::size_t uDone = 0; fdCopy && uDone < strText.size();) {
        const ssize_t iWritten = write(fdCopy.Get(), strText.data() + uDone, strText.size() - uDone);
        if (iWritten < 0 && errno != EINTR) {
            return errno;
        }
        uDone += iWritten < 0 ? 0 : static_cast<std::size_t>(iWritten);
    }
    errno = 0;
    return fdCopy && JSON::fromFile(jsValue, "/proc/self/fd/" + std::to_string(fdCopy.Get())) ? 0 : errno;
}

/// Reads once more with the JSON library itself, whose values know their places; the platform's need not.
void FindPlaces(Document& document) {
    const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
    const char* const pText = document.strText.data();
    Json::Value jsPlaced;
    if (reader->parse(pText, pText + document.strText.size(), &jsPlaced, nullptr)) {
        document.jsValue.swap(jsPlaced);
    }
}

} // namespace

Document ReadDocument(const std::string& strFile) {
    Document document;
    int iCode = ReadTextFile(strFile, document.strText);
    iCode = iCode != 0 ? iCode : JudgeText(document.strText, document.jsValue);
    if (iCode == 0) {
        FindPlaces(document);
    } else if (iCode == EBADMSG) {
        const Service::JsonFault fault = Service::FindJsonFault(document.strText);
        document.strReason = "is not JSON: " + Service::WhyNotJson(document.strText);
        document.strBareReason = "is not JSON: " + fault.strText;
        document.uLine = fault.uLine;
        document.uByteColumn = fault.uColumn;
    } else {
        document.strReason = document.strBareReason = std::string("cannot be read: ") + strerror(iCode);
        document.bDenied = iCode == EACCES || iCode == EPERM;
    }
    return document;
}

} // namespace VUKO::VUKOCrond::Ctl
