// Reading source pixels and writing output pixels, shared by the row effects.
// Palette sources are read through their colour table (blue, green, red of the
// entry an index byte names); 24- and 32-bit sources are read in place.
#pragma once

#include <cstdint>
#include <cstring>

#include "engine/pixel.h"
#include "engine/vector_clones.h"

namespace rowpx {

// The integer luminance split into its blue, green and red terms (each term
// depends on one channel only), so L(b, g, r) = blue[b] + green[g] + red[r].
struct LuminanceTerms {
    std::uint8_t blue[256], green[256], red[256];
};
constexpr LuminanceTerms makeLuminanceTerms() {
    LuminanceTerms t{};
    for (int v = 0; v < 256; ++v) {
        t.blue[v] = static_cast<std::uint8_t>((v >> 3) - (v >> 6));
        t.green[v] = static_cast<std::uint8_t>((v >> 1) + (v >> 4) + (v >> 5));
        t.red[v] = static_cast<std::uint8_t>((v >> 2) + (v >> 4) - (v >> 6) + (v >> 7));
    }
    return t;
}
inline constexpr LuminanceTerms kLuminanceTerms = makeLuminanceTerms();

// L of blue, green, red values 0 .. 255.
inline unsigned luminanceAt(unsigned b, unsigned g, unsigned r) {
    return unsigned(kLuminanceTerms.blue[b]) + kLuminanceTerms.green[g] + kLuminanceTerms.red[r];
}

// L of the blue, green, red bytes at p.
inline unsigned luminanceAt(const std::uint8_t* p) {
    return unsigned(kLuminanceTerms.blue[p[0]]) + kLuminanceTerms.green[p[1]] + kLuminanceTerms.red[p[2]];
}

// Pixel x of a given source row.
struct PaletteSource {
    const std::uint8_t* table;
    const std::uint8_t* operator()(const std::uint8_t* row, unsigned x) const { return table + 4u * row[x]; }
};
struct DirectSource {
    unsigned step;
    const std::uint8_t* operator()(const std::uint8_t* row, unsigned x) const { return row + step * x; }
};

// Pixel (x, y) of the picture, through the row-pointer table.
struct PaletteRows {
    const std::uint8_t* const* rows;
    const std::uint8_t* table;
    unsigned bytesPerPixel() const { return 1; }
    const std::uint8_t* colour(const std::uint8_t* p) const { return table + 4u * *p; }
    const std::uint8_t* pixel(const std::uint8_t* row, int x) const { return colour(row + x); }
    const std::uint8_t* at(unsigned x, unsigned y) const { return table + 4u * rows[y][x]; }
};
struct DirectRows {
    const std::uint8_t* const* rows;
    unsigned step;
    unsigned bytesPerPixel() const { return step; }
    const std::uint8_t* colour(const std::uint8_t* p) const { return p; }
    const std::uint8_t* pixel(const std::uint8_t* row, int x) const { return row + step * unsigned(x); }
    const std::uint8_t* at(unsigned x, unsigned y) const { return rows[y] + step * x; }
};

// Division of a sum of `count` channel values (each 0 .. 255) by count, for
// counts 1 .. 32, as a multiply and shift: with m = ceil(2^18 / count) the
// result is exact for every sum below 2^18 / count, which covers 255 x count,
// and the product stays below 2^32 (a unit test checks the whole range).
struct ChannelMean {
    std::uint32_t multiplier;
    static constexpr unsigned kMaxCount = 32;
    explicit ChannelMean(unsigned count) : multiplier(((1u << 18) + count - 1) / count) {}
    unsigned operator()(unsigned sum) const { return (sum * multiplier) >> 18; }
};

// Posterize's level of a channel, ((ch x N) / 255) x 255 / N, as two high
// halves of 16-bit products for N = 2 .. 16: q = ch x up >> 16 and then
// q x 255 x down >> 16, with up = ceil(N x 2^16 / 255) and down = ceil(2^16 / N).
// Exact for every channel value (a unit test checks each N).
struct PosterLevels {
    static constexpr unsigned kMaxLevels = 16;
    std::uint16_t up, down;
    explicit PosterLevels(unsigned n)
        : up(static_cast<std::uint16_t>((n * 65536 + 254) / 255)),
          down(static_cast<std::uint16_t>((65536 + n - 1) / n)) {}
    std::uint16_t operator()(std::uint16_t ch) const {
        const auto q = static_cast<std::uint16_t>((std::uint32_t(ch) * up) >> 16);
        return static_cast<std::uint16_t>((std::uint32_t(static_cast<std::uint16_t>(q * 255)) * down) >> 16);
    }
};

// Writes the effect value (vb, vg, vr) at o: as it is, or through the alpha mix
// over source pixel s with alpha a, which becomes the output alpha.
template <bool Alpha>
inline void put(std::uint8_t* o, const std::uint8_t* s, unsigned a, unsigned vb, unsigned vg, unsigned vr) {
    if constexpr (Alpha) {
        if (a == 255) {   // the mix at the ends is the value, or the source, itself
            o[0] = static_cast<std::uint8_t>(vb), o[1] = static_cast<std::uint8_t>(vg);
            o[2] = static_cast<std::uint8_t>(vr);
        } else if (a == 0) {
            o[0] = s[0], o[1] = s[1], o[2] = s[2];
        } else {
            o[0] = px::alphaMix(s[0], vb, a);
            o[1] = px::alphaMix(s[1], vg, a);
            o[2] = px::alphaMix(s[2], vr, a);
        }
        o[3] = static_cast<std::uint8_t>(a);
    } else {
        (void)s, (void)a;
        o[0] = static_cast<std::uint8_t>(vb);
        o[1] = static_cast<std::uint8_t>(vg);
        o[2] = static_cast<std::uint8_t>(vr);
    }
}

// The same with the value's bytes at v and the alpha of s itself.
template <bool Alpha>
inline void put(std::uint8_t* o, const std::uint8_t* s, const std::uint8_t* v) {
    put<Alpha>(o, s, Alpha ? s[3] : 0u, v[0], v[1], v[2]);
}


// A 4-byte pixel as one little-endian word: blue in the low byte, alpha in the high one.
#if defined(__BYTE_ORDER__)
static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "pixel words assume little-endian bytes");
#endif
inline std::uint32_t loadPixel(const std::uint8_t* p) {
    std::uint32_t v;
    std::memcpy(&v, p, 4);
    return v;
}
inline void storePixel(std::uint8_t* p, std::uint32_t v) { std::memcpy(p, &v, 4); }

// The alpha mix of effect value v over source pixel s (both 4-byte words), with
// s's alpha: blue/red and green/alpha are mixed as pairs of 16-bit fields, and
// x / 255 = (x + 1 + (x >> 8)) >> 8 holds for every x up to 255 x 255. The
// alpha field mixes s's alpha with itself and so stays as it is.
inline std::uint32_t mixPixel(std::uint32_t s, std::uint32_t v) {
    const std::uint32_t a = s >> 24, na = 255 - a;
    v = (v & 0x00FFFFFFu) | (s & 0xFF000000u);
    std::uint32_t rb = (s & 0x00FF00FFu) * na + (v & 0x00FF00FFu) * a;
    std::uint32_t ga = ((s >> 8) & 0x00FF00FFu) * na + ((v >> 8) & 0x00FF00FFu) * a;
    rb = ((rb + 0x00010001u + ((rb >> 8) & 0x00FF00FFu)) >> 8) & 0x00FF00FFu;
    ga = (ga + 0x00010001u + ((ga >> 8) & 0x00FF00FFu)) & 0xFF00FF00u;
    return rb | ga;
}

// Row forms of the mix over `count` 4-byte pixels: the values already written
// at out mixed in place over the source pixels s; or one value v over them all.
// An effect that writes a row's values and then mixes the row in one call
// lets runs of alpha 255 or 0 pass as copies and the rest run in vector lanes.
void mixRowInPlace(const std::uint8_t* s, std::uint8_t* out, unsigned count);
void mixRowWithColour(const std::uint8_t* s, std::uint32_t v, std::uint8_t* out, unsigned count);
// The same where each value pixel at out brings its own alpha, which is the
// mix's alpha and the output's: (s's colour, the value's alpha) mixed with the value.
void mixRowByValueAlpha(const std::uint8_t* s, std::uint8_t* out, unsigned count);

// `count` 3-byte pixels of blue, green, red from bgr, written from out on.
void fillPixels3(std::uint8_t* out, const std::uint8_t bgr[3], unsigned count);

// The same, choosing the form at run time.
inline void putPixel(std::uint8_t* o, const std::uint8_t* s, unsigned vb, unsigned vg, unsigned vr, bool alpha) {
    if (alpha)
        put<true>(o, s, s[3], vb, vg, vr);
    else
        put<false>(o, s, 0, vb, vg, vr);
}

}  // namespace rowpx
