#pragma once

#include <string>

namespace VUKO::VUKOCrond::Ctl {

/// An SVG document that is being written: elements in the order in which they are painted. Lengths are pixels; texts
/// are plain and escaped here.
class SvgSheet {
public:
    void Rect(const char* szClass, double dX, double dY, double dWidth, double dHeight, const std::string& strTip = "",
              double dRound = 0);
    void Circle(const char* szClass, double dX, double dY, double dRadius, const std::string& strTip = "");
    /// A square on its corner.
    void Diamond(const char* szClass, double dX, double dY, double dRadius, const std::string& strTip = "");
    void Line(const char* szClass, double dX1, double dY1, double dX2, double dY2);
    void Text(const char* szClass, double dX, double dY, const std::string& strText);
    /// What follows belongs together and has this tooltip, up to the next EndGroup().
    void BeginGroup(const char* szClass, const std::string& strTip);
    void EndGroup();

    /// The whole document, on a rectangle of the class "paper". @param strStyle  CSS, as it is to stand there
    std::string Document(double dWidth, double dHeight, const std::string& strTitle, const std::string& strDescription,
                         const std::string& strStyle) const;

private:
    void Element(const std::string& strTag, const char* szClass, const std::string& strTip);

    std::string _strBody;
};

} // namespace VUKO::VUKOCrond::Ctl
