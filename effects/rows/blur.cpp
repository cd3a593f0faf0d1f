// Blur effects: Motion Blur, Center Blur and Radial Blur. Each output pixel is
// the plain average of the source pixel and the samples of an integer walk that
// starts at it (effects/rows/walk.h); the effects differ in the walk's
// direction and length.
//
// A row is summed step by step rather than pixel by pixel: step k of a pixel's
// walk adds the source pixel at an offset (dx, dy) from it, and that offset is
// the same for whole stretches of neighbouring pixels. Each stretch is added
// in one plain loop over a shifted source row that the compiler vectorises.
#include <cstddef>
#include <type_traits>

#include "effects/effects.h"
#include "effects/rows/row_pixels.h"
#include "effects/rows/vector_loops.h"
#include "effects/rows/walk.h"
#include "engine/pixel.h"

namespace {

using namespace rowpx;

// sum[i] += bytes[i] for i < count.
FLR_VECTOR_LOOP void addBytes(std::uint16_t* sum, const std::uint8_t* bytes, unsigned count) {
    for (unsigned i = 0; i < count; ++i) sum[i] = static_cast<std::uint16_t>(sum[i] + bytes[i]);
}

// out[i] = sum[i] / (n + 1) for i < count, by the mean's multiply and shift.
FLR_VECTOR_LOOP void meanBytes(const std::uint16_t* sum, std::uint32_t multiplier, unsigned count,
                             std::uint8_t* out) {
    for (unsigned i = 0; i < count; ++i) out[i] = static_cast<std::uint8_t>((sum[i] * multiplier) >> 18);
}

inline int clampBetween(int v, int lo, int hi) { return v < lo ? lo : (v > hi ? hi : v); }

// The channel sums of columns c0 .. c1 - 1 of row y, starting with the
// pixels themselves. Step bytes a pixel: a direct source's own (an alpha byte
// is summed along and not used), or blue, green, red for a palette source.
template <class Rows>
class RowSums {
public:
    static constexpr unsigned kChunk = 2048;   // columns summed at a time
    static constexpr bool kDirect = std::is_same_v<Rows, DirectRows>;

    RowSums(const Rows& src, int y, int width, int height, int c0, int c1)
        : src_(src), y_(y), width_(width), height_(height), c0_(c0) {
        const std::uint8_t* own = src.rows[y];
        if constexpr (kDirect) {
            step_ = src.step;
            const unsigned bytes = step_ * unsigned(c1 - c0);
            const std::uint8_t* start = own + step_ * unsigned(c0);
            for (unsigned i = 0; i < bytes; ++i) sum_[i] = start[i];
        } else {
            step_ = 3;
            for (int x = c0; x < c1; ++x) {
                const std::uint8_t* c = src.pixel(own, x);
                std::uint16_t* s = sum_ + 3 * unsigned(x - c0);
                s[0] = c[0], s[1] = c[1], s[2] = c[2];
            }
        }
    }

    // Pixels begin .. end - 1 walk as p.
    void add(int begin, int end, const WalkPattern& p) {
        for (int k = 0; k < p.n; ++k) addStretch(begin, end, p.dx[k], y_ + p.dy[k]);
    }

    // Pixels begin .. end - 1 (of the columns summed) add the source pixel dx
    // columns along on row `row`, column and row clamped to the picture.
    void addStretch(int begin, int end, int dx, int row) {
        if (begin >= end) return;
        const std::uint8_t* line = src_.rows[clampTo(row, height_ - 1)];
        // Columns x + dx left of the picture read column 0, right of it the last.
        const int insideBegin = clampBetween(-dx, begin, end);
        const int insideEnd = clampBetween(width_ - dx, insideBegin, end);
        if (insideBegin > begin) {
            const std::uint8_t* c = src_.pixel(line, 0);
            for (int x = begin; x < insideBegin; ++x) addPixel(x, c);
        }
        if constexpr (kDirect) {
            addBytes(sum_ + step_ * unsigned(insideBegin - c0_), line + step_ * unsigned(insideBegin + dx),
                     step_ * unsigned(insideEnd - insideBegin));
        } else {
            for (int x = insideBegin; x < insideEnd; ++x) addPixel(x, src_.pixel(line, x + dx));
        }
        if (insideEnd < end) {
            const std::uint8_t* c = src_.pixel(line, width_ - 1);
            for (int x = insideEnd; x < end; ++x) addPixel(x, c);
        }
    }

    const std::uint16_t* sums() const { return sum_; }
    unsigned step() const { return step_; }

private:
    void addPixel(int x, const std::uint8_t* c) {
        std::uint16_t* s = sum_ + step_ * unsigned(x - c0_);
        s[0] = static_cast<std::uint16_t>(s[0] + c[0]);
        s[1] = static_cast<std::uint16_t>(s[1] + c[1]);
        s[2] = static_cast<std::uint16_t>(s[2] + c[2]);
    }

    const Rows& src_;
    int y_, width_, height_, c0_;
    unsigned step_;
    std::uint16_t sum_[kChunk * 4];
};

// Writes the averages of columns c0 .. c1 - 1 from their sums.
template <bool Alpha, class Rows>
void putMeans(const Rows& src, int y, int c0, int c1, const RowSums<Rows>& sums, const ChannelMean& mean,
              std::uint8_t* out) {
    constexpr unsigned kOutStep = Alpha ? 4 : 3;
    const unsigned count = unsigned(c1 - c0), sumStep = sums.step();
    if constexpr (!Alpha) {
        if (sumStep == 3) {   // the means are the output bytes
            meanBytes(sums.sums(), mean.multiplier, 3 * count, out + 3 * unsigned(c0));
            return;
        }
    } else {
        if (sumStep == 4) {   // the means, alpha bytes too, then the alpha mix puts those back
            meanBytes(sums.sums(), mean.multiplier, 4 * count, out + 4 * unsigned(c0));
            mixRowInPlace(src.rows[y] + 4 * unsigned(c0), out + 4 * unsigned(c0), count);
            return;
        }
    }
    std::uint8_t means[RowSums<Rows>::kChunk * 4];
    meanBytes(sums.sums(), mean.multiplier, sumStep * count, means);
    const std::uint8_t* own = src.rows[y];
    for (unsigned i = 0; i < count; ++i) {
        const std::uint8_t* s = src.pixel(own, c0 + int(i));
        const std::uint8_t* v = means + sumStep * i;
        put<Alpha>(out + kOutStep * (unsigned(c0) + i), s, Alpha ? s[3] : 0u, v[0], v[1], v[2]);
    }
}

constexpr int kFar = 1 << 30;   // beyond any magnitude

// Floor of b / a for a > 0.
inline int floorDiv(int b, int a) { return b >= 0 ? b / a : -((a - 1 - b) / a); }

// The walks of one side of the centre column: fixed signs and one fixed
// magnitude, the other magnitude m = |x - centreX| growing outward. Step k
// (0-based) of a walk has taken some number a of x steps; here, for each a,
// the magnitudes m for which it is exactly a.
//
// The walk merges the counter values ey = sy + a my (taken by x steps) and
// ex = sx + b mx (taken by y steps), the smaller first and ex on a tie. So the
// a-th x step is among the first k + 1 steps exactly when
//     sy + (a - 1) my < sx + (k + 1 - a) mx,
// and when it holds for a it holds for every smaller a. With mx growing it
// holds from some m on, with my growing up to some m.
struct SideWalks {
    Growth growth;
    int sx, sy, fixed;

    // Magnitudes lo[a] .. hi[a] give exactly a x steps by step k, a = 0 .. k + 1.
    void ranges(int k, int* lo, int* hi) const {
        // reach[a]: for mx growing the least m with at least a x steps, for my
        // growing the greatest; reach[0] and reach[k + 2] are the open ends.
        int reach[kMaxSteps + 2];
        if (growth == Growth::X) {
            reach[0] = -kFar;
            for (int a = 1; a <= k + 1; ++a) {
                const int slope = k + 1 - a, rest = sy - sx + (a - 1) * fixed;
                reach[a] = slope == 0 ? (rest < 0 ? -kFar : kFar) : floorDiv(rest, slope) + 1;
            }
            reach[k + 2] = kFar;
            for (int a = 0; a <= k + 1; ++a) lo[a] = reach[a], hi[a] = reach[a + 1] - 1;
        } else {
            reach[0] = kFar;
            for (int a = 1; a <= k + 1; ++a) {
                const int room = sx - sy + (k + 1 - a) * fixed;
                reach[a] = a == 1 ? (room > 0 ? kFar : -kFar) : floorDiv(room - 1, a - 1);
            }
            reach[k + 2] = -kFar;
            for (int a = 0; a <= k + 1; ++a) lo[a] = reach[a + 1] + 1, hi[a] = reach[a];
        }
    }
};

// Adds steps 0 .. n - 1 of the walks of the pixels of one side that lie in
// columns c0 .. c1 - 1: pixel x = centreX + side m, m = 1, 2, ...
template <class Rows>
void addSide(RowSums<Rows>& sums, const SideWalks& walks, int side, int centreX, int y, int n, int c0, int c1) {
    // The magnitudes of the side's columns within c0 .. c1 - 1.
    const int nearest = side > 0 ? c0 - centreX : centreX - (c1 - 1);
    const int mLo = nearest > 1 ? nearest : 1, mHi = side > 0 ? c1 - 1 - centreX : centreX - c0;
    if (mHi < mLo) return;
    int lo[kMaxSteps + 2], hi[kMaxSteps + 2];
    for (int k = 0; k < n; ++k) {
        walks.ranges(k, lo, hi);
        for (int a = 0; a <= k + 1; ++a) {
            const int from = lo[a] > mLo ? lo[a] : mLo, to = hi[a] < mHi ? hi[a] : mHi;
            if (from > to) continue;
            const int dx = walks.sx * a, row = y + walks.sy * (k + 1 - a);
            if (side > 0)
                sums.addStretch(centreX + from, centreX + to + 1, dx, row);
            else
                sums.addStretch(centreX - to, centreX - from + 1, dx, row);
        }
    }
}

// Center Blur (growth X: vector (x - centreX, vy)) and Radial Blur (growth Y:
// vector (vx, centreX - x)); `fixed` is the row's component. The centre column
// walks on its own.
template <bool Alpha, class Rows>
void blurOutward(const Rows& src, int y, int width, int height, int n, Growth growth, int fixed,
                 std::uint8_t* out) {
    const ChannelMean mean(unsigned(n) + 1);
    const int centreX = width >> 1;
    constexpr int kChunk = int(RowSums<Rows>::kChunk);
    const int rowSign = sign(fixed), rowMagnitude = fixed < 0 ? -fixed : fixed;
    // The sign of the growing component on side +1 (right) or -1 (left):
    // x - centreX for Center Blur, centreX - x for Radial Blur.
    auto sideWalks = [&](int side) {
        return growth == Growth::X ? SideWalks{growth, side, rowSign, rowMagnitude}
                                   : SideWalks{growth, rowSign, -side, rowMagnitude};
    };
    for (int c0 = 0; c0 < width; c0 += kChunk) {
        const int c1 = width - c0 < kChunk ? width : c0 + kChunk;
        RowSums<Rows> sums(src, y, width, height, c0, c1);
        if (centreX >= c0 && centreX < c1) {
            WalkPattern p;
            layOut(growth == Growth::X ? direction(0, fixed) : direction(fixed, 0), n, Growth::None, p);
            sums.add(centreX, centreX + 1, p);
        }
        addSide(sums, sideWalks(1), 1, centreX, y, n, c0, c1);
        addSide(sums, sideWalks(-1), -1, centreX, y, n, c0, c1);
        putMeans<Alpha>(src, y, c0, c1, sums, mean, out);
    }
}

// Motion Blur: one vector for the whole picture, so one walk serves the row.
template <bool Alpha, class Rows>
void motionBlurRow(const Frame& frame, int y, const Rows& src, std::uint8_t* out) {
    const int width = frame.width, height = frame.height;
    const int n = static_cast<int>((frame.progress * 15u) >> 14);
    constexpr int kChunk = int(RowSums<Rows>::kChunk);
    WalkPattern p;
    layOut(motionDirection(frame.p1), n, Growth::None, p);
    for (int c0 = 0; c0 < width; c0 += kChunk) {
        const int c1 = width - c0 < kChunk ? width : c0 + kChunk;
        RowSums<Rows> sums(src, y, width, height, c0, c1);
        sums.add(c0, c1, p);
        putMeans<Alpha>(src, y, c0, c1, sums, ChannelMean(unsigned(n) + 1), out);
    }
}

// Center Blur: outward along the line from the centre through each pixel.
template <bool Alpha, class Rows>
void centerBlurRow(const Frame& frame, int y, const Rows& src, std::uint8_t* out) {
    const int n = static_cast<int>(((unsigned(frame.p1) >> 3) * frame.progress) >> 14);
    blurOutward<Alpha>(src, y, frame.width, frame.height, n, Growth::X, y - (frame.height >> 1), out);
}

// Radial Blur: across that line, turning about the centre.
template <bool Alpha, class Rows>
void radialBlurRow(const Frame& frame, int y, const Rows& src, std::uint8_t* out) {
    const int n = static_cast<int>((frame.progress * 15u) >> 14);
    blurOutward<Alpha>(src, y, frame.width, frame.height, n, Growth::Y, y - (frame.height >> 1), out);
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
