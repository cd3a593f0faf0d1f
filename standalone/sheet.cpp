#include "standalone/sheet.h"

#include <algorithm>
#include <cctype>
#include <cstring>

#include "engine/dib.h"
#include "platform/global_memory.h"

namespace cli {

namespace {

// A 5x7 capital font; each glyph row holds 5 bits, the leftmost in bit 4.
const unsigned char kGlyphs[27][7] = {
    {14, 17, 17, 31, 17, 17, 17}, {30, 17, 17, 30, 17, 17, 30}, {14, 17, 16, 16, 16, 17, 14},
    {30, 17, 17, 17, 17, 17, 30}, {31, 16, 16, 30, 16, 16, 31}, {31, 16, 16, 30, 16, 16, 16},
    {14, 17, 16, 23, 17, 17, 15}, {17, 17, 17, 31, 17, 17, 17}, {14, 4, 4, 4, 4, 4, 14},
    {7, 2, 2, 2, 2, 18, 12},      {17, 18, 20, 24, 20, 18, 17}, {16, 16, 16, 16, 16, 16, 31},
    {17, 27, 21, 21, 17, 17, 17}, {17, 17, 25, 21, 19, 17, 17}, {14, 17, 17, 17, 17, 17, 14},
    {30, 17, 17, 30, 16, 16, 16}, {14, 17, 17, 17, 21, 18, 13}, {30, 17, 17, 30, 20, 18, 17},
    {15, 16, 16, 14, 1, 1, 30},   {31, 4, 4, 4, 4, 4, 4},       {17, 17, 17, 17, 17, 17, 14},
    {17, 17, 17, 17, 17, 10, 4},  {17, 17, 17, 21, 21, 21, 10}, {17, 17, 10, 4, 10, 17, 17},
    {17, 17, 10, 4, 4, 4, 4},     {31, 1, 2, 4, 8, 16, 31},     {0, 0, 0, 0, 0, 0, 0},
};

struct Canvas {
    int w, h;
    std::vector<unsigned char> bgr;  // top row first while drawing
    void put(int x, int y, unsigned char b, unsigned char g, unsigned char r) {
        if (x < 0 || y < 0 || x >= w || y >= h) return;
        unsigned char* p = &bgr[(std::size_t(y) * w + x) * 3];
        p[0] = b, p[1] = g, p[2] = r;
    }
    void text(int x, int y, const std::string& s) {
        for (char c : s) {
            const int u = std::toupper(static_cast<unsigned char>(c));
            const unsigned char* glyph = kGlyphs[(u >= 'A' && u <= 'Z') ? u - 'A' : 26];
            for (int row = 0; row < 7; ++row)
                for (int col = 0; col < 5; ++col)
                    if (glyph[row] & (16 >> col)) put(x + col, y + row, 30, 30, 30);
            x += 6;
        }
    }
};

}  // namespace

HGLOBAL contactSheet(const std::vector<SheetTile>& tiles, int columns) {
    if (columns < 1) columns = 1;
    int cellW = 0, cellH = 0;
    for (const SheetTile& t : tiles) {
        dib::Source s(t.picture);
        if (!s.ok()) return nullptr;
        cellW = std::max(cellW, int(s.layout().width) / 2);
        cellH = std::max(cellH, int(s.layout().height) / 2);
    }
    const int pad = 6, caption = 12;
    const int rows = int(tiles.size() + std::size_t(columns) - 1) / columns;
    Canvas c{columns * (cellW + pad) + pad, rows * (cellH + caption + pad) + pad, {}};
    c.bgr.assign(std::size_t(c.w) * std::size_t(c.h) * 3, 235);
    for (std::size_t t = 0; t < tiles.size(); ++t) {
        const int x0 = pad + int(t % std::size_t(columns)) * (cellW + pad);
        const int y0 = pad + int(t / std::size_t(columns)) * (cellH + caption + pad);
        c.text(x0, y0 + 2, tiles[t].caption);
        dib::Source s(tiles[t].picture);
        const dib::Layout& l = s.layout();
        const int bpp = l.bytesPerPixel;
        for (int y = 0; y < int(l.height) / 2; ++y)
            for (int x = 0; x < int(l.width) / 2; ++x) {
                unsigned sum[3] = {0, 0, 0};
                for (int k = 0; k < 4; ++k) {   // the average of 2 x 2 source pixels
                    const int sy = int(l.height) - 1 - (2 * y + (k >> 1)), sx = 2 * x + (k & 1);
                    const unsigned char* p = s.row(std::uint32_t(sy)) + std::size_t(sx) * std::size_t(bpp);
                    if (bpp == 1) p = s.colourTable() + 4u * p[0];
                    for (int ch = 0; ch < 3; ++ch) sum[ch] += p[ch];
                }
                c.put(x0 + x, y0 + caption + y, static_cast<unsigned char>(sum[0] / 4),
                      static_cast<unsigned char>(sum[1] / 4), static_cast<unsigned char>(sum[2] / 4));
            }
    }
    // Into a bottom-up 24-bit picture.
    const std::uint32_t stride = std::uint32_t(dib::paddedStride(std::uint32_t(c.w), 24));
    HGLOBAL out = dib::create(c.w, c.h, 24);
    if (!out) return nullptr;
    auto* base = static_cast<unsigned char*>(plat::globalLock(out));
    for (int y = 0; y < c.h; ++y)
        std::memcpy(base + 40 + std::size_t(c.h - 1 - y) * stride, &c.bgr[std::size_t(y) * std::size_t(c.w) * 3],
                    std::size_t(c.w) * 3);
    plat::globalUnlock(out);
    return out;
}

}  // namespace cli
