/// Two documents, separated by the first byte 0xFF.

#include <algorithm>

#include "crond/utils.h"
#include "fuzz/invariants.h"

using VUKO::VUKOCrond::isIdenticalJSON;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t uSize) {
    const std::uint8_t* const pEnd = pData + uSize;
    const std::uint8_t* const pSplit = std::find(pData, pEnd, std::uint8_t{0xFF});
    Json::Value jsLeft;
    Json::Value jsRight;
    if (pSplit == pEnd || !fuzz::ReadJson(pData, static_cast<std::size_t>(pSplit - pData), jsLeft) ||
        !fuzz::ReadJson(pSplit + 1, static_cast<std::size_t>(pEnd - pSplit - 1), jsRight)) {
        return 0;
    }
    fuzz::Require(isIdenticalJSON(jsLeft, jsLeft) && isIdenticalJSON(jsRight, jsRight), "a value is like itself");
    if (jsLeft == jsRight) {
        fuzz::Require(isIdenticalJSON(jsLeft, jsRight), "equal values are identical");
    }
    if (jsLeft.isObject() && jsRight.isObject() && isIdenticalJSON(jsLeft, jsRight)) {
        std::string strNew = "new";
        while (jsLeft.isMember(strNew) || jsRight.isMember(strNew)) {
            strNew += '+';
        }
        Json::Value jsMore = jsRight;
        jsMore[strNew] = 1;
        fuzz::Require(isIdenticalJSON(jsLeft, jsMore), "members of the right alone do not count");
        Json::Value jsNull = jsLeft;
        jsNull[strNew] = Json::Value();
        fuzz::Require(isIdenticalJSON(jsNull, jsRight), "null is like a missing member");
    }
    if (jsLeft.isArray() && jsRight.isArray() && jsLeft.size() != jsRight.size()) {
        fuzz::Require(!isIdenticalJSON(jsLeft, jsRight), "arrays of different sizes differ");
    }
    return 0;
}
