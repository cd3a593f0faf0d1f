// Texture effects: Tiles, Bricks, Bumps, Steel Plate and Weave. A small square
// table of signed offsets is tiled from the lower left corner over the picture
// and added to every pixel's blue, green and red, then clamped.
#include <cstdint>

#include "effects/effects.h"
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

// Row y of a 24- or 32-bit source; on 32-bit pictures mixed with the source by alpha.
void TextureRow2(std::uint16_t y, std::uint16_t width, std::uint16_t height, const std::uint8_t* src,
                 std::uint8_t* out, std::uint32_t hasAlpha, const std::int32_t* texture,
                 std::uint16_t texWidth, std::uint16_t texHeight) {
    (void)height;
    const std::int32_t* t = texture + (y % texHeight) * texWidth;
    unsigned tx = 0;
    if (hasAlpha) {
        for (unsigned x = 0; x < width; ++x, src += 4, out += 4) {
            const int offset = t[tx];
            if (++tx == texWidth) tx = 0;
            const unsigned a = src[3];
            for (unsigned k = 0; k < 3; ++k)
                out[k] = px::alphaMix(src[k], unsigned(px::clamp255(src[k] + offset)), a);
            out[3] = src[3];
        }
    } else {
        for (unsigned x = 0; x < width; ++x, src += 3, out += 3) {
            const int offset = t[tx];
            if (++tx == texWidth) tx = 0;
            out[0] = static_cast<std::uint8_t>(px::clamp255(src[0] + offset));
            out[1] = static_cast<std::uint8_t>(px::clamp255(src[1] + offset));
            out[2] = static_cast<std::uint8_t>(px::clamp255(src[2] + offset));
        }
    }
}

}  // namespace

flairize::Result textureFilter(const FilterCall& call) {
    const auto& texture = *static_cast<const Texture*>(call.table.records[call.effect].data);
    dib::Source src(call.source, &call.host, call.sourceView);
    if (!src.ok()) return resultRefused();
    dib::Output out(src, call.outputView, false);   // every pixel is written
    if (!out.ok()) return resultOutOfMemory();
    const dib::Layout& in = src.layout();
    const std::uint32_t hasAlpha = src.hasAlpha() ? 1 : 0;
    for (std::uint16_t y = 0; y < in.height; ++y) {
        if (call.host.rowTick) call.host.rowTick(call.host.user);
        if (in.bytesPerPixel == 1)
            TextureRow1(y, in.width, in.height, src.row(y), out.row(y), src.colourTable(), texture.offsets,
                        texture.n, texture.n);
        else
            TextureRow2(y, in.width, in.height, src.row(y), out.row(y), hasAlpha, texture.offsets, texture.n,
                        texture.n);
    }
    return resultOk(out.release());
}
