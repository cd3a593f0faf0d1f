// String ids the code refers to by name.
#pragma once

namespace ids {
constexpr unsigned kNoMemory = 4097;           // "Not enough memory to complete operation"
constexpr unsigned kDisplayName = 4112;        // "Flairize"
constexpr unsigned kFirstEffectName = 4128;    // effect i is named 4128 + i
constexpr unsigned kProjectDamaged = 4608;
constexpr unsigned kPreviewNoMemory = 4609;
constexpr unsigned kFirstDirection = 8192;     // "Backward" .. "Reverse Cycle"
constexpr unsigned kLabelAmount = 4176;
constexpr unsigned kLabelNumber = 4183;
constexpr unsigned kLabelColors = 4185;
constexpr unsigned kLabelAngle = 4187;
constexpr unsigned kLabelSize = 4188;
constexpr unsigned kLabelRandomness = 4189;
}  // namespace ids
