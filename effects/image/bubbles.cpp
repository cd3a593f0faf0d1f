// Bubbles (hidden effect 36): a grid of 20 x 20 lens bubbles. Inside a bubble's
// circle each pixel is taken from slightly nearer the centre, which magnifies
// the middle; outside the circle a pixel is its own source.
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "effects/effects.h"
#include "effects/image/grid.h"
#include "engine/bands.h"
#include "engine/dib.h"
#include "platform/global_memory.h"

namespace {

// Where output pixel (i, j) of a bubble takes its source: column x, row y,
// counted from the bubble's origin.
struct BubbleMapEntry {
    std::int32_t x;
    std::int32_t y;
};

constexpr std::int32_t kBubbleSize = 20;
static_assert(kBubbleSize > grid::kMaxSpacing, "neighbouring bubbles on the grid overlap");
// A little below 2 / pi: the entries at radius exactly 0.5 then land one pixel
// further in than truncation of the exact value would put them.
constexpr double kLensFactor = 0.6366197723659386;

inline int clampToLast(int v, int last) { return v > last ? last : v; }

// One bubble from a 24- or 32-bit source, over output rows rowBegin ..
// rowEnd - 1 only: pixels copied through the map, alpha travelling with its
// pixel. Reads past the right or top edge use the last column or row.
void BubbleCell2(plat::Random& random, std::int32_t x, std::int32_t y, std::uint16_t width, std::uint16_t height,
                 const std::uint8_t* srcBase, std::uint8_t* outBase, std::ptrdiff_t srcStride,
                 std::ptrdiff_t outStride, std::uint32_t hasAlpha, const BubbleMapEntry* map,
                 std::int32_t mapWidth, std::int32_t mapHeight, std::uint16_t jitter, int rowBegin, int rowEnd) {
    const grid::Area a = grid::place(random, x, y, width, height, jitter, mapWidth, mapHeight);
    if (a.empty()) return;
    const unsigned step = hasAlpha ? 4 : 3;
    const int lastCol = width - 1, lastRow = height - 1;
    const int first = rowBegin > a.y0 ? rowBegin - a.y0 : 0, last = rowEnd - a.y0 < a.rows ? rowEnd - a.y0 : a.rows;
    for (int j = first; j < last; ++j) {
        const BubbleMapEntry* m = map + std::size_t(j) * std::size_t(mapWidth);
        std::uint8_t* o = outBase + std::ptrdiff_t(a.y0 + j) * outStride + std::size_t(a.x0) * step;
        for (int i = 0; i < a.cols; ++i, o += step) {
            const int sx = clampToLast(a.x0 + m[i].x, lastCol);
            const int sy = clampToLast(a.y0 + m[i].y, lastRow);
            const std::uint8_t* s = srcBase + std::ptrdiff_t(sy) * srcStride + std::size_t(sx) * step;
            o[0] = s[0], o[1] = s[1], o[2] = s[2];
            if (hasAlpha) o[3] = s[3];
        }
    }
}

// One bubble from an 8-bit source: the same lens, on the colours the table gives.
void BubbleCell1(plat::Random& random, std::int32_t x, std::int32_t y, std::uint16_t width, std::uint16_t height,
                 const std::uint8_t* srcBase, std::uint8_t* outBase, std::ptrdiff_t srcStride,
                 std::ptrdiff_t outStride, const std::uint8_t* colourTable, const BubbleMapEntry* map,
                 std::int32_t mapWidth, std::int32_t mapHeight, std::uint16_t jitter, int rowBegin, int rowEnd) {
    const grid::Area a = grid::place(random, x, y, width, height, jitter, mapWidth, mapHeight);
    if (a.empty()) return;
    const int lastCol = width - 1, lastRow = height - 1;
    const int first = rowBegin > a.y0 ? rowBegin - a.y0 : 0, last = rowEnd - a.y0 < a.rows ? rowEnd - a.y0 : a.rows;
    for (int j = first; j < last; ++j) {
        const BubbleMapEntry* m = map + std::size_t(j) * std::size_t(mapWidth);
        std::uint8_t* o = outBase + std::ptrdiff_t(a.y0 + j) * outStride + std::size_t(a.x0) * 3;
        for (int i = 0; i < a.cols; ++i, o += 3) {
            const int sx = clampToLast(a.x0 + m[i].x, lastCol);
            const int sy = clampToLast(a.y0 + m[i].y, lastRow);
            const std::uint8_t* e = colourTable + 4u * srcBase[std::ptrdiff_t(sy) * srcStride + std::ptrdiff_t(sx)];
            o[0] = e[0], o[1] = e[1], o[2] = e[2];
        }
    }
}

// Where no bubble lands: 8-bit sources show their colours, 32-bit sources
// themselves, 24-bit sources black (an output known to be clear is left as it is).
void paintBackground(const dib::View& src, const dib::View& out, bool outputCleared, std::uint32_t begin,
                     std::uint32_t end) {
    if (src.bitCount == 24 && outputCleared) return;
    for (std::uint32_t y = begin; y < end; ++y) {
        const std::uint8_t* s = src.row(y);
        std::uint8_t* o = out.row(y);
        if (src.bitCount == 8) {
            for (std::uint32_t x = 0; x < src.width; ++x, o += 3) {
                const std::uint8_t* e = src.colourTable + 4u * s[x];
                o[0] = e[0], o[1] = e[1], o[2] = e[2];
            }
        } else if (src.bitCount == 24) {
            std::memset(o, 0, out.rowBytes());
        } else {
            for (std::uint32_t k = 0; k < 4u * src.width; ++k) o[k] = s[k];
        }
    }
}

// Bubbles on the grid (jitter 0), painted by final owner over output rows
// begin .. end - 1: bubbles are painted band by band and left to right and
// each covers more than the spacing, so a pixel ends up with the bubble of
// the last grid row and column at or before it. Each pixel is written once
// instead of once per overlapping bubble; the row ticks stay those of painting
// every bubble (one a grid row, in the band that holds the grid row).
void paintGridBubbles(const FilterCall& call, const dib::View& src, const dib::View& out, int step,
                      const BubbleMapEntry* map, int begin, int end) {
    const int width = src.width, height = src.height;
    const unsigned inStep = src.bitCount / 8u, outStep = src.bitCount == 32 ? 4 : 3;
    const bool palette = inStep == 1;
    for (int y = begin; y < end; ++y) {
        const int gy = y - y % step;
        if (call.host.rowTick && y == gy) call.host.rowTick(call.host.user);
        const BubbleMapEntry* mapRow = map + std::size_t(y - gy) * kBubbleSize;
        std::uint8_t* o = out.row(std::uint32_t(y));
        for (int gx = 0; gx < width; gx += step) {
            const int cellEnd = gx + step < width ? gx + step : width;
            for (int x = gx; x < cellEnd; ++x, o += outStep) {
                const BubbleMapEntry m = mapRow[x - gx];
                const int sx = clampToLast(gx + m.x, width - 1);
                const int sy = clampToLast(gy + m.y, height - 1);
                const std::uint8_t* s = src.row(std::uint32_t(sy)) + std::size_t(sx) * inStep;
                if (palette) s = src.colourTable + 4u * s[0];
                o[0] = s[0], o[1] = s[1], o[2] = s[2];
                if (outStep == 4) o[3] = s[3];
            }
        }
    }
}

// A W x H map, row j after row j (row 0 is the bubble's lowest row), in local
// working memory; null when the memory cannot be had.
BubbleMapEntry* MakeBubbleMap(std::int32_t w, std::int32_t h) {
    if (w < 2 || h < 2 || w > 65535 || h > 65535) return nullptr;
    const std::uint64_t bytes = std::uint64_t(w) * std::uint64_t(h) * sizeof(BubbleMapEntry);
    if (bytes > SIZE_MAX) return nullptr;
    auto* map = static_cast<BubbleMapEntry*>(plat::localAlloc(static_cast<std::size_t>(bytes)));
    if (!map) return nullptr;
    const int cx = w / 2, cy = h / 2;
    BubbleMapEntry* e = map;
    for (int j = 0; j < h; ++j) {
        for (int i = 0; i < w; ++i, ++e) {
            const double u = double(i - cx) / cx;
            const double v = double(j - cy) / cy;
            const double r = std::sqrt(v * v + u * u);
            if (r > 1) {
                *e = {i, j};
                continue;
            }
            const double theta = (u == 0 && v == 0) ? 0.0 : std::atan2(u, v);
            const double s = std::asin(r) * kLensFactor;
            int x = i + static_cast<int>((s * std::sin(theta) - u) * cx);
            int y = j + static_cast<int>((s * std::cos(theta) - v) * cy);
            x = x < 0 ? 0 : (x >= w ? w - 1 : x);
            y = y < 0 ? 0 : (y >= h ? h - 1 : y);
            *e = {x, y};
        }
    }
    return map;
}

}  // namespace

// With no randomness the bubbles cover every output pixel; otherwise the
// background is painted first.
flairize::Result bubblesFilter(const FilterCall& call) {
    const dib::View &src = call.source, &out = call.output;
    const int step = grid::spacing(call.p1);
    const std::uint16_t jitter = grid::jitter(call.p2);
    BubbleMapEntry* map = MakeBubbleMap(kBubbleSize, kBubbleSize);
    if (!map) return resultOutOfMemory();
    if (!jitter) {
        runBands(call.host, src.height, [&](unsigned begin, unsigned end) {
            paintGridBubbles(call, src, out, step, map, int(begin), int(end));
        });
        plat::localFree(map);
        return resultOk(nullptr);
    }

    // Output rows begin .. end - 1: the background, then every bubble that
    // reaches them in the order of painting them all (grid row by grid row,
    // left to right, two random draws a bubble), the generator moved on to the
    // first grid row whose bubbles can reach the band.
    const std::uint32_t hasAlpha = src.bitCount == 32 ? 1 : 0;
    const std::uint64_t cellsPerRow = std::uint64_t((src.width + step - 1) / step);
    runBands(call.host, src.height, [&](unsigned bandBegin, unsigned bandEnd) {
        const int begin = int(bandBegin), end = int(bandEnd);
        paintBackground(src, out, call.outputCleared, bandBegin, bandEnd);
        const int lowest = begin - (kBubbleSize - 1) - jitter;   // a bubble of grid row gy starts at gy - jitter or 0
        const int firstGridRow = lowest <= 0 ? 0 : (lowest + step - 1) / step;
        plat::Random random;
        random.srand(0);
        random.skip(std::uint64_t(firstGridRow) * cellsPerRow * 2);
        for (int y = firstGridRow * step; y < src.height && y < end + jitter; y += step) {
            if (call.host.rowTick && y >= begin && y < end) call.host.rowTick(call.host.user);
            for (int x = 0; x < src.width; x += step) {
                if (src.bitCount == 8)
                    BubbleCell1(random, x, y, src.width, src.height, src.bottom, out.bottom, src.step, out.step,
                                src.colourTable, map, kBubbleSize, kBubbleSize, jitter, begin, end);
                else
                    BubbleCell2(random, x, y, src.width, src.height, src.bottom, out.bottom, src.step, out.step,
                                hasAlpha, map, kBubbleSize, kBubbleSize, jitter, begin, end);
            }
        }
    });
    plat::localFree(map);
    return resultOk(nullptr);
}
