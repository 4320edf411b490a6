#include "platform/vukoutils.h"

#include <iterator>
#include <utility>

namespace VUKOUtils {

void StringExplode(std::vector<std::string>& out, const std::string& text, const char* delimiters) {
    const char* const szDelimiters = delimiters == nullptr ? "" : delimiters;
    // Gathered apart from `out`, whose growth would move `text` away if that is one of its elements.
    std::vector<std::string> vecPieces;
    std::size_t uStart = text.find_first_not_of(szDelimiters);
    while (uStart != std::string::npos) {
        const std::size_t uEnd = text.find_first_of(szDelimiters, uStart);
        vecPieces.push_back(text.substr(uStart, uEnd - uStart));
        uStart = text.find_first_not_of(szDelimiters, uEnd);
    }
    out.insert(out.end(), std::make_move_iterator(vecPieces.begin()), std::make_move_iterator(vecPieces.end()));
}

} // namespace VUKOUtils
