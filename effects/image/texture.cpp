// Texture effects: Tiles, Bricks, Bumps, Steel Plate and Weave. A small square
// table of signed offsets is tiled from the lower left corner over the picture
// and added to every pixel's blue, green and red, then clamped.
#include <cstdint>

#include "effects/effects.h"
#include "effects/rows/row_pixels.h"
#include "engine/dib.h"
#include "engine/pixel.h"

namespace {

// Textures, row 0 first: row 0 lies on the lowest picture row.
constexpr std::int32_t kTiles[64] = {
    0,    -255, -255, -255, -255, -255, -255, -255,  //
    -255, 92,   92,   92,   92,   92,   92,   0,     //
    -255, 92,   32,   0,    0,    0,    0,    -92,   //
    -255, 92,   32,   0,    0,    0,    -32,  -92,   //
    -255, 92,   32,   0,    0,    0,    -32,  -92,   //
    -255, 92,   32,   0,    0,    0,    -32,  -92,   //
    -255, 92,   0,    -32,  -32,  -32,  -32,  -92,   //
    -255, 0,    -92,  -92,  -92,  -92,  -92,  -92,
};
constexpr std::int32_t kBricks[64] = {
    -255, -255, -255, -255, -255, -255, -255, -255,  //
    -255, 0,    0,    0,    0,    0,    0,    0,     //
    -255, 0,    0,    0,    0,    0,    0,    0,     //
    -255, 0,    0,    0,    0,    0,    0,    0,     //
    -255, -255, -255, -255, -255, -255, -255, -255,  //
    0,    0,    0,    0,    -255, 0,    0,    0,     //
    0,    0,    0,    0,    -255, 0,    0,    0,     //
    0,    0,    0,    0,    -255, 0,    0,    0,
};
constexpr std::int32_t kBumps[64] = {
    0,  0,  64, 64,  64,  32,  0,   0,    //
    0,  64, 64, 32,  16,  8,   0,   0,    //
    64, 64, 16, 8,   8,   0,   -8,  -32,  //
    64, 32, 8,  0,   0,   -8,  -16, -64,  //
    64, 16, 8,  0,   0,   -8,  -32, -64,  //
    32, 8,  0,  -8,  -8,  -16, -64, -64,  //
    0,  0,  -8, -16, -32, -64, -64, 0,    //
    0,  0,  -32, -64, -64, -64, 0,  0,
};
constexpr std::int32_t kSteelPlate[36] = {
    10,  -10, -32, -64, -32, -10,  //
    -10, 10,  5,   -32, 5,   10,   //
    -32, 5,   10,  5,   10,  5,    //
    -64, -32, 5,   10,  5,   -32,  //
    -32, 5,   10,  5,   10,  5,    //
    -10, 10,  5,   -32, 5,   10,
};
constexpr std::int32_t kWeave[36] = {
    32,   0,    -255, -255, -255, 0,     //
    0,    -255, 0,    -255, 0,    32,    //
    -255, 0,    32,   0,    -255, 0,     //
    -255, -255, 0,    32,   0,    -255,  //
    -255, 0,    -255, 0,    32,   0,     //
    0,    32,   0,    -255, 0,    -255,
};

}  // namespace

// An n x n table of offsets, row 0 first.
struct Texture {
    const std::int32_t* offsets;
    std::uint16_t n;
};
const Texture kTilesTexture{kTiles, 8}, kBricksTexture{kBricks, 8}, kBumpsTexture{kBumps, 8},
    kSteelPlateTexture{kSteelPlate, 6}, kWeaveTexture{kWeave, 6};

namespace {

// Row y of an 8-bit source, read through the colour table; 3-byte output.
void TextureRow1(std::uint16_t y, std::uint16_t width, std::uint16_t height, const std::uint8_t* src,
                 std::uint8_t* out, const std::uint8_t* colourTable, const std::int32_t* texture,
                 std::uint16_t texWidth, std::uint16_t texHeight) {
    (void)height;
    const std::int32_t* t = texture + (y % texHeight) * texWidth;
    unsigned tx = 0;
    for (unsigned x = 0; x < width; ++x, out += 3) {
        const std::uint8_t* e = colourTable + 4u * src[x];
        const int offset = t[tx];
        if (++tx == texWidth) tx = 0;
        out[0] = static_cast<std::uint8_t>(px::clamp255(e[0] + offset));
        out[1] = static_cast<std::uint8_t>(px::clamp255(e[1] + offset));
        out[2] = static_cast<std::uint8_t>(px::clamp255(e[2] + offset));
    }
}

// A texture row as two byte patterns over kPatternPixels pixels (a multiple of
// both texture sizes, so the pattern repeats across the picture row): the
// amount each byte is raised (positive offsets) or lowered (negative ones).
// The alpha byte of a 4-byte pixel is neither raised nor lowered.
constexpr unsigned kPatternPixels = 192;
constexpr unsigned kMaxTexture = 8;
struct RowPattern {
    std::uint8_t raise[4 * kPatternPixels], lower[4 * kPatternPixels];
};

void makePattern(RowPattern& p, const std::int32_t* row, unsigned n, unsigned bytesPerPixel) {
    for (unsigned x = 0; x < kPatternPixels; ++x)
        for (unsigned k = 0; k < bytesPerPixel; ++k) {
            const std::int32_t t = k < 3 ? row[x % n] : 0;
            p.raise[bytesPerPixel * x + k] = static_cast<std::uint8_t>(t > 0 ? t : 0);
            p.lower[bytesPerPixel * x + k] = static_cast<std::uint8_t>(t < 0 ? -t : 0);
        }
}

// clamp(byte + t) over a row of `count` bytes: a saturating raise and a
// saturating lowering, of which at most one is not zero.
FLAIRIZE_CLONES
void offsetRow(const std::uint8_t* __restrict s, std::uint8_t* __restrict out, std::size_t count,
               const std::uint8_t* __restrict raise, const std::uint8_t* __restrict lower, std::size_t period) {
    for (std::size_t start = 0; start < count; start += period) {
        const std::size_t n = count - start < period ? count - start : period;
        const std::uint8_t* a = s + start;
        std::uint8_t* o = out + start;
        for (std::size_t i = 0; i < n; ++i) {
            const std::uint8_t c = a[i], room = static_cast<std::uint8_t>(255 - c);
            const std::uint8_t up = static_cast<std::uint8_t>(c + (raise[i] < room ? raise[i] : room));
            o[i] = static_cast<std::uint8_t>(up - (up < lower[i] ? up : lower[i]));
        }
    }
}

// Row y of a 24- or 32-bit source; on 32-bit pictures mixed with the source by alpha.
void TextureRow2(std::uint16_t y, std::uint16_t width, const std::uint8_t* src, std::uint8_t* out,
                 std::uint32_t hasAlpha, const RowPattern* patterns, std::uint16_t texHeight) {
    const RowPattern& p = patterns[y % texHeight];
    const unsigned bytes = hasAlpha ? 4 : 3;
    offsetRow(src, out, std::size_t(width) * bytes, p.raise, p.lower, std::size_t(bytes) * kPatternPixels);
    if (hasAlpha) rowpx::mixRowInPlace(src, out, width);
}

// The rows of one render, run in bands where the host offers threads.
struct Bands {
    const FilterCall& call;
    const Texture& texture;
    RowPattern patterns[kMaxTexture];
};

void paintRows(void* context, unsigned begin, unsigned end) {
    const Bands& b = *static_cast<const Bands*>(context);
    const flairize::HostServices& host = b.call.host;
    const dib::View &in = b.call.source, &out = b.call.output;
    for (unsigned y = begin; y < end; ++y) {
        if (host.rowTick) host.rowTick(host.user);
        const auto row = static_cast<std::uint16_t>(y);
        if (in.bitCount == 8)
            TextureRow1(row, in.width, in.height, in.row(y), out.row(y), in.colourTable, b.texture.offsets,
                        b.texture.n, b.texture.n);
        else
            TextureRow2(row, in.width, in.row(y), out.row(y), in.bitCount == 32 ? 1 : 0, b.patterns, b.texture.n);
    }
}

}  // namespace

// Every output pixel is written.
flairize::Result textureFilter(const FilterCall& call) {
    const auto& texture = *static_cast<const Texture*>(call.table.records[call.effect].data);
    if (texture.n == 0 || texture.n > kMaxTexture || kPatternPixels % texture.n) return resultRefused();
    const dib::View& in = call.source;
    Bands bands{call, texture, {}};
    if (in.bitCount != 8)
        for (unsigned r = 0; r < texture.n; ++r)
            makePattern(bands.patterns[r], texture.offsets + r * texture.n, texture.n, in.bitCount / 8u);
    if (call.host.parallel)
        call.host.parallel(call.host.user, in.height, paintRows, &bands);
    else
        paintRows(&bands, 0, in.height);
    return resultOk(nullptr);
}
