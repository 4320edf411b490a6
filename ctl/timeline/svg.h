#pragma once

#include <string>

#include "ctl/timeline/timeline.h"

namespace VUKO::VUKOCrond::Ctl {

/// Draws a timeline as an SVG document that holds all it needs: no scripts, no fonts, no references to anything else.
/// What is drawn has tooltips; collisions differ in colour and shape. It brings a background of its own, and is dark
/// where the viewer asks for that.
std::string TimelineSvg(const Timeline& timeline, const std::string& strZone);

} // namespace VUKO::VUKOCrond::Ctl
