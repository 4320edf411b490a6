#pragma once

#include <istream>
#include <locale>
#include <optional>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

namespace unit {

/// What one field means, worked out slowly and in another way than the library does: with streams, and with the values
/// of each field written out one by one.
class PeriodOracle {
public:
    using Item = std::tuple<int, int, int>; ///< kind, from, to

    explicit PeriodOracle(char cField) : _cField(cField) {
        for (int iValue = FirstValue(); iValue <= LastValue(); ++iValue) {
            _vecValues.push_back(iValue);
        }
    }

    /// Reads one field; the result stays in the members.
    void Read(const std::string& strField) {
        bOk = true;
        vecItems.clear();
        strMessage.clear();
        std::istringstream stream(strField);
        for (std::string strItem; bOk && std::getline(stream, strItem, ',');) {
            if (!strItem.empty()) {
                ReadItem(strItem);
            }
        }
    }

    bool bOk = true;
    std::vector<Item> vecItems;
    std::string strMessage; ///< of the item that was refused; empty when it was refused silently

private:
    int FirstValue() const { return _cField == 'd' || _cField == 'm' ? 1 : 0; }

    int LastValue() const {
        switch (_cField) {
        case 'M':
            return 59;
        case 'h':
            return 23;
        case 'd':
            return 31;
        case 'm':
            return 12;
        default:
            return 6;
        }
    }

    bool Holds(int iValue) const {
        for (const int iOwn : _vecValues) {
            if (iOwn == iValue) {
                return true;
            }
        }
        return false;
    }

    static std::optional<int> Number(const std::string& strText) {
        std::istringstream stream(strText);
        stream.imbue(std::locale::classic());
        int iValue = 0;
        if (!(stream >> iValue)) {
            return std::nullopt;
        }
        char cLeft = 0;
        if (stream >> cLeft) { // skips blanks
            return std::nullopt;
        }
        return iValue;
    }

    void Refuse(const std::string& strWhy) {
        bOk = false;
        strMessage = strWhy;
    }

    void Accept(int iKind, int iFrom, int iTo, bool bInDomain) {
        if (bInDomain) {
            vecItems.emplace_back(iKind, iFrom, iTo);
        } else {
            Refuse("");
        }
    }

    void ReadItem(const std::string& strItem) {
        const bool bWhole = strItem[0] == '~';
        if (bWhole) {
            Accept(1, _vecValues.front(), _cField == 'd' ? 28 : _vecValues.back(), true);
        } else if (strItem[0] == '*') {
            Accept(2, -1, -1, true);
        } else if (strItem.find('~') == std::string::npos) {
            if (const std::optional<int> value = Number(strItem)) {
                Accept(0, *value, -1, Holds(*value));
            } else {
                Refuse("<3>cronjob:338 " + strItem + " is not a valid number");
            }
        } else {
            ReadRange(strItem);
        }
    }

    void ReadRange(const std::string& strItem) {
        std::vector<std::string> vecParts;
        std::istringstream stream(strItem);
        for (std::string strPart; std::getline(stream, strPart, '~');) {
            if (!strPart.empty()) {
                vecParts.push_back(strPart);
            }
        }
        if (vecParts.size() != 2) {
            return Refuse("");
        }
        const std::optional<int> from = Number(vecParts[0]);
        const std::optional<int> to = Number(vecParts[1]);
        if (!from) {
            Refuse("<3>cronjob:352 " + vecParts[0] + " is not a valid number");
        } else if (!to) {
            Refuse("<3>cronjob:356 " + vecParts[1] + " is not a valid number");
        } else if (*from > *to) {
            Refuse("<3>cronjob:360 range.from[" + std::to_string(*from) + "] cannot greater than range.to[" +
                   std::to_string(*to) + "]");
        } else {
            Accept(1, *from, *to, Holds(*from) && Holds(*to));
        }
    }

    char _cField;
    std::vector<int> _vecValues;
};

} // namespace unit
