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
// Operations also run chained from view to view: each filter pulls the rows
// it needs from the one before through its own ring, and a Simplify runs on
// each row as the operation before it finishes the row, so WaterColor's four
// operations take one pass over the picture and hold no picture between them.
// Given a parallel function, the rows run in bands; a band starts each
// filter's ring two rows before its own first row, and two more for each
// filter that follows.
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

// Sums of five neighbours across a padded row of triples (the row at p + 6)
// and of five such rows down, by the two kernels; plain loops that vectorise.
FLAIRIZE_CLONES void acrossBox(const std::uint8_t* p, std::uint16_t* a, std::size_t n) {
    for (std::size_t i = 0; i < n; ++i)
        a[i] = static_cast<std::uint16_t>(p[i] + p[i + 3] + p[i + 6] + p[i + 9] + p[i + 12]);
}
FLAIRIZE_CLONES void acrossBinomial(const std::uint8_t* p, std::uint16_t* a, std::size_t n) {
    for (std::size_t i = 0; i < n; ++i)
        a[i] = static_cast<std::uint16_t>(p[i] + 4 * p[i + 3] + 6 * p[i + 6] + 4 * p[i + 9] + p[i + 12]);
}
// Rounded means of the five rows r[0..4]; the rounded sums stay below 2^16
// (25 x 255 + 12, 256 x 255 + 128), so 16-bit lanes hold them.
FLAIRIZE_CLONES void downBox(const std::uint16_t* const* r, std::uint8_t* mean, std::size_t n) {
    const std::uint16_t *r0 = r[0], *r1 = r[1], *r2 = r[2], *r3 = r[3], *r4 = r[4];
    for (std::size_t i = 0; i < n; ++i)
        mean[i] = static_cast<std::uint8_t>(
            static_cast<std::uint16_t>(r0[i] + r1[i] + r2[i] + r3[i] + r4[i] + 12) / std::uint16_t(25));
}
FLAIRIZE_CLONES void downBinomial(const std::uint16_t* const* r, std::uint8_t* mean, std::size_t n) {
    const std::uint16_t *r0 = r[0], *r1 = r[1], *r2 = r[2], *r3 = r[3], *r4 = r[4];
    for (std::size_t i = 0; i < n; ++i)
        mean[i] = static_cast<std::uint8_t>(
            static_cast<std::uint16_t>(r0[i] + 4 * r1[i] + 6 * r2[i] + 4 * r3[i] + r4[i] + 128) >> 8);
}

// One row of Smooth: each byte of `centre` moved toward `mean` by its pixel's
// share, into `out` (bytes = 3 x width). `spread` has two spare bytes on each
// side; places[k * bytes + i] is 0xFF where byte i + k - 2 (k = 0, 1, 3, 4)
// belongs to the same pixel as byte i, 0 elsewhere.
FLAIRIZE_CLONES void smoothRow(const std::uint8_t* centre, const std::uint8_t* mean, std::uint8_t* out,
                               std::size_t bytes, std::uint8_t* spread, const std::uint8_t* places) {
    // A pixel's share comes from its largest channel difference. Every
    // byte takes the largest of its own pixel's three differences, the
    // neighbours of other pixels masked out by the byte's place, so each
    // loop is a plain one the compiler vectorises.
    std::uint8_t* diff = spread;
    diff[-2] = diff[-1] = diff[bytes] = diff[bytes + 1] = 0;
    for (std::size_t i = 0; i < bytes; ++i)
        diff[i] = static_cast<std::uint8_t>(mean[i] > centre[i] ? mean[i] - centre[i] : centre[i] - mean[i]);
    // The share is 256 only where all three differences are 0 and is 0
    // from 48 on, and below 48 no difference exceeds the largest, so
    // difference x share stays within 16 bits.
    const std::uint8_t *before2 = places, *before1 = before2 + bytes, *after1 = before1 + 2 * bytes,
                       *after2 = after1 + bytes;
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
        out[i] = static_cast<std::uint8_t>(centre[i] + moved / 256);
    }
}

// A chain of colour operations as stages: a 5 x 5 filter (none for a chain
// that starts with Simplify) followed by the Simplifies after it, which work
// pixel by pixel and so run on each row the filter finishes.
enum class Filter : std::uint8_t { None, Box, Binomial };
struct Stage {
    Filter filter;
    unsigned simplifies;
};
constexpr unsigned kMaxStages = 8;
constexpr std::uint32_t kBandRows = 32;   // rows per band the host may split further apart

// The stages of ops[0 .. count - 1]; 0 when there are more than kMaxStages.
unsigned stagesOf(const flairize::ColourOp* ops, unsigned count, Stage* stages) {
    unsigned n = 0;
    for (unsigned i = 0; i < count; ++i) {
        if (ops[i] == flairize::ColourOp::Simplify) {
            if (n == 0) stages[n++] = {Filter::None, 0};
            ++stages[n - 1].simplifies;
            continue;
        }
        if (n == kMaxStages) return 0;
        stages[n++] = {ops[i] == flairize::ColourOp::Smooth ? Filter::Box : Filter::Binomial, 0};
    }
    if (n == 0) stages[n++] = {Filter::None, 0};   // no operation: the source's colours
    return n;
}

// Output rows begin .. end - 1 of a chain. Each filter stage keeps a ring of
// the last five rows it was given (padded triples and their sums across) and
// pulls rows from the stage before as it needs them, so a band starts every
// stage two rows further up per filter after it and no stage's whole picture
// is ever held.
class ChainBand {
public:
    ChainBand(const dib::Source& src, const dib::View& out, const Stage* stages, unsigned count)
        : src_(src), out_(out), stages_(stages), count_(count), w_(src.layout().width), h_(src.layout().height),
          rowLen_(std::size_t(w_) * 3), padLen_(rowLen_ + 12),
          scratch_(count * kTaps * (padLen_ + rowLen_ * sizeof(std::uint16_t)) + 2 * rowLen_ + (rowLen_ + 4) +
                   5 * rowLen_) {}

    bool run(std::uint32_t begin, std::uint32_t end) {
        if (!scratch_.get()) return false;
        auto* base = static_cast<std::uint8_t*>(scratch_.get());
        auto* across = reinterpret_cast<std::uint16_t*>(base);   // first, for its alignment
        std::uint8_t* padded = base + count_ * kTaps * rowLen_ * sizeof(std::uint16_t);
        mean_ = padded + count_ * kTaps * padLen_;
        triples_ = mean_ + rowLen_;
        spread_ = triples_ + rowLen_ + 2;
        places_ = spread_ + rowLen_ + 2;
        for (std::size_t i = 0; i < rowLen_; ++i)
            for (unsigned k = 0; k < kTaps; ++k) {
                const std::size_t first = i - i % 3, j = i + k - 2;   // j wraps below 0 and so lies outside
                places_[k * rowLen_ + i] = j >= first && j < first + 3 ? 0xFF : 0;
            }
        // Stage k's first row lies two rows lower per filter after it; its
        // ring starts two rows lower still.
        std::uint32_t reach = 0;
        for (unsigned k = count_; k-- > 0;) {
            ring_[k].padded = padded + k * kTaps * padLen_;
            ring_[k].across = across + k * kTaps * rowLen_;
            if (stages_[k].filter == Filter::None) continue;
            reach += 2;
            ring_[k].fed = begin < reach ? 0 : begin - reach;
        }
        const bool alpha = out_.bitCount == 32;
        for (std::uint32_t y = begin; y < end; ++y) {
            std::uint8_t* o = out_.row(y);
            produce(count_ - 1, y, alpha ? triples_ : o);
            if (alpha) addAlpha(triples_, src_.row(y), o, w_);
        }
        return true;
    }

private:
    struct Ring {
        std::uint8_t* padded;    // kTaps rows of padLen bytes, row y's triples at + (y % kTaps) * padLen + 6
        std::uint16_t* across;   // kTaps rows of sums across
        std::uint32_t fed;       // the next row the ring takes in
    };

    // Stage k's row y as triples into dest; rows of a stage are asked for in
    // increasing order.
    void produce(unsigned k, std::uint32_t y, std::uint8_t* dest) {
        const Stage& stage = stages_[k];
        if (stage.filter == Filter::None) {
            std::uint8_t* pad = ring_[k].padded;
            loadPaddedRow(src_, y, pad);
            std::memcpy(dest, pad + 6, rowLen_);
        } else {
            Ring& ring = ring_[k];
            const std::uint32_t last = y + 2 < h_ ? y + 2 : h_ - 1;
            for (; ring.fed <= last; ++ring.fed) take(k, ring.fed);
            const std::uint16_t* r[kTaps];
            for (unsigned d = 0; d < kTaps; ++d) {
                const std::int64_t yy = std::int64_t(y) + d - 2;
                const std::uint32_t clamped = yy < 0 ? 0 : (yy >= h_ ? h_ - 1 : std::uint32_t(yy));
                r[d] = ring.across + (clamped % kTaps) * rowLen_;
            }
            if (stage.filter == Filter::Box) {
                downBox(r, mean_, rowLen_);
                smoothRow(ring.padded + (y % kTaps) * padLen_ + 6, mean_, dest, rowLen_, spread_, places_);
            } else {
                downBinomial(r, dest, rowLen_);
            }
        }
        for (unsigned i = 0; i < stage.simplifies; ++i) simplifyBytes(dest, dest, rowLen_);
    }

    // Row y of filter stage k's input into its ring: the source's, or the stage before's.
    void take(unsigned k, std::uint32_t y) {
        std::uint8_t* p = ring_[k].padded + (y % kTaps) * padLen_;
        if (k == 0) {
            loadPaddedRow(src_, y, p);
        } else {
            produce(k - 1, y, p + 6);
            for (unsigned c = 0; c < 3; ++c) {   // the end pixels twice more on each side
                p[c] = p[3 + c] = p[6 + c];
                p[6 + rowLen_ + c] = p[9 + rowLen_ + c] = p[3 + rowLen_ + c];
            }
        }
        std::uint16_t* a = ring_[k].across + (y % kTaps) * rowLen_;
        if (stages_[k].filter == Filter::Box)
            acrossBox(p, a, rowLen_);
        else
            acrossBinomial(p, a, rowLen_);
    }

    const dib::Source& src_;
    const dib::View& out_;
    const Stage* stages_;
    unsigned count_;
    std::uint32_t w_, h_;
    std::size_t rowLen_, padLen_;
    Scratch scratch_;
    Ring ring_[kMaxStages] = {};
    std::uint8_t *mean_ = nullptr, *triples_ = nullptr, *spread_ = nullptr, *places_ = nullptr;
};

// A whole picture's chain into a new picture.
HGLOBAL chainPicture(HGLOBAL picture, flairize::ColourOp op, ParallelFunction parallel, void* user) {
    dib::Source src(picture);
    if (!src.ok()) return hostops::failed(hostops::Failure::BadPicture);
    dib::Output out(src);
    if (!out.ok()) return hostops::failed(hostops::Failure::OutOfMemory);
    if (!hostops::colourChain(&op, 1, src.view(), out.view(), parallel, user))
        return hostops::failed(hostops::Failure::OutOfMemory);   // the output is freed with `out`
    return hostops::succeeded(out.release());
}

}  // namespace

namespace hostops {

HGLOBAL smooth(HGLOBAL picture, ParallelFunction parallel, void* user) {
    return chainPicture(picture, flairize::ColourOp::Smooth, parallel, user);
}

HGLOBAL soften(HGLOBAL picture, ParallelFunction parallel, void* user) {
    return chainPicture(picture, flairize::ColourOp::Soften, parallel, user);
}

bool colourChain(const flairize::ColourOp* ops, unsigned count, const dib::View& source, const dib::View& output,
                 ParallelFunction parallel, void* user) {
    Stage stages[kMaxStages];
    const unsigned n = stagesOf(ops, count, stages);
    if (n == 0 || source.width != output.width || source.height != output.height || !source.width ||
        !source.height || output.bitCount != (source.bitCount == 32 ? 32 : 24))
        return false;
    const dib::Source src(source);
    if (!src.ok()) return false;
    std::atomic<bool> failed{false};   // set by a band whose working memory cannot be had
    const std::uint32_t h = source.height, bands = (h + kBandRows - 1) / kBandRows;
    runBands(parallel, user, bands, [&](unsigned first, unsigned last) {
        const std::uint32_t end = last * kBandRows < h ? last * kBandRows : h;
        ChainBand band(src, output, stages, n);
        if (!band.run(first * kBandRows, end)) failed.store(true, std::memory_order_relaxed);
    });
    return !failed.load(std::memory_order_relaxed);
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
