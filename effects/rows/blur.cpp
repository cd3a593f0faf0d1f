// Blur effects: Motion Blur, Center Blur and Radial Blur. Each output pixel is
// the plain average of the source pixel and the samples of an integer walk that
// starts at it (effects/rows/walk.h); the effects differ in the walk's
// direction and length. Neighbouring pixels of Center and Radial Blur often
// walk alike: a walk is laid out once and serves every pixel of the run for
// which all its decisions stay the same.
#include <cstddef>
#include <type_traits>

#include "effects/effects.h"
#include "effects/rows/row_pixels.h"
#include "effects/rows/walk.h"
#include "engine/pixel.h"

namespace {

using namespace rowpx;

// Sums of the walk samples per byte for pixels x0 .. x0 + count - 1 of a 24-
// or 32-bit row whose samples all lie inside (an alpha byte is summed along
// and not used); plain loops the compiler vectorises, two samples per pass.
template <unsigned Step>
void sumBlock(const std::uint8_t* own, const std::uint8_t* const* sampleRows, const WalkPattern& p, unsigned x0,
              unsigned count, std::uint16_t* sum) {
    const unsigned bytes = Step * count;
    const std::uint8_t* start = own + Step * x0;
    for (unsigned i = 0; i < bytes; ++i) sum[i] = start[i];
    auto sampleAt = [&](int k) { return sampleRows[k] + Step * unsigned(int(x0) + p.dx[k]); };
    int k = 0;
    for (; k + 1 < p.n; k += 2) {
        const std::uint8_t *first = sampleAt(k), *second = sampleAt(k + 1);
        for (unsigned i = 0; i < bytes; ++i) sum[i] = static_cast<std::uint16_t>(sum[i] + first[i] + second[i]);
    }
    if (k < p.n) {
        const std::uint8_t* sample = sampleAt(k);
        for (unsigned i = 0; i < bytes; ++i) sum[i] = static_cast<std::uint16_t>(sum[i] + sample[i]);
    }
}

// Blurs pixels xBegin .. xEnd - 1 of row y, all walking as p. Pixels whose
// walk would leave the row's sides sample clamped columns one by one; the rest
// go in blocks (24- and 32-bit sources) or sample by offsets (palette sources).
template <bool Alpha, class Rows>
void blurRun(const Rows& src, int y, int width, int height, const WalkPattern& p, const ChannelMean& mean,
             int xBegin, int xEnd, std::uint8_t* out) {
    constexpr unsigned kOutStep = Alpha ? 4 : 3;
    const std::uint8_t* own = src.rows[y];
    const std::uint8_t* sampleRows[kMaxSteps];
    for (int k = 0; k < p.n; ++k) sampleRows[k] = src.rows[clampTo(y + p.dy[k], height - 1)];

    auto clampedPixel = [&](int x) {
        const std::uint8_t* start = src.pixel(own, x);
        unsigned b = start[0], g = start[1], r = start[2];
        for (int k = 0; k < p.n; ++k) {
            const std::uint8_t* c = src.pixel(sampleRows[k], clampTo(x + p.dx[k], width - 1));
            b += c[0], g += c[1], r += c[2];
        }
        put<Alpha>(out + kOutStep * unsigned(x), start, Alpha ? start[3] : 0u, mean(b), mean(g), mean(r));
    };
    // Columns x + dx lie between x and x + endDx.
    int insideBegin = p.endDx < 0 ? -p.endDx : 0, insideEnd = width - (p.endDx > 0 ? p.endDx : 0);
    insideBegin = insideBegin > xBegin ? insideBegin : xBegin;
    insideEnd = insideEnd < xEnd ? insideEnd : xEnd;
    if (insideEnd <= insideBegin) insideBegin = insideEnd = xEnd;
    for (int x = xBegin; x < insideBegin; ++x) clampedPixel(x);

    if constexpr (std::is_same_v<Rows, DirectRows>) {
        constexpr unsigned kStep = Alpha ? 4 : 3, kBlock = 256;
        std::uint16_t sum[kBlock * kStep];
        for (unsigned x0 = unsigned(insideBegin); x0 < unsigned(insideEnd); x0 += kBlock) {
            const unsigned count = unsigned(insideEnd) - x0 < kBlock ? unsigned(insideEnd) - x0 : kBlock;
            sumBlock<kStep>(own, sampleRows, p, x0, count, sum);
            const std::uint8_t* start = own + kStep * x0;
            std::uint8_t* o = out + kOutStep * x0;
            for (unsigned i = 0; i < count; ++i, o += kOutStep, start += kStep) {
                const std::uint16_t* s = sum + kStep * i;
                put<Alpha>(o, start, Alpha ? start[3] : 0u, mean(s[0]), mean(s[1]), mean(s[2]));
            }
        }
    } else {
        for (int x = insideBegin; x < insideEnd; ++x) {
            const std::uint8_t* start = src.pixel(own, x);
            unsigned b = start[0], g = start[1], r = start[2];
            for (int k = 0; k < p.n; ++k) {
                const std::uint8_t* c = src.pixel(sampleRows[k], x + p.dx[k]);
                b += c[0], g += c[1], r += c[2];
            }
            put<Alpha>(out + kOutStep * unsigned(x), start, 0u, mean(b), mean(g), mean(r));
        }
    }
    for (int x = insideEnd; x < xEnd; ++x) clampedPixel(x);
}

// Center and Radial Blur: the centre column walks on its own; to its right the
// growing magnitude is x - centreX, to its left centreX - x, so runs are found
// going outward from the centre on both sides. vector(x) gives pixel x's vector.
template <bool Alpha, class Rows, class Vector>
void blurOutward(const Rows& src, int y, int width, int height, int n, Growth growth, Vector vector,
                 std::uint8_t* out) {
    if (width == 0) return;
    const ChannelMean mean(unsigned(n) + 1);
    const int centreX = width >> 1;
    WalkPattern p;
    layOut(direction(vector(centreX).first, vector(centreX).second), n, Growth::None, p);
    blurRun<Alpha>(src, y, width, height, p, mean, centreX, centreX + 1, out);
    for (int x = centreX + 1; x < width;) {
        const auto v = vector(x);
        const int grow = layOut(direction(v.first, v.second), n, growth, p);
        const int end = grow >= width - x ? width : x + grow + 1;
        blurRun<Alpha>(src, y, width, height, p, mean, x, end, out);
        x = end;
    }
    for (int x = centreX - 1; x >= 0;) {
        const auto v = vector(x);
        const int grow = layOut(direction(v.first, v.second), n, growth, p);
        const int begin = grow >= x ? 0 : x - grow;
        blurRun<Alpha>(src, y, width, height, p, mean, begin, x + 1, out);
        x = begin - 1;
    }
}

struct VectorPair {
    int first, second;
};

// Motion Blur: one vector for the whole picture, so one walk serves the row.
template <bool Alpha, class Rows>
void motionBlurRow(const Frame& frame, int y, const Rows& src, std::uint8_t* out) {
    const int width = frame.width, height = frame.height;
    const int n = static_cast<int>((frame.progress * 15u) >> 14);
    WalkPattern p;
    layOut(motionDirection(frame.p1), n, Growth::None, p);
    blurRun<Alpha>(src, y, width, height, p, ChannelMean(unsigned(n) + 1), 0, width, out);
}

// Center Blur: outward along the line from the centre through each pixel.
template <bool Alpha, class Rows>
void centerBlurRow(const Frame& frame, int y, const Rows& src, std::uint8_t* out) {
    const int width = frame.width, height = frame.height;
    const int n = static_cast<int>(((unsigned(frame.p1) >> 3) * frame.progress) >> 14);
    const int vy = y - (height >> 1), centreX = width >> 1;
    blurOutward<Alpha>(src, y, width, height, n, Growth::X, [&](int x) { return VectorPair{x - centreX, vy}; },
                       out);
}

// Radial Blur: across that line, turning about the centre.
template <bool Alpha, class Rows>
void radialBlurRow(const Frame& frame, int y, const Rows& src, std::uint8_t* out) {
    const int width = frame.width, height = frame.height;
    const int n = static_cast<int>((frame.progress * 15u) >> 14);
    const int vx = y - (height >> 1), centreX = width >> 1;
    blurOutward<Alpha>(src, y, width, height, n, Growth::Y, [&](int x) { return VectorPair{vx, centreX - x}; },
                       out);
}

}  // namespace

FLR_ROW(MotionBlurLine1) {
    (void)carry;
    motionBlurRow<false>(frame, y, PaletteRows{frame.rows, frame.colourTable}, out);
}
FLR_ROW(MotionBlurLine2) {
    (void)carry;
    if (frame.hasAlpha)
        motionBlurRow<true>(frame, y, DirectRows{frame.rows, 4}, out);
    else
        motionBlurRow<false>(frame, y, DirectRows{frame.rows, 3}, out);
}

FLR_ROW(CenterBlurLine1) {
    (void)carry;
    centerBlurRow<false>(frame, y, PaletteRows{frame.rows, frame.colourTable}, out);
}
FLR_ROW(CenterBlurLine2) {
    (void)carry;
    if (frame.hasAlpha)
        centerBlurRow<true>(frame, y, DirectRows{frame.rows, 4}, out);
    else
        centerBlurRow<false>(frame, y, DirectRows{frame.rows, 3}, out);
}

FLR_ROW(RadialBlurLine1) {
    (void)carry;
    radialBlurRow<false>(frame, y, PaletteRows{frame.rows, frame.colourTable}, out);
}
FLR_ROW(RadialBlurLine2) {
    (void)carry;
    if (frame.hasAlpha)
        radialBlurRow<true>(frame, y, DirectRows{frame.rows, 4}, out);
    else
        radialBlurRow<false>(frame, y, DirectRows{frame.rows, 3}, out);
}
