// Mean-map effects: Pointillize, Rain, Triangles and Smudge. The picture is
// repainted as a grid of small marks over a background of the effect colour;
// each mark blends the plain average of the source under its shape into the
// output with the shape's weights (in 256ths).
#include <cstddef>
#include <cstdint>

#include "effects/effects.h"
#include "effects/image/grid.h"
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

// One mark from an 8-bit source: averages read through the colour table.
void MeanMapCell1(plat::Random& random, std::int32_t x, std::int32_t y, std::uint16_t width, std::uint16_t height,
                  const std::uint8_t* srcBase, std::uint8_t* outBase, std::uint32_t srcStride,
                  std::uint32_t outStride, const std::uint8_t* colourTable, const std::uint32_t* shape,
                  std::uint16_t jitter) {
    const grid::Area a = grid::place(random, x, y, width, height, jitter, kShapeSize, kShapeSize);
    if (a.empty()) return;
    unsigned count = 0, sb = 0, sg = 0, sr = 0;
    for (int r = 0; r < a.rows; ++r) {
        const std::uint8_t* s = srcBase + std::size_t(a.y0 + r) * srcStride + a.x0;
        const std::uint32_t* w = shape + r * kShapeSize;
        for (int c = 0; c < a.cols; ++c) {
            if (!w[c]) continue;
            const std::uint8_t* e = colourTable + 4u * s[c];
            ++count, sb += e[0], sg += e[1], sr += e[2];
        }
    }
    if (!count) return;
    const unsigned mb = sb / count, mg = sg / count, mr = sr / count;
    for (int r = 0; r < a.rows; ++r) {
        std::uint8_t* o = outBase + std::size_t(a.y0 + r) * outStride + std::size_t(a.x0) * 3;
        const std::uint32_t* w = shape + r * kShapeSize;
        for (int c = 0; c < a.cols; ++c, o += 3) {
            o[0] = static_cast<std::uint8_t>(blendByWeight(o[0], mb, w[c]));
            o[1] = static_cast<std::uint8_t>(blendByWeight(o[1], mg, w[c]));
            o[2] = static_cast<std::uint8_t>(blendByWeight(o[2], mr, w[c]));
        }
    }
}

// One mark from a 24- or 32-bit source. On 32-bit pictures every covered pixel,
// zero weight included, is then mixed toward the source by its alpha.
void MeanMapCell2(plat::Random& random, std::int32_t x, std::int32_t y, std::uint16_t width, std::uint16_t height,
                  const std::uint8_t* srcBase, std::uint8_t* outBase, std::uint32_t srcStride,
                  std::uint32_t outStride, std::uint32_t hasAlpha, const std::uint32_t* shape,
                  std::uint16_t jitter) {
    const grid::Area a = grid::place(random, x, y, width, height, jitter, kShapeSize, kShapeSize);
    if (a.empty()) return;
    const unsigned step = hasAlpha ? 4 : 3;
    unsigned count = 0, sb = 0, sg = 0, sr = 0;
    for (int r = 0; r < a.rows; ++r) {
        const std::uint8_t* s = srcBase + std::size_t(a.y0 + r) * srcStride + std::size_t(a.x0) * step;
        const std::uint32_t* w = shape + r * kShapeSize;
        for (int c = 0; c < a.cols; ++c, s += step) {
            if (!w[c]) continue;
            ++count, sb += s[0], sg += s[1], sr += s[2];
        }
    }
    if (!count) return;
    const unsigned mean[3] = {sb / count, sg / count, sr / count};
    for (int r = 0; r < a.rows; ++r) {
        const std::uint8_t* s = srcBase + std::size_t(a.y0 + r) * srcStride + std::size_t(a.x0) * step;
        std::uint8_t* o = outBase + std::size_t(a.y0 + r) * outStride + std::size_t(a.x0) * step;
        const std::uint32_t* w = shape + r * kShapeSize;
        for (int c = 0; c < a.cols; ++c, s += step, o += step) {
            if (hasAlpha) {
                const unsigned alpha = s[3];
                for (unsigned k = 0; k < 3; ++k)
                    o[k] = px::alphaMix(s[k], blendByWeight(o[k], mean[k], w[c]) & 255, alpha);
                o[3] = static_cast<std::uint8_t>(alpha);
            } else {
                for (unsigned k = 0; k < 3; ++k)
                    o[k] = static_cast<std::uint8_t>(blendByWeight(o[k], mean[k], w[c]));
            }
        }
    }
}

// Background of the effect colour; on 32-bit pictures mixed with the source by alpha.
void paintBackground(const dib::Source& src, const dib::Output& out, std::uint32_t colour) {
    const dib::Layout& in = src.layout();
    const std::uint8_t bgr[3] = {px::colourBlue(colour), px::colourGreen(colour), px::colourRed(colour)};
    for (std::uint32_t y = 0; y < in.height; ++y) {
        std::uint8_t* o = out.row(y);
        if (src.hasAlpha()) {
            const std::uint8_t* s = src.row(y);
            for (std::uint32_t x = 0; x < in.width; ++x, s += 4, o += 4) {
                for (unsigned k = 0; k < 3; ++k) o[k] = px::alphaMix(s[k], bgr[k], s[3]);
                o[3] = s[3];
            }
        } else {
            for (std::uint32_t x = 0; x < in.width; ++x, o += 3) o[0] = bgr[0], o[1] = bgr[1], o[2] = bgr[2];
        }
    }
}

}  // namespace

flairize::Result meanMapFilter(const FilterCall& call) {
    const auto& marks = *static_cast<const MarkPair*>(call.table.records[call.effect].data);
    dib::Source src(call.source, &call.host);
    if (!src.ok()) return resultRefused();
    dib::Output out(src);
    if (!out.ok()) return resultOutOfMemory();
    const dib::Layout& in = src.layout();
    paintBackground(src, out, call.colour);
    plat::Random random;
    random.srand(0);

    const int step = grid::spacing(call.p1);
    const std::uint16_t jitter = grid::jitter(call.p2);
    const std::uint32_t hasAlpha = src.hasAlpha() ? 1 : 0;
    for (int y = 0; y < in.height; y += step) {
        if (call.host.rowTick) call.host.rowTick(call.host.user);
        for (int x = 0; x < in.width; x += step) {
            for (const std::uint32_t* shape : {marks.first, marks.second}) {
                if (in.bytesPerPixel == 1)
                    MeanMapCell1(random, x, y, in.width, in.height, src.pixels(), out.pixels(), in.stride,
                                 std::uint32_t(out.stride()), src.colourTable(), shape, jitter);
                else
                    MeanMapCell2(random, x, y, in.width, in.height, src.pixels(), out.pixels(), in.stride,
                                 std::uint32_t(out.stride()), hasAlpha, shape, jitter);
            }
        }
    }
    return resultOk(out.release());
}
