// Mean-map effects: Pointillize, Rain, Triangles and Smudge. The picture is
// repainted as a grid of small marks over a background of the effect colour;
// each mark blends the plain average of the source under its shape into the
// output with the shape's weights (in 256ths).
#include <cstddef>
#include <cstdint>

#include "effects/effects.h"
#include "effects/rows/row_pixels.h"
#include "effects/image/grid.h"
#include "engine/bands.h"
#include "engine/dib.h"
#include "engine/pixel.h"

namespace {

constexpr int kShapeSize = 6;
using Shape = std::uint32_t[kShapeSize * kShapeSize];

// Shapes, row 0 first: row 0 is the lowest picture row of the mark, column 0 its leftmost.
constexpr Shape kLargeDot = {
    0,   192, 256, 256, 192, 0,    //
    192, 256, 256, 256, 256, 192,  //
    256, 256, 256, 256, 256, 256,  //
    256, 256, 256, 256, 256, 256,  //
    192, 256, 256, 256, 256, 192,  //
    0,   192, 256, 256, 192, 0,
};
constexpr Shape kSmallDot = {
    0, 0,   0,   0,   0,   0,  //
    0, 0,   192, 192, 0,   0,  //
    0, 192, 256, 256, 192, 0,  //
    0, 192, 256, 256, 192, 0,  //
    0, 0,   192, 192, 0,   0,  //
    0, 0,   0,   0,   0,   0,
};
constexpr Shape kStreakA = {
    0,  0,   0,   0,   256, 256,  //
    0,  0,   0,   256, 256, 256,  //
    0,  0,   192, 256, 256, 0,    //
    0,  128, 192, 192, 0,   0,    //
    64, 128, 128, 0,   0,   0,    //
    64, 64,  0,   0,   0,   0,
};
constexpr Shape kStreakB = {
    256, 256, 0,   0,   0,   0,   //
    256, 256, 256, 0,   0,   0,   //
    0,   256, 256, 192, 0,   0,   //
    0,   0,   192, 192, 128, 0,   //
    0,   0,   0,   128, 128, 64,  //
    0,   0,   0,   0,   64,  64,
};
constexpr Shape kTriangleRight = {
    256, 192, 0,   0,   0,   0,    //
    256, 256, 256, 192, 0,   0,    //
    256, 256, 256, 192, 256, 192,  //
    256, 256, 256, 256, 256, 192,  //
    256, 256, 256, 192, 0,   0,    //
    256, 192, 0,   0,   0,   0,
};
constexpr Shape kTriangleLeft = {
    0,   0,   0,   0,   192, 256,  //
    0,   0,   192, 256, 256, 256,  //
    192, 256, 192, 256, 256, 256,  //
    192, 256, 256, 256, 256, 256,  //
    0,   0,   192, 256, 256, 256,  //
    0,   0,   0,   0,   192, 256,
};
constexpr Shape kSmear = {
    0, 0,   128, 128, 192, 192,  //
    0, 128, 128, 192, 192, 255,  //
    0, 0,   128, 128, 192, 192,  //
    0, 128, 128, 192, 192, 255,  //
    0, 0,   128, 128, 192, 192,  //
    0, 128, 128, 192, 192, 255,
};

}  // namespace

// The pair of shapes each effect paints per cell.
struct MarkPair {
    const std::uint32_t* first;
    const std::uint32_t* second;
};
const MarkPair kPointillizeMarks{kLargeDot, kSmallDot}, kRainMarks{kStreakA, kStreakB},
    kTrianglesMarks{kTriangleRight, kTriangleLeft}, kSmudgeMarks{kSmear, kSmear};

namespace {

inline unsigned blendByWeight(unsigned out, unsigned mean, unsigned w) {
    return (out * (256 - w) + mean * w) >> 8;
}

// The pictures a render paints: the source (In bytes a pixel: 1 read through
// the colour table, 3, or 4 with alpha) and the output (3 bytes a pixel, 4 for
// a 32-bit source).
struct Canvas {
    const std::uint8_t* src;
    std::ptrdiff_t srcStep;
    std::uint8_t* out;
    std::ptrdiff_t outStep;
    const std::uint8_t* table;
};

template <unsigned In>
inline const std::uint8_t* colourAt(const Canvas& c, const std::uint8_t* s) {
    return In == 1 ? c.table + 4u * s[0] : s;
}

// One mark placed at `a`: the plain average of the source under the shape's
// non-zero weights, blended into output rows rowBegin .. rowEnd - 1 of the
// mark by the weights. On 32-bit pictures every covered pixel, zero weight
// included, is then mixed toward the source by its alpha.
template <unsigned In>
void paintMark(const Canvas& c, const grid::Area& a, const std::uint32_t* shape, int rowBegin, int rowEnd) {
    constexpr unsigned outStep = In == 4 ? 4 : 3;
    unsigned count = 0, sb = 0, sg = 0, sr = 0;
    for (int r = 0; r < a.rows; ++r) {
        const std::uint8_t* s = c.src + std::ptrdiff_t(a.y0 + r) * c.srcStep + std::ptrdiff_t(a.x0) * In;
        const std::uint32_t* w = shape + r * kShapeSize;
        for (int x = 0; x < a.cols; ++x, s += In) {
            const unsigned taken = w[x] != 0;   // without a branch: the shapes' holes are irregular
            const std::uint8_t* p = colourAt<In>(c, s);
            count += taken, sb += p[0] * taken, sg += p[1] * taken, sr += p[2] * taken;
        }
    }
    if (!count) return;
    const unsigned mean[3] = {sb / count, sg / count, sr / count};
    for (int y = rowBegin; y < rowEnd; ++y) {
        const std::uint8_t* s = c.src + std::ptrdiff_t(y) * c.srcStep + std::ptrdiff_t(a.x0) * In;
        std::uint8_t* o = c.out + std::ptrdiff_t(y) * c.outStep + std::ptrdiff_t(a.x0) * outStep;
        const std::uint32_t* w = shape + (y - a.y0) * kShapeSize;
        for (int x = 0; x < a.cols; ++x, s += In, o += outStep) {
            if (In == 4) {
                // Under alpha 255 the mix gives the blend itself, under 0 the source.
                const unsigned alpha = s[3];
                if (alpha == 255) {
                    for (unsigned k = 0; k < 3; ++k)
                        o[k] = static_cast<std::uint8_t>(blendByWeight(o[k], mean[k], w[x]));
                } else if (alpha == 0) {
                    o[0] = s[0], o[1] = s[1], o[2] = s[2];
                } else {
                    for (unsigned k = 0; k < 3; ++k)
                        o[k] = px::alphaMix(s[k], blendByWeight(o[k], mean[k], w[x]) & 255, alpha);
                }
                o[3] = static_cast<std::uint8_t>(alpha);
            } else {
                for (unsigned k = 0; k < 3; ++k) o[k] = static_cast<std::uint8_t>(blendByWeight(o[k], mean[k], w[x]));
            }
        }
    }
}

// Background of the effect colour over rows begin .. end - 1; on 32-bit
// pictures mixed with the source by alpha.
void paintBackground(const dib::View& src, const dib::View& out, std::uint32_t colour, unsigned begin,
                     unsigned end) {
    const std::uint8_t bgr[3] = {px::colourBlue(colour), px::colourGreen(colour), px::colourRed(colour)};
    for (std::uint32_t y = begin; y < end; ++y) {
        std::uint8_t* o = out.row(y);
        if (src.bitCount == 32) {
            const std::uint32_t v = std::uint32_t(bgr[0]) | std::uint32_t(bgr[1]) << 8 | std::uint32_t(bgr[2]) << 16;
            rowpx::mixRowWithColour(src.row(y), v, o, src.width);
        } else {
            for (std::uint32_t x = 0; x < src.width; ++x, o += 3) o[0] = bgr[0], o[1] = bgr[1], o[2] = bgr[2];
        }
    }
}

struct MarkRender {
    const FilterCall& call;
    const MarkPair& marks;
    const dib::View& src;
    const dib::View& out;
    Canvas canvas;
    int width, height, step;
    std::uint16_t jitter;
};

// Output rows begin .. end - 1: the background, then every mark that reaches
// these rows, in the order of painting them all. Marks are painted grid row by
// grid row, left to right, two a cell, and each draws two random numbers, so
// the generator is moved on to the first grid row whose marks can reach the
// band; marks that reach two bands are placed and averaged by both.
template <unsigned In>
void paintBand(const MarkRender& m, int begin, int end) {
    paintBackground(m.src, m.out, m.call.colour, unsigned(begin), unsigned(end));
    // A mark of grid row gy covers rows from gy - jitter (0 at least) to 5 below gy + jitter.
    const int lowest = begin - (kShapeSize - 1) - m.jitter;
    const int firstGridRow = lowest <= 0 ? 0 : (lowest + m.step - 1) / m.step;
    const std::uint64_t cellsPerRow = std::uint64_t((m.width + m.step - 1) / m.step);
    plat::Random random;
    random.srand(0);
    random.skip(std::uint64_t(firstGridRow) * cellsPerRow * 4);
    const flairize::HostServices& host = m.call.host;
    for (int y = firstGridRow * m.step; y < m.height && y < end + m.jitter; y += m.step) {
        if (host.rowTick && y >= begin && y < end) host.rowTick(host.user);
        for (int x = 0; x < m.width; x += m.step) {
            for (const std::uint32_t* shape : {m.marks.first, m.marks.second}) {
                const grid::Area a = grid::place(random, x, y, m.width, m.height, m.jitter, kShapeSize, kShapeSize);
                if (a.empty()) continue;
                const int rowBegin = a.y0 > begin ? a.y0 : begin;
                const int rowEnd = a.y0 + a.rows < end ? a.y0 + a.rows : end;
                if (rowBegin < rowEnd) paintMark<In>(m.canvas, a, shape, rowBegin, rowEnd);
            }
        }
    }
}

}  // namespace

flairize::Result meanMapFilter(const FilterCall& call) {
    const auto& marks = *static_cast<const MarkPair*>(call.table.records[call.effect].data);
    const dib::View &src = call.source, &out = call.output;   // the background covers every output pixel
    const MarkRender m{call,
                       marks,
                       src,
                       out,
                       {src.bottom, src.step, out.bottom, out.step, src.colourTable},
                       src.width,
                       src.height,
                       grid::spacing(call.p1),
                       grid::jitter(call.p2)};
    const unsigned bytes = src.bitCount / 8u;
    runBands(call.host, src.height, [&m, bytes](unsigned begin, unsigned end) {
        if (bytes == 1)
            paintBand<1>(m, int(begin), int(end));
        else if (bytes == 3)
            paintBand<3>(m, int(begin), int(end));
        else
            paintBand<4>(m, int(begin), int(end));
    });
    return resultOk(nullptr);
}
