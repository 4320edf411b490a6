#include "platform/linux/utf8.h"

namespace VUKO::PLATFORM {

namespace {

/// One row of the table of well-formed sequences: what the first and the second byte may be, and how many follow them.
struct Row {
    unsigned char uFirstLow, uFirstHigh, uSecondLow, uSecondHigh;
    std::size_t uLength;
};

constexpr Row ROWS[] = {
    {0xC2, 0xDF, 0x80, 0xBF, 2}, {0xE0, 0xE0, 0xA0, 0xBF, 3}, {0xE1, 0xEC, 0x80, 0xBF, 3}, {0xED, 0xED, 0x80, 0x9F, 3},
    {0xEE, 0xEF, 0x80, 0xBF, 3}, {0xF0, 0xF0, 0x90, 0xBF, 4}, {0xF1, 0xF3, 0x80, 0xBF, 4}, {0xF4, 0xF4, 0x80, 0x8F, 4},
};

bool Matches(const Row& row, std::string_view strText) {
    const auto Byte = [&](std::size_t uAt) { return static_cast<unsigned char>(strText[uAt]); };
    if (Byte(0) < row.uFirstLow || Byte(0) > row.uFirstHigh || strText.size() < row.uLength ||
        Byte(1) < row.uSecondLow || Byte(1) > row.uSecondHigh) {
        return false;
    }
    for (std::size_t uAt = 2; uAt < row.uLength; ++uAt) {
        if (Byte(uAt) < 0x80 || Byte(uAt) > 0xBF) {
            return false;
        }
    }
    return true;
}

} // namespace

std::size_t Utf8Length(std::string_view strText) {
    if (strText.empty()) {
        return 0;
    }
    if (static_cast<unsigned char>(strText[0]) < 0x80) {
        return 1;
    }
    for (const Row& row : ROWS) {
        if (Matches(row, strText)) {
            return row.uLength;
        }
    }
    return 0;
}

bool IsUtf8(std::string_view strText) {
    while (!strText.empty()) {
        const std::size_t uLength = Utf8Length(strText);
        if (uLength == 0) {
            return false;
        }
        strText.remove_prefix(uLength);
    }
    return true;
}

} // namespace VUKO::PLATFORM
