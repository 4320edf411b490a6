#pragma once

namespace VUKO::VUKOCrond::Ctl {

/// How the classes of a timeline look. Where a viewer knows nothing of dark and light, it is light.
inline constexpr const char* TIMELINE_STYLE =
    R"(text { font-family: "DejaVu Sans", Verdana, Arial, sans-serif; font-size: 12px; }
.heading { font-size: 17px; font-weight: bold; }
.hour, .name { font-size: 11px; }
.hour { text-anchor: middle; }
.day, .head { font-weight: bold; }
.mostlabel { font-size: 11px; text-anchor: end; }
text { fill: #1f2a37; }
.soft, .hour, .mostlabel { fill: #57636f; }
.paper { fill: #ffffff; stroke: #d4dae1; }
.stripe { fill: #f3f5f8; }
.grid { stroke: #dfe4ea; }
.midnight, .axis { stroke: #8b97a5; }
.start { fill: #1a5fb4; }
.run { fill: #8fbcf0; }
.often { fill: #b8c2cd; }
.load { fill: #7c8fa5; }
.collision { fill: #d1242f; stroke: #ffffff; }
.tie { stroke: #d1242f; stroke-opacity: 0.4; }
.change { stroke: #9a6700; stroke-dasharray: 4 3; }
.changed { fill: #7d5300; font-size: 11px; }
@media (prefers-color-scheme: dark) {
text { fill: #e4e9ef; }
.soft, .hour, .mostlabel { fill: #a3afbc; }
.paper { fill: #14191f; stroke: #343d48; }
.stripe { fill: #1b222a; }
.grid { stroke: #2a333d; }
.midnight, .axis { stroke: #6c7886; }
.start { fill: #6cb0ff; }
.run { fill: #2d5d96; }
.often { fill: #4c5866; }
.load { fill: #7488a0; }
.collision { fill: #ff6b6b; stroke: #14191f; }
.tie { stroke: #ff6b6b; }
.change { stroke: #d9a441; }
.changed { fill: #e0b457; }
}
)";

} // namespace VUKO::VUKOCrond::Ctl
