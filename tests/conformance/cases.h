// The rows of the conformance table and the source pictures they render,
// made from a seeded generator so the table needs no picture files. Plain C++
// with no dependencies: the Wine test host and the cross builds use it too.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace conformance {

enum class Source { Palette256, PaletteShort, Rgb24, Alpha0, Alpha255, AlphaMixed };
constexpr Source kSources[] = {Source::Palette256, Source::PaletteShort, Source::Rgb24,
                               Source::Alpha0,     Source::Alpha255,     Source::AlphaMixed};
inline const char* sourceName(Source s) {
    static const char* const names[] = {"pal256", "pal5", "rgb24", "alpha0", "alpha255", "alphamix"};
    return names[int(s)];
}
inline int sourceBits(Source s) { return s == Source::Palette256 || s == Source::PaletteShort ? 8 : s == Source::Rgb24 ? 24 : 32; }

struct Size {
    int width, height;
};
// 4 x 3 is an even width (mirrored halves meet without a middle column);
// 1538 x 3 has rows longer than the blocks of 128, 256 and 512 pixels that
// effects work their rows in, and an even width past Kaleidoscope's runs of
// five mirrored pixels.
constexpr Size kSizes[] = {{1, 1}, {2, 1}, {1, 7}, {4, 3}, {7, 5}, {67, 45}, {333, 199}, {1538, 3}};

// Slider sets: the effect's defaults; low values; high values, P1 and P3 beyond
// 255 so that they clamp.
enum class Params { Defaults, Low, High };
constexpr Params kParams[] = {Params::Defaults, Params::Low, Params::High};
inline const char* paramsName(Params p) {
    static const char* const names[] = {"defaults", "low", "high"};
    return names[int(p)];
}
inline void sliders(Params p, const std::uint16_t defaults[3], std::uint16_t out[3]) {
    static const std::uint16_t low[3] = {1, 40, 0}, high[3] = {300, 247, 65535};
    const std::uint16_t* v = p == Params::Defaults ? defaults : p == Params::Low ? low : high;
    for (int k = 0; k < 3; ++k) out[k] = v[k];
}

constexpr std::uint32_t kProgress[] = {0, 1, 8191, 16384};
constexpr std::uint32_t kColours[] = {0x00000000, 0x0030A0E0};   // COLORREF: red lowest

// One row of the table: an effect rendered on one source with one setting,
// either fully (the filter, then the progress mix for effects that fade in) or
// the filter alone.
struct Case {
    unsigned effect;
    Source source;
    Size size;
    Params params;
    std::uint32_t progress;
    unsigned colour;   // index into kColours
    bool filterOnly;
};

// The row's text in the table, without the effect (each effect has its own file).
inline std::string key(const Case& c) {
    return std::string(sourceName(c.source)) + " " + std::to_string(c.size.width) + "x" + std::to_string(c.size.height) +
           " " + paramsName(c.params) + " " + std::to_string(c.progress) + " c" + std::to_string(c.colour) + " " +
           (c.filterOnly ? "filter" : "full");
}

// Every row for one effect, in table order.
inline std::vector<Case> casesOf(unsigned effect) {
    std::vector<Case> cases;
    for (Source s : kSources)
        for (Size z : kSizes)
            for (Params p : kParams)
                for (std::uint32_t progress : kProgress)
                    for (unsigned colour = 0; colour < 2; ++colour)
                        for (bool filterOnly : {false, true}) cases.push_back({effect, s, z, p, progress, colour, filterOnly});
    return cases;
}

// A well-mixed 32-bit hash of three values (seeded pixels).
inline std::uint32_t mix3(std::uint32_t a, std::uint32_t b, std::uint32_t c) {
    std::uint32_t h = a * 0x9E3779B1u ^ (b + 0x7F4A7C15u) * 0x85EBCA77u ^ (c + 0x165667B1u) * 0xC2B2AE3Du;
    h ^= h >> 15;
    h *= 0x2C1B3C6Du;
    h ^= h >> 12;
    h *= 0x297A2D39u;
    h ^= h >> 15;
    return h;
}

// The colour of pixel (x, y) (y from the bottom) for picture `seed`: diagonal
// bands of gradient, of flat 6 x 5 blocks and of noise, so that effects meet
// smooth areas, hard edges and fine detail.
struct Bgr {
    std::uint8_t b, g, r;
};
inline Bgr pixelColour(int x, int y, int width, int height, std::uint32_t seed) {
    const int band = ((x / 6) + (y / 5)) % 3;
    if (band == 0)
        return Bgr{std::uint8_t(x * 255 / (width > 1 ? width - 1 : 1)), std::uint8_t(y * 255 / (height > 1 ? height - 1 : 1)),
                   std::uint8_t((x + 2 * y) * 7 + seed)};
    const std::uint32_t h = band == 1 ? mix3(std::uint32_t(x / 6), std::uint32_t(y / 5), seed) : mix3(std::uint32_t(x), std::uint32_t(y), seed + 1);
    return Bgr{std::uint8_t(h), std::uint8_t(h >> 8), std::uint8_t(h >> 16)};
}

// The source picture as a packed DIB: a 40-byte header, the colour table of
// 8-bit pictures, then the rows bottom first, each padded with zeros to 4 bytes.
inline std::vector<std::uint8_t> sourcePicture(Source s, Size z) {
    const int bits = sourceBits(s);
    const std::uint32_t seed = std::uint32_t(int(s) * 7919 + z.width * 131 + z.height);
    const std::uint32_t stride = ((std::uint32_t(z.width) * std::uint32_t(bits) + 31) / 32) * 4;
    const std::uint32_t entries = s == Source::Palette256 ? 256 : s == Source::PaletteShort ? 5 : 0;
    const std::uint32_t image = stride * std::uint32_t(z.height);
    std::vector<std::uint8_t> dib(40 + 4 * entries + image, 0);
    auto put32 = [&](std::size_t at, std::uint32_t v) { std::memcpy(&dib[at], &v, 4); };
    auto put16 = [&](std::size_t at, std::uint16_t v) { std::memcpy(&dib[at], &v, 2); };
    put32(0, 40);
    put32(4, std::uint32_t(z.width));
    put32(8, std::uint32_t(z.height));
    put16(12, 1);
    put16(14, std::uint16_t(bits));
    put32(20, image);
    put32(24, 2835);   // resolution fields travel with the header
    put32(28, 2835);
    put32(32, entries);
    for (std::uint32_t i = 0; i < entries; ++i) {
        const std::uint32_t h = mix3(i, 977, seed);
        std::uint8_t* e = &dib[40 + 4 * i];
        e[0] = std::uint8_t(h), e[1] = std::uint8_t(h >> 8), e[2] = std::uint8_t(h >> 16), e[3] = 0;
    }
    std::uint8_t* pixels = &dib[40 + 4 * entries];
    for (int y = 0; y < z.height; ++y)
        for (int x = 0; x < z.width; ++x) {
            std::uint8_t* p = pixels + std::size_t(y) * stride + std::size_t(x) * std::size_t(bits / 8);
            const Bgr c = pixelColour(x, y, z.width, z.height, seed);
            if (bits == 8) {
                // Indices follow the colour's brightness; a short table also meets
                // a few indices past its end, which read as black.
                const unsigned index = (c.b + 2u * c.g + c.r) / 4u;
                p[0] = std::uint8_t(entries == 256 ? index : (mix3(std::uint32_t(x), std::uint32_t(y), 5) % 16 == 0 ? 200 : index % entries));
                continue;
            }
            p[0] = c.b, p[1] = c.g, p[2] = c.r;
            if (bits == 32) {
                const std::uint32_t h = mix3(std::uint32_t(x), std::uint32_t(y), seed + 2);
                const unsigned kind = h % 4;   // mixed alpha: a quarter each 0 and 255
                p[3] = s == Source::Alpha0 ? 0 : s == Source::Alpha255 ? 255 : kind == 0 ? 0 : kind == 1 ? 255 : std::uint8_t(h >> 8);
            }
        }
    return dib;
}

// Bytes that the table hashes of a result: its header and pixel rows.
inline std::size_t resultBytes(const std::uint8_t* dib) {
    std::uint32_t headerSize, imageSize;
    std::memcpy(&headerSize, dib, 4);
    std::memcpy(&imageSize, dib + 20, 4);
    return std::size_t(headerSize) + imageSize;
}

}  // namespace conformance
