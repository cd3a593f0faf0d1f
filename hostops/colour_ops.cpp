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
// Given a parallel function, every operation runs in bands of rows; a band of
// a filter starts its ring two rows above its first row.
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "engine/bands.h"
#include "engine/dib.h"
#include "engine/vector_clones.h"
#include "platform/global_memory.h"
#include "hostops/host_ops.h"


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
// The share as smooth computes it in vector lanes: 256 / 48 is 16 / 3.
constexpr int shareOf(int d) { return d < kSmoothLimit ? (kSmoothLimit - d) * 16 / 3 : 0; }
constexpr bool sharesAgree() {
    constexpr ShareTable table{};
    for (int d = 0; d < 256; ++d)
        if (table.share[d] != shareOf(d)) return false;
    return true;
}
static_assert(sharesAgree(), "the shares computed in lanes differ from the table");

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

// Simplify by comparisons instead of table look-ups, so that whole rows run in
// vector lanes: the level rises by rise[k] at the first value of level k + 1.
struct LevelSteps {
    std::uint8_t first[7] = {};
    std::uint8_t rise[7] = {};
    constexpr LevelSteps() {
        constexpr LevelTable table{};
        unsigned k = 0;
        for (unsigned c = 1; c < 256; ++c)
            if (table.v[c] != table.v[c - 1]) {
                first[k] = static_cast<std::uint8_t>(c);
                rise[k] = static_cast<std::uint8_t>(table.v[c] - table.v[c - 1]);
                ++k;
            }
    }
};

inline std::uint8_t simplified(std::uint8_t c) {
    constexpr LevelSteps k{};
    return static_cast<std::uint8_t>((c >= k.first[0]) * k.rise[0] + (c >= k.first[1]) * k.rise[1] +
                                     (c >= k.first[2]) * k.rise[2] + (c >= k.first[3]) * k.rise[3] +
                                     (c >= k.first[4]) * k.rise[4] + (c >= k.first[5]) * k.rise[5] +
                                     (c >= k.first[6]) * k.rise[6]);
}

// n bytes of a row simplified.
FLAIRIZE_CLONES void simplifyBytes(const std::uint8_t* s, std::uint8_t* o, std::size_t n) {
    for (std::size_t i = 0; i < n; ++i) o[i] = simplified(s[i]);
}

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

// The triples of w pixels of 4 bytes, and w pixels of 4 bytes from triples
// with the alpha of `alpha`'s pixels; plain loops kept apart so they vectorise.
FLAIRIZE_CLONES void dropAlpha(const std::uint8_t* s, std::uint8_t* d, std::size_t w) {
    for (std::size_t x = 0; x < w; ++x) d[3 * x] = s[4 * x], d[3 * x + 1] = s[4 * x + 1], d[3 * x + 2] = s[4 * x + 2];
}
FLAIRIZE_CLONES void addAlpha(const std::uint8_t* triples, const std::uint8_t* alpha, std::uint8_t* out,
                              std::size_t w) {
    for (std::size_t x = 0; x < w; ++x)
        out[4 * x] = triples[3 * x], out[4 * x + 1] = triples[3 * x + 1], out[4 * x + 2] = triples[3 * x + 2],
                out[4 * x + 3] = alpha[4 * x + 3];
}

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
        dropAlpha(s, d, w);
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
    addAlpha(triples, srcRow, out, w);
}

// Working rows a finish function may use: one 16-bit value and one byte per
// channel byte of the row, and a row of bytes with two spare on each side.
// Places: places[k * rowBytes + i] is 0xFF where byte i + k - 2 (k = 0, 1, 3,
// 4) belongs to the same pixel as byte i, 0 elsewhere.
struct Work {
    std::int16_t* shares;
    std::uint8_t* triples;
    std::uint8_t* spread;   // spread[-2] .. spread[3 * width + 1]
    const std::uint8_t* places;
};

// Rows begin .. end - 1 of Kernel run across and then down the picture (edges
// repeated). For each row, finish(centre, blurred, outRow, srcRow, width,
// hasAlpha, work) gets the source row as padded triples (row at centre), the
// rounded filtered triples, the output row and working rows. False when the
// working memory cannot be had.
template <class Kernel, class Finish>
FLAIRIZE_CLONES bool filterBand(const dib::Source& src, const dib::Output& out, std::uint32_t begin, std::uint32_t end,
                const Finish& finish) {
    const std::uint32_t w = src.layout().width, h = src.layout().height;
    const std::size_t rowLen = std::size_t(w) * 3, padLen = rowLen + 12;
    Scratch scratch(kTaps * rowLen * sizeof(std::uint16_t) + rowLen * sizeof(std::int16_t) + kTaps * padLen +
                    3 * rowLen + 4 + 5 * rowLen);
    if (!scratch.get()) return false;
    auto* across = static_cast<std::uint16_t*>(scratch.get());   // kTaps rows of sums across
    auto* shares = reinterpret_cast<std::int16_t*>(across + kTaps * rowLen);  // finish's per-byte weights
    auto* padded = reinterpret_cast<std::uint8_t*>(shares + rowLen);
    std::uint8_t* blurred = padded + kTaps * padLen;
    std::uint8_t* triples = blurred + rowLen;   // finish's result row before alpha is added
    std::uint8_t* spread = triples + rowLen + 2;
    std::uint8_t* places = spread + rowLen + 2;
    for (std::size_t i = 0; i < rowLen; ++i)
        for (unsigned k = 0; k < 5; ++k) {
            const std::size_t first = i - i % 3, j = i + k - 2;   // j wraps below 0 and so lies outside
            places[k * rowLen + i] = j >= first && j < first + 3 ? 0xFF : 0;
        }
    constexpr unsigned k0 = Kernel::k[0], k1 = Kernel::k[1], k2 = Kernel::k[2], k3 = Kernel::k[3],
                       k4 = Kernel::k[4];
    constexpr unsigned total = (k0 + k1 + k2 + k3 + k4) * (k0 + k1 + k2 + k3 + k4);

    // Row `y` of the ring: the source row and its sums across.
    auto prepare = [&src, padded, across, rowLen, padLen](std::uint32_t y) {
        std::uint8_t* p = padded + (y % kTaps) * padLen;
        std::uint16_t* a = across + (y % kTaps) * rowLen;
        loadPaddedRow(src, y, p);
        for (std::size_t i = 0; i < rowLen; ++i)
            a[i] = static_cast<std::uint16_t>(k0 * p[i] + k1 * p[i + 3] + k2 * p[i + 6] + k3 * p[i + 9] +
                                              k4 * p[i + 12]);
    };
    // The ring starts two rows above the band's first row.
    for (std::uint32_t y = begin < 2 ? 0 : begin - 2; y < begin + 2 && y < h; ++y) prepare(y);
    for (std::uint32_t y = begin; y < end; ++y) {
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
        const Work work{shares, triples, spread, places};
        finish(padded + (y % kTaps) * padLen + 6, blurred, out.row(y), src.row(y), w, src.hasAlpha(), work);
    }
    return true;
}

// The whole picture through filterBand, in bands where `parallel` is given.
template <class Kernel, class Finish>
HGLOBAL separableFilter(HGLOBAL picture, ParallelFunction parallel, void* user, Finish finish) {
    dib::Source src(picture);
    if (!src.ok()) return hostops::failed(hostops::Failure::BadPicture);
    dib::Output out(src);
    if (!out.ok()) return hostops::failed(hostops::Failure::OutOfMemory);
    std::atomic<bool> failed{false};   // set by a band whose working memory cannot be had
    runBands(parallel, user, src.layout().height, [&](unsigned begin, unsigned end) {
        if (!filterBand<Kernel>(src, out, begin, end, finish)) failed.store(true, std::memory_order_relaxed);
    });
    // the output is freed with `out`
    if (failed.load(std::memory_order_relaxed)) return hostops::failed(hostops::Failure::OutOfMemory);
    return hostops::succeeded(out.release());
}

// One row of Smooth: each byte of `centre` moved toward `mean` by its pixel's share.
FLAIRIZE_CLONES void smoothRow(const std::uint8_t* centre, const std::uint8_t* mean, std::uint8_t* out,
                               const std::uint8_t* srcRow, std::uint32_t w, bool alpha, const Work& work) {
    // A pixel's share comes from its largest channel difference. Every
    // byte takes the largest of its own pixel's three differences, the
    // neighbours of other pixels masked out by the byte's place, so each
    // loop is a plain one the compiler vectorises.
    const std::size_t bytes = std::size_t(w) * 3;
    std::uint8_t* diff = work.spread;
    diff[-2] = diff[-1] = diff[bytes] = diff[bytes + 1] = 0;
    for (std::size_t i = 0; i < bytes; ++i)
        diff[i] = static_cast<std::uint8_t>(mean[i] > centre[i] ? mean[i] - centre[i] : centre[i] - mean[i]);
    // The share is 256 only where all three differences are 0 and is 0
    // from 48 on, and below 48 no difference exceeds the largest, so
    // difference x share stays within 16 bits.
    const std::uint8_t *before2 = work.places, *before1 = before2 + bytes, *after1 = before1 + 2 * bytes,
                       *after2 = after1 + bytes;
    std::uint8_t* smoothed = alpha ? work.triples : out;
    // The two differences before byte i, indexed from i: diff[i - 2] would
    // wrap the unsigned index at i = 0.
    const std::uint8_t *diffBack2 = diff - 2, *diffBack1 = diff - 1;
    for (std::size_t i = 0; i < bytes; ++i) {
        std::uint8_t largest = diff[i];
        const std::uint8_t others[4] = {
            std::uint8_t(diffBack2[i] & before2[i]), std::uint8_t(diffBack1[i] & before1[i]),
            std::uint8_t(diff[i + 1] & after1[i]), std::uint8_t(diff[i + 2] & after2[i])};
        for (const std::uint8_t n : others) largest = n > largest ? n : largest;
        const int share = shareOf(largest);
        const auto moved = static_cast<std::int16_t>((mean[i] - centre[i]) * share);
        smoothed[i] = static_cast<std::uint8_t>(centre[i] + moved / 256);
    }
    if (alpha) putTriples(out, smoothed, srcRow, w, true);
}

}  // namespace

namespace hostops {

HGLOBAL smooth(HGLOBAL picture, ParallelFunction parallel, void* user) {
    return separableFilter<Box5>(picture, parallel, user, smoothRow);
}

HGLOBAL soften(HGLOBAL picture, ParallelFunction parallel, void* user) {
    return separableFilter<Binomial5>(picture, parallel, user, [](const std::uint8_t*, const std::uint8_t* blurred,
                                                                  std::uint8_t* out, const std::uint8_t* srcRow,
                                                                  std::uint32_t w, bool alpha, const Work&) {
        putTriples(out, blurred, srcRow, w, alpha);
    });
}

HGLOBAL simplify(HGLOBAL picture, ParallelFunction parallel, void* user) {
    dib::Source src(picture);
    if (!src.ok()) return failed(Failure::BadPicture);
    const dib::Layout& in = src.layout();
    dib::Output out(src);
    if (!out.ok()) return failed(Failure::OutOfMemory);
    std::atomic<bool> failed{false};   // set by a band whose working memory cannot be had
    runBands(parallel, user, in.height, [&](unsigned begin, unsigned end) {
        const std::size_t w = in.width;   // a local, so that the loops' lengths stay in registers
        Scratch scratch(in.bitCount == 8 ? (w + 4) * 3 : 1);
        if (!scratch.get()) {
            failed.store(true, std::memory_order_relaxed);
            return;
        }
        auto* row = static_cast<std::uint8_t*>(scratch.get());
        for (std::uint32_t y = begin; y < end; ++y) {
            const std::uint8_t* s = src.row(y);
            std::uint8_t* o = out.row(y);
            if (in.bitCount == 24) {   // byte for byte
                simplifyBytes(s, o, 3 * w);
            } else if (in.bitCount == 32) {   // every byte, then the alpha put back
                simplifyBytes(s, o, 4 * w);
                for (std::size_t x = 3; x < 4 * w; x += 4) o[x] = s[x];
            } else {
                loadPaddedRow(src, y, row);
                const std::uint8_t* p = row + 6;
                simplifyBytes(p, o, 3 * w);
            }
        }
    });
    if (failed.load(std::memory_order_relaxed)) return hostops::failed(Failure::OutOfMemory);
    return succeeded(out.release());
}

}  // namespace hostops
