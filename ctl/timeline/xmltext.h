#pragma once

#include <string>
#include <string_view>

namespace VUKO::VUKOCrond::Ctl {

/// A text as it may stand in an XML document, in an element or in a quoted attribute: its characters mean nothing there
/// but themselves. What XML cannot hold at all, as control characters or bytes that are no UTF-8, becomes U+FFFD.
std::string XmlText(std::string_view strText);

/// A length with one digit behind the point, whatever the locale.
std::string XmlNumber(double dValue);

} // namespace VUKO::VUKOCrond::Ctl
