// One picture in all three source forms, for row-effect tests that compare the
// palette, 24-bit and 32-bit paths.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <tuple>
#include <vector>

#include "tests/picture_support.h"

namespace testpic {

// The picture of `colour(x, y)` at 8, 24 or 32 bits (alpha only at 32). The
// 8-bit form lists its distinct colours (at most 256) from index 255 downwards,
// so an index byte never equals the colour it stands for by accident.
inline HGLOBAL makeColours(int width, int height, int bits, const std::function<Bgra(int, int)>& colour) {
    if (bits != 8) return make(width, height, bits, colour);
    std::map<std::tuple<int, int, int>, int> index;
    std::vector<Bgra> table(256, Bgra{1, 2, 3, 0});
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            const Bgra c = colour(x, y);
            const auto key = std::make_tuple(c.b, c.g, c.r);
            if (index.count(key)) continue;
            if (index.size() == 256) return nullptr;  // more colours than a palette holds
            const int i = 255 - int(index.size());
            index[key] = i;
            table[std::size_t(i)] = c;
        }
    return make(
        width, height, 8,
        [&](int x, int y) {
            const Bgra c = colour(x, y);
            return Bgra{std::uint8_t(index.at(std::make_tuple(c.b, c.g, c.r))), 0, 0, 0};
        },
        table);
}

// The shared test pattern with alpha 255, so all three forms show the same colours.
inline Bgra opaquePattern(int x, int y) {
    Bgra c = pattern(x, y);
    c.a = 255;
    return c;
}

inline Bgra grey(int v, int alpha = 255) {
    return Bgra{std::uint8_t(v), std::uint8_t(v), std::uint8_t(v), std::uint8_t(alpha)};
}

// What a 32-bit row effect writes for effect value v over source pixel s.
inline Bgra alphaMixed(const Bgra& s, const Bgra& v) {
    auto mix = [&](int sc, int vc) { return std::uint8_t((sc * (255 - s.a) + vc * s.a) / 255); };
    return Bgra{mix(s.b, v.b), mix(s.g, v.g), mix(s.r, v.r), s.a};
}

// The whole result (header and pixels) as bytes.
inline std::vector<std::uint8_t> resultBytes(HGLOBAL picture) {
    if (!picture) return {};
    View v(picture);
    return v.bytes();
}

// Renders `effect` twice on the 8-, 24- and 32-bit forms of one picture. Gives
// each form's blue, green, red bytes in row order; `repeatable` tells whether
// both renders of every form came out byte for byte the same.
struct FormResults {
    std::vector<std::uint8_t> bgr[3];
    bool repeatable = true;
};
inline FormResults renderForms(unsigned effect, int width, int height,
                               const std::function<Bgra(int, int)>& colour, std::uint32_t progress,
                               std::uint16_t p1 = 0, std::uint32_t effectColour = 0) {
    FormResults results;
    const int bits[3] = {8, 24, 32};
    for (int i = 0; i < 3; ++i) {
        Owned src(makeColours(width, height, bits[i], colour));
        Owned first(runFilter(effect, src, progress, p1, 0, 0, effectColour));
        Owned second(runFilter(effect, src, progress, p1, 0, 0, effectColour));
        results.repeatable = results.repeatable && first.h && resultBytes(first) == resultBytes(second);
        if (!first.h) continue;
        View v(first);
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x) {
                const Bgra p = v.at(x, y);
                results.bgr[i].insert(results.bgr[i].end(), {p.b, p.g, p.r});
            }
    }
    return results;
}

}  // namespace testpic
