#include "ctl/timeline/svgsheet.h"

#include <initializer_list>
#include <utility>

#include "ctl/timeline/xmltext.h"

namespace VUKO::VUKOCrond::Ctl {

namespace {

std::string Tag(const char* szName, std::initializer_list<std::pair<const char*, double>> lstNumbers) {
    std::string strTag = szName;
    for (const auto& [szAttribute, dValue] : lstNumbers) {
        strTag += std::string(" ") + szAttribute + "=\"" + XmlNumber(dValue) + "\"";
    }
    return strTag;
}

std::string Title(const std::string& strText) {
    return "<title>" + XmlText(strText) + "</title>";
}

} // namespace

void SvgSheet::Element(const std::string& strTag, const char* szClass, const std::string& strTip) {
    _strBody += "<" + strTag + " class=\"" + szClass + "\"";
    const std::string strName = strTag.substr(0, strTag.find(' '));
    _strBody += strTip.empty() ? "/>\n" : ">" + Title(strTip) + "</" + strName + ">\n";
}

void SvgSheet::Rect(const char* szClass, double dX, double dY, double dWidth, double dHeight, const std::string& strTip,
                    double dRound) {
    Element(dRound > 0 ? Tag("rect", {{"x", dX}, {"y", dY}, {"width", dWidth}, {"height", dHeight}, {"rx", dRound}})
                       : Tag("rect", {{"x", dX}, {"y", dY}, {"width", dWidth}, {"height", dHeight}}),
            szClass, strTip);
}

void SvgSheet::Circle(const char* szClass, double dX, double dY, double dRadius, const std::string& strTip) {
    Element(Tag("circle", {{"cx", dX}, {"cy", dY}, {"r", dRadius}}), szClass, strTip);
}

void SvgSheet::Diamond(const char* szClass, double dX, double dY, double dRadius, const std::string& strTip) {
    const auto point = [](double dPointX, double dPointY) { return XmlNumber(dPointX) + " " + XmlNumber(dPointY); };
    Element("path d=\"M" + point(dX, dY - dRadius) + "L" + point(dX + dRadius, dY) + "L" + point(dX, dY + dRadius) +
                "L" + point(dX - dRadius, dY) + "Z\"",
            szClass, strTip);
}

void SvgSheet::Line(const char* szClass, double dX1, double dY1, double dX2, double dY2) {
    Element(Tag("line", {{"x1", dX1}, {"y1", dY1}, {"x2", dX2}, {"y2", dY2}}), szClass, "");
}

void SvgSheet::Text(const char* szClass, double dX, double dY, const std::string& strText) {
    _strBody +=
        "<" + Tag("text", {{"x", dX}, {"y", dY}}) + " class=\"" + szClass + "\">" + XmlText(strText) + "</text>\n";
}

void SvgSheet::BeginGroup(const char* szClass, const std::string& strTip) {
    _strBody += std::string("<g class=\"") + szClass + "\">" + Title(strTip) + "\n";
}

void SvgSheet::EndGroup() {
    _strBody += "</g>\n";
}

std::string SvgSheet::Document(double dWidth, double dHeight, const std::string& strTitle,
                               const std::string& strDescription, const std::string& strStyle) const {
    const std::string strWidth = XmlNumber(dWidth);
    const std::string strHeight = XmlNumber(dHeight);
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
           "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" +
           strWidth + "\" height=\"" + strHeight + "\" viewBox=\"0 0 " + strWidth + " " + strHeight +
           "\" role=\"img\" aria-labelledby=\"title desc\">\n<title id=\"title\">" + XmlText(strTitle) +
           "</title>\n<desc id=\"desc\">" + XmlText(strDescription) + "</desc>\n<style>\n" + strStyle +
           "</style>\n<rect class=\"paper\" width=\"100%\" height=\"100%\"/>\n" + _strBody + "</svg>\n";
}

} // namespace VUKO::VUKOCrond::Ctl
