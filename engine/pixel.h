// Pixel arithmetic shared by the effects.
#pragma once

#include <cstdint>

namespace px {

// Integer luminance: each term is the channel shifted right, added as signed
// integers; 0..253 (white gives 253).
inline int luminance(int b, int g, int r) {
    return (b >> 3) - (b >> 6) + (g >> 1) + (g >> 4) + (g >> 5) + (r >> 2) + (r >> 4) - (r >> 6) +
           (r >> 7);
}

// Alpha mix of a source channel s with an effect value v under alpha a.
inline std::uint8_t alphaMix(unsigned s, unsigned v, unsigned a) {
    return static_cast<std::uint8_t>((s * (255 - a) + v * a) / 255);
}

inline int clamp255(int v) { return v < 0 ? 0 : (v > 255 ? 255 : v); }

// COLORREF (red lowest) to the blue, green, red bytes a pixel stores.
inline std::uint8_t colourBlue(std::uint32_t c) { return static_cast<std::uint8_t>(c >> 16); }
inline std::uint8_t colourGreen(std::uint32_t c) { return static_cast<std::uint8_t>(c >> 8); }
inline std::uint8_t colourRed(std::uint32_t c) { return static_cast<std::uint8_t>(c); }

}  // namespace px
