// The host's whole-picture colour operations, as Flairize provides them. Each takes one picture and returns a new one of the same size: 24-bit
// in gives 24-bit out, 32-bit in gives 32-bit out with every pixel's alpha kept,
// 8-bit in gives 24-bit out read through the colour table. The input is never
// changed. All arithmetic is integer, so results are the same on every machine.
//
// Smooth (HUEKIT 22): edge-preserving smoothing. Each channel's 5 x 5 box mean
// (edges repeated, rounded) is computed; the pixel moves toward that mean by a
// share that falls from 1 at no difference to 0 when its largest channel
// difference from the mean reaches 48. Flat areas and fine texture are smoothed,
// while pixels beside strong edges keep their colour, so edges stay sharp.
//
// Simplify (HUEKIT 17): colour simplification. Each channel is rounded to the
// nearest of eight evenly spaced levels, 0, 36, 73, 109, 146, 182, 219, 255
// (512 colours). It is idempotent. Smooth, Simplify, Smooth, Simplify gives flat
// washes of colour with softened borders between them: a watercolour look.
//
// Soften (HUEKIT 21): a soft blur, the 5 x 5 binomial kernel (1 4 6 4 1 each
// way, edges repeated, rounded). After Frazzle's scatter it gives frosted glass.
//
// The two filters run separably over a ring of five rows, so they need working
// memory of a few rows only and take time in proportion to the pixel count.
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "engine/dib.h"
#include "platform/global_memory.h"
#include "platform/host_ops.h"

namespace {

constexpr unsigned kTaps = 5;

struct Box5 {
    static constexpr unsigned k[kTaps] = {1, 1, 1, 1, 1};
};
struct Binomial5 {
    static constexpr unsigned k[kTaps] = {1, 4, 6, 4, 1};
};

// Share (in 256ths) of the way from a pixel to its local mean, by the largest
// channel difference between them.
constexpr int kSmoothLimit = 48;
struct ShareTable {
    std::int16_t share[256] = {};
    constexpr ShareTable() {
        for (int d = 0; d < kSmoothLimit; ++d)
            share[d] = static_cast<std::int16_t>(((kSmoothLimit - d) * 256) / kSmoothLimit);
    }
};
constexpr ShareTable kShares{};

// The eight levels of Simplify, for every channel value.
struct LevelTable {
    std::uint8_t v[256] = {};
    constexpr LevelTable() {
        for (unsigned c = 0; c < 256; ++c) {
            const unsigned level = (c * 7 + 127) / 255;
            v[c] = static_cast<std::uint8_t>((level * 255 + 3) / 7);
        }
    }
};

// Working memory released on every path.
class Scratch {
public:
    explicit Scratch(std::size_t bytes) : p_(plat::localAlloc(bytes)) {}
    ~Scratch() { plat::localFree(p_); }
    Scratch(const Scratch&) = delete;
    Scratch& operator=(const Scratch&) = delete;
    void* get() const { return p_; }

private:
    void* p_;
};

// Source row y as blue, green, red triples, the first and last pixel repeated
// twice on each side: `pad` holds width + 4 pixels, the row starting at pad + 6.
void loadPaddedRow(const dib::Source& src, std::uint32_t y, std::uint8_t* pad) {
    const dib::Layout& in = src.layout();
    const std::size_t w = in.width;
    const std::uint8_t* s = src.row(y);
    std::uint8_t* d = pad + 6;
    if (in.bitCount == 8) {
        const std::uint8_t* table = src.colourTable();
        for (std::size_t x = 0; x < w; ++x, d += 3) {
            const std::uint8_t* e = table + 4u * s[x];
            d[0] = e[0], d[1] = e[1], d[2] = e[2];
        }
    } else if (in.bitCount == 24) {
        std::memcpy(d, s, 3 * w);
    } else {
        for (std::size_t x = 0; x < w; ++x, d += 3, s += 4) d[0] = s[0], d[1] = s[1], d[2] = s[2];
    }
    d = pad + 6;
    for (unsigned k = 0; k < 3; ++k) {
        pad[k] = pad[3 + k] = d[k];
        d[3 * w + k] = d[3 * w + 3 + k] = d[3 * (w - 1) + k];
    }
}

// Output row `out` from a row of blue, green, red triples: the triples
// themselves for 24-bit output, with the source pixels' alpha for 32-bit.
inline void putTriples(std::uint8_t* out, const std::uint8_t* triples, const std::uint8_t* srcRow, std::size_t w,
                       bool alpha) {
    if (!alpha) {
        std::memcpy(out, triples, 3 * w);
        return;
    }
    for (std::size_t x = 0; x < w; ++x, out += 4, triples += 3)
        out[0] = triples[0], out[1] = triples[1], out[2] = triples[2], out[3] = srcRow[4 * x + 3];
}

// Working rows a finish function may use: one 16-bit value and one byte per
// channel byte of the row.
struct Work {
    std::int16_t* shares;
    std::uint8_t* triples;
};

// Runs Kernel across and then down the picture (edges repeated). For each row,
// finish(centre, blurred, outRow, srcRow, width, hasAlpha, work) gets the source
// row as padded triples (row at centre), the rounded filtered triples, the
// output row and working rows.
template <class Kernel, class Finish>
HGLOBAL separableFilter(HGLOBAL picture, Finish finish) {
    dib::Source src(picture);
    if (!src.ok()) return nullptr;
    const std::uint32_t w = src.layout().width, h = src.layout().height;
    const std::size_t rowLen = std::size_t(w) * 3, padLen = rowLen + 12;
    Scratch scratch(kTaps * rowLen * sizeof(std::uint16_t) + rowLen * sizeof(std::int16_t) + kTaps * padLen +
                    2 * rowLen);
    if (!scratch.get()) return nullptr;
    dib::Output out(src);
    if (!out.ok()) return nullptr;

    auto* across = static_cast<std::uint16_t*>(scratch.get());   // kTaps rows of sums across
    auto* shares = reinterpret_cast<std::int16_t*>(across + kTaps * rowLen);  // finish's per-byte weights
    auto* padded = reinterpret_cast<std::uint8_t*>(shares + rowLen);
    std::uint8_t* blurred = padded + kTaps * padLen;
    std::uint8_t* triples = blurred + rowLen;   // finish's result row before alpha is added
    constexpr unsigned k0 = Kernel::k[0], k1 = Kernel::k[1], k2 = Kernel::k[2], k3 = Kernel::k[3],
                       k4 = Kernel::k[4];
    constexpr unsigned total = (k0 + k1 + k2 + k3 + k4) * (k0 + k1 + k2 + k3 + k4);

    // Row `y` of the ring: the source row and its sums across.
    auto prepare = [&](std::uint32_t y) {
        std::uint8_t* p = padded + (y % kTaps) * padLen;
        std::uint16_t* a = across + (y % kTaps) * rowLen;
        loadPaddedRow(src, y, p);
        for (std::size_t i = 0; i < rowLen; ++i)
            a[i] = static_cast<std::uint16_t>(k0 * p[i] + k1 * p[i + 3] + k2 * p[i + 6] + k3 * p[i + 9] +
                                              k4 * p[i + 12]);
    };
    prepare(0);
    if (h > 1) prepare(1);
    for (std::uint32_t y = 0; y < h; ++y) {
        if (y + 2 < h) prepare(y + 2);
        const std::uint16_t* r[kTaps];
        for (unsigned d = 0; d < kTaps; ++d) {
            const std::int64_t yy = std::int64_t(y) + d - 2;
            const std::uint32_t clamped = yy < 0 ? 0 : (yy >= h ? h - 1 : std::uint32_t(yy));
            r[d] = across + (clamped % kTaps) * rowLen;
        }
        // Rounded sums stay below 2^16 (25 x 255 + 12, 256 x 255 + 128), so
        // 16-bit lanes hold them.
        for (std::size_t i = 0; i < rowLen; ++i) {
            const auto rounded = static_cast<std::uint16_t>(k0 * r[0][i] + k1 * r[1][i] + k2 * r[2][i] +
                                                            k3 * r[3][i] + k4 * r[4][i] + total / 2);
            blurred[i] = static_cast<std::uint8_t>(rounded / std::uint16_t(total));
        }
        const Work work{shares, triples};
        finish(padded + (y % kTaps) * padLen + 6, blurred, out.row(y), src.row(y), w, src.hasAlpha(), work);
    }
    return out.release();
}

inline int absolute(int v) { return v < 0 ? -v : v; }

}  // namespace

namespace hostops {

HGLOBAL smooth(HGLOBAL picture) {
    return separableFilter<Box5>(picture, [](const std::uint8_t* centre, const std::uint8_t* mean,
                                             std::uint8_t* out, const std::uint8_t* srcRow, std::uint32_t w,
                                             bool alpha, const Work& work) {
        // Each pixel's share by its largest channel difference, for its three
        // bytes; then every byte moved by its share (a plain loop the compiler
        // vectorises), straight into a 24-bit output row.
        const std::size_t bytes = std::size_t(w) * 3;
        for (std::size_t i = 0; i < bytes; i += 3) {
            const int db = absolute(mean[i] - centre[i]), dg = absolute(mean[i + 1] - centre[i + 1]),
                      dr = absolute(mean[i + 2] - centre[i + 2]);
            const int largestBg = db > dg ? db : dg, largest = largestBg > dr ? largestBg : dr;
            work.shares[i] = work.shares[i + 1] = work.shares[i + 2] = kShares.share[largest];
        }
        std::uint8_t* smoothed = alpha ? work.triples : out;
        for (std::size_t i = 0; i < bytes; ++i)
            smoothed[i] = static_cast<std::uint8_t>(centre[i] + (mean[i] - centre[i]) * work.shares[i] / 256);
        if (alpha) putTriples(out, smoothed, srcRow, w, true);
    });
}

HGLOBAL soften(HGLOBAL picture) {
    return separableFilter<Binomial5>(picture, [](const std::uint8_t*, const std::uint8_t* blurred,
                                                  std::uint8_t* out, const std::uint8_t* srcRow,
                                                  std::uint32_t w, bool alpha, const Work&) {
        putTriples(out, blurred, srcRow, w, alpha);
    });
}

HGLOBAL simplify(HGLOBAL picture) {
    dib::Source src(picture);
    if (!src.ok()) return nullptr;
    const dib::Layout& in = src.layout();
    Scratch scratch((std::size_t(in.width) + 4) * 3);
    if (!scratch.get()) return nullptr;
    dib::Output out(src);
    if (!out.ok()) return nullptr;
    static constexpr LevelTable levels{};
    auto* row = static_cast<std::uint8_t*>(scratch.get());
    const std::size_t w = in.width;
    for (std::uint32_t y = 0; y < in.height; ++y) {
        const std::uint8_t* s = src.row(y);
        std::uint8_t* o = out.row(y);
        if (in.bitCount == 24) {   // byte for byte
            for (std::size_t i = 0; i < 3 * w; ++i) o[i] = levels.v[s[i]];
        } else if (in.bitCount == 32) {
            for (std::size_t x = 0; x < w; ++x, o += 4, s += 4)
                o[0] = levels.v[s[0]], o[1] = levels.v[s[1]], o[2] = levels.v[s[2]], o[3] = s[3];
        } else {
            loadPaddedRow(src, y, row);
            const std::uint8_t* p = row + 6;
            for (std::size_t i = 0; i < 3 * w; ++i) o[i] = levels.v[p[i]];
        }
    }
    return out.release();
}

}  // namespace hostops
