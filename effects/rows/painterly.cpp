// Painterly effects: Dark Strokes, Fresco and Stamp.
#include <cstddef>
#include <type_traits>

#include "effects/effects.h"
#include "effects/rows/row_pixels.h"
#include "effects/rows/vector_loops.h"
#include "engine/pixel.h"

namespace {

using namespace rowpx;

// Pushes every channel away from middle grey by the pixel's own luminance. The
// shift depends only on the luminance (0..253), so it is looked up per row.
template <bool Alpha, class Rows>
void darkStrokesRow(unsigned y, std::uint32_t progress, unsigned width, const Rows& src, std::uint8_t* out) {
    int shiftOf[254];
    for (int l = 0; l < 254; ++l) shiftOf[l] = static_cast<int>((std::int64_t(l - 127) * progress) / 16384);
    constexpr unsigned step = Alpha ? 4 : 3;
    for (unsigned x = 0; x < width; ++x, out += step) {
        const std::uint8_t* c = src.at(x, y);
        const int d = shiftOf[luminanceAt(c)];
        put<Alpha>(out, c, Alpha ? c[3] : 0u, unsigned(px::clamp255(c[0] + d)), unsigned(px::clamp255(c[1] + d)),
                   unsigned(px::clamp255(c[2] + d)));
    }
}

// One column of the 3 x 3 neighbourhood: the rows y - 1, y, y + 1 that exist,
// bottom first, each entry its luminance key over its colour (key << 24 | r << 16 | g << 8 | b).
struct NeighbourColumn {
    std::uint32_t entry[3] = {0, 0, 0};
};

template <class Rows>
inline NeighbourColumn neighbourColumn(const Rows& src, unsigned x, unsigned y0, unsigned count) {
    NeighbourColumn column;
    for (unsigned i = 0; i < count; ++i) {
        const std::uint8_t* p = src.at(x, y0 + i);
        const auto key = static_cast<std::uint32_t>(px::luminance(p[0], p[1], p[2]));
        column.entry[i] = key << 24 | std::uint32_t(p[2]) << 16 | std::uint32_t(p[1]) << 8 | p[0];
    }
    return column;
}

inline unsigned keyOf(std::uint32_t entry) { return entry >> 24; }

// The entry picked from a sorted neighbourhood of n entries: one above the
// middle. A single entry (a 1 x 1 picture) is its own pick.
inline unsigned pickPosition(unsigned n) {
    const unsigned pick = (n + 1) / 2;
    return pick >= n ? n - 1 : pick;
}

template <class T>
inline void orderPair(T& a, T& b) {
    const T lo = a < b ? a : b;
    b = a < b ? b : a;
    a = lo;
}

// The key at sorted position 5 of nine, by a fixed sorting network (no
// branches; the compiler drops the exchanges that do not reach position 5).
template <class T>
inline T sixthSmallest(T k0, T k1, T k2, T k3, T k4, T k5, T k6, T k7, T k8) {
    orderPair(k0, k3), orderPair(k1, k7), orderPair(k2, k5), orderPair(k4, k8);
    orderPair(k0, k7), orderPair(k2, k4), orderPair(k3, k8), orderPair(k5, k6);
    orderPair(k0, k2), orderPair(k1, k3), orderPair(k4, k5), orderPair(k7, k8);
    orderPair(k1, k4), orderPair(k3, k6), orderPair(k5, k7);
    orderPair(k0, k1), orderPair(k2, k4), orderPair(k3, k5), orderPair(k6, k8);
    orderPair(k2, k3), orderPair(k4, k5), orderPair(k6, k7);
    orderPair(k1, k2), orderPair(k3, k4), orderPair(k5, k6);
    return k5;
}

// The key at the pick position of the n keys (n <= 9) in ascending order.
inline unsigned pickedKey(const std::uint32_t* e, unsigned n) {
    if (n == 9)
        return sixthSmallest(keyOf(e[0]), keyOf(e[1]), keyOf(e[2]), keyOf(e[3]), keyOf(e[4]), keyOf(e[5]), keyOf(e[6]),
                             keyOf(e[7]), keyOf(e[8]));
    unsigned keys[9];
    for (unsigned i = 0; i < n; ++i) keys[i] = keyOf(e[i]);
    for (unsigned i = 1; i < n; ++i)
        for (unsigned j = i; j > 0 && keys[j - 1] > keys[j]; --j) orderPair(keys[j - 1], keys[j]);
    return keys[pickPosition(n)];
}

// The entry that the exchange procedure (for i = 1 .. n - 1, for j = 0 .. i - 1:
// exchange entries j and i when key j > key i) leaves at position k, without
// running it. Inserting entry i puts it after every key up to its own and
// rotates each run of equal greater keys by one: the run's first entry moves
// to the run's end. So the run of the picked key K is built by appending the
// entries of key K in list order and rotating it once for every later entry
// with a key below K; the pick is its entry k - (number of keys below K).
inline std::uint32_t pickAfterExchangeSort(const std::uint32_t* e, unsigned n) {
    const unsigned k = pickPosition(n), picked = pickedKey(e, n);
    unsigned below = 0, equal = 0;
    std::uint32_t last = 0;
    for (unsigned i = 0; i < n; ++i) {
        const unsigned key = keyOf(e[i]);
        below += key < picked;
        equal += key == picked;
        last = key == picked ? e[i] : last;
    }
    if (equal == 1) return last;
    // The run as a log: live entries run[head .. tail - 1]; each step adds at
    // most one, so nine places hold it.
    std::uint32_t run[9] = {};
    unsigned head = 0, tail = 0;
    for (unsigned i = 0; i < n; ++i) {
        const unsigned key = keyOf(e[i]);
        const bool append = key == picked, rotate = key < picked && tail > head;
        run[tail] = append ? e[i] : run[head];
        tail += append || rotate;
        head += rotate;
    }
    return run[head + k - below];
}

// Fresco at pixel x of row y, for any place in the picture (borders included):
// the neighbourhood sorted by luminance with the exchange procedure (its order
// of equal keys decides the pick), the picked colour quantised to its top two
// bits and faded in by the progress.
template <class Rows>
inline void frescoPixel(const Rows& src, unsigned x, unsigned y, unsigned width, unsigned y0, unsigned rowCount,
                        std::uint32_t shown, std::uint32_t kept, std::uint8_t* out, bool alpha) {
    const NeighbourColumn left = x > 0 ? neighbourColumn(src, x - 1, y0, rowCount) : NeighbourColumn{};
    const NeighbourColumn middle = neighbourColumn(src, x, y0, rowCount);
    const NeighbourColumn right = x + 1 < width ? neighbourColumn(src, x + 1, y0, rowCount) : NeighbourColumn{};
    std::uint32_t e[9];
    unsigned n = 0;
    for (unsigned r = 0; r < rowCount; ++r) {
        if (x > 0) e[n++] = left.entry[r];
        e[n++] = middle.entry[r];
        if (x + 1 < width) e[n++] = right.entry[r];
    }
    const std::uint32_t chosen = pickAfterExchangeSort(e, n);
    const std::uint8_t* c = src.at(x, y);
    const std::uint32_t qb = chosen & 192u, qg = (chosen >> 8) & 192u, qr = (chosen >> 16) & 192u;
    putPixel(out, c, (qb * shown + c[0] * kept) >> 14, (qg * shown + c[1] * kept) >> 14,
             (qr * shown + c[2] * kept) >> 14, alpha);
}

// A full neighbourhood (nine entries, pick position 5) seen from its picked key
// K: list position j holds digit 0 (key above K), 1 (key K) or 2 (key below K),
// and the code is the sum of digit j times 3^j. Which entry of key K the
// exchange procedure leaves at the pick depends on these relations only (an
// entry inserted below K moves the run of K one place round; the exact keys of
// the others do not matter), so tables serve every neighbourhood: for each
// code, the row (bits 2-3) and column (bits 0-1) of the picked entry, found by
// running the procedure itself on keys 2, 1, 0 for the three digits. One table
// per last digit keeps each compile-time evaluation small.
constexpr unsigned kPartCodes = 6561;  // 3^8: the codes of list positions 0 .. 7
struct PickPart {
    std::uint8_t place[kPartCodes];
};
constexpr PickPart makePickPart(unsigned lastDigit) {
    PickPart t{};
    for (unsigned partCode = 0; partCode < kPartCodes; ++partCode) {
        // Entries as key << 4 | list position; codes whose pick is not of key 1 never occur.
        const unsigned code = partCode + kPartCodes * lastDigit;
        unsigned entry[9] = {}, below = 0, equal = 0;
        for (unsigned j = 0, rest = code; j < 9; ++j, rest /= 3) {
            entry[j] = (2 - rest % 3) << 4 | j;
            below += rest % 3 == 2;
            equal += rest % 3 == 1;
        }
        if (below > 5 || below + equal <= 5) continue;
        for (unsigned i = 1; i < 9; ++i)
            for (unsigned j = 0; j < i; ++j)
                if (entry[j] >> 4 > entry[i] >> 4) {
                    const unsigned e = entry[j];
                    entry[j] = entry[i];
                    entry[i] = e;
                }
        const unsigned picked = entry[5] & 15;
        t.place[partCode] = static_cast<std::uint8_t>((picked / 3) << 2 | picked % 3);
    }
    return t;
}
constexpr PickPart kPickLastAbove = makePickPart(0), kPickLastEqual = makePickPart(1),
                   kPickLastBelow = makePickPart(2);
constexpr const PickPart* kPickParts[3] = {&kPickLastAbove, &kPickLastEqual, &kPickLastBelow};

// Source forms for the interior fast path: the key and the colour bytes of
// pixel x of a row.
FLR_VECTOR_LOOP void luminance3(const std::uint8_t* p, unsigned count, std::uint8_t* keys) {
    luminanceRun<3>(p, count, keys);
}
FLR_VECTOR_LOOP void luminance4(const std::uint8_t* p, unsigned count, std::uint8_t* keys) {
    luminanceRun<4>(p, count, keys);
}

// out[i] = (quantised[i] x shown + own[i] x kept) >> 14 for i < count.
FLR_VECTOR_LOOP void fadeIn(const std::uint8_t* __restrict quantised, const std::uint8_t* __restrict own,
                            std::uint32_t shown, std::uint32_t kept, unsigned count, std::uint8_t* __restrict out) {
    for (std::size_t i = 0; i < count; ++i)
        out[i] = static_cast<std::uint8_t>((quantised[i] * shown + own[i] * kept) >> 14);
}

// Source forms for the interior fast path: the key and the colour bytes of
// pixel x of a row, and the keys of `count` pixels from x on.
template <unsigned Step>
struct DirectKeys {
    const std::uint8_t* pixel(const std::uint8_t* row, unsigned x) const { return row + Step * x; }
    std::uint8_t key(const std::uint8_t* row, unsigned x) const {
        return static_cast<std::uint8_t>(luminanceAt(row + Step * x));
    }
    void keys(const std::uint8_t* row, unsigned x, unsigned count, std::uint8_t* k) const {
        if constexpr (Step == 3)
            luminance3(row + 3 * x, count, k);
        else
            luminance4(row + 4 * x, count, k);
    }
};
// The keys of a palette's colours come from the frame's table (PaletteKeysInit).
struct PaletteKeys {
    const std::uint8_t* table;
    const std::uint8_t* keyOfIndex;
    const std::uint8_t* pixel(const std::uint8_t* row, unsigned x) const { return table + 4u * row[x]; }
    std::uint8_t key(const std::uint8_t* row, unsigned x) const { return keyOfIndex[row[x]]; }
    void keys(const std::uint8_t* row, unsigned x, unsigned count, std::uint8_t* k) const {
        for (unsigned i = 0; i < count; ++i) k[i] = keyOfIndex[row[x + i]];
    }
};

// out[i] = own[i] + shift[i] clamped to 0 .. 255, for i < count.
FLR_VECTOR_LOOP void shiftBytes(const std::uint8_t* __restrict own, const std::int8_t* __restrict shift,
                                unsigned count, std::uint8_t* __restrict out) {
    for (std::size_t i = 0; i < count; ++i) {
        const int v = own[i] + shift[i];
        out[i] = static_cast<std::uint8_t>(v < 0 ? 0 : (v > 255 ? 255 : v));
    }
}

// Dark Strokes on a row of 3- or 4-byte pixels, in blocks: the keys
// (vectorised), each pixel's shift repeated for its bytes, then the shifted
// bytes; 4-byte pixels shift their alpha bytes too, which the alpha mix over
// the block then puts back.
template <unsigned Step>
void darkStrokesRowDirect(const std::uint8_t* row, std::uint32_t progress, unsigned width, std::uint8_t* out) {
    std::int8_t shiftOf[254];
    for (int l = 0; l < 254; ++l)
        shiftOf[l] = static_cast<std::int8_t>((std::int64_t(l - 127) * progress) / 16384);
    constexpr unsigned kBlock = 256;
    std::uint8_t keys[kBlock];
    std::int8_t shift[Step * kBlock];
    for (unsigned x0 = 0; x0 < width; x0 += kBlock) {
        const unsigned count = width - x0 < kBlock ? width - x0 : kBlock;
        if constexpr (Step == 4)
            luminance4(row + 4 * x0, count, keys);
        else
            luminance3(row + 3 * x0, count, keys);
        for (unsigned i = 0; i < count; ++i)
            for (unsigned k = 0; k < Step; ++k) shift[Step * i + k] = shiftOf[keys[i]];
        shiftBytes(row + Step * x0, shift, Step * count, out + Step * x0);
        if constexpr (Step == 4) mixRowInPlace(row + 4 * x0, out + 4 * x0, count);
    }
}

inline std::uint16_t digit(std::uint8_t key, std::uint8_t picked) {
    return static_cast<std::uint16_t>((key == picked) + 2 * (key < picked));
}

// Fresco on pixels 1 .. width - 2 of a row with rows below and above, in
// blocks: the keys of the three rows, then every block pixel's code (plain
// loops the compiler vectorises), then the picked colours.
template <bool Alpha, class Keys>
void frescoInterior(const Keys& src, const std::uint8_t* const* rows, unsigned y, unsigned width,
                    std::uint32_t shown, std::uint32_t kept, std::uint8_t* out) {
    constexpr unsigned kBlock = 128, kOutStep = Alpha ? 4 : 3;
    const std::uint8_t* const line[3] = {rows[y - 1], rows[y], rows[y + 1]};
    std::uint8_t k0[kBlock + 2], k1[kBlock + 2], k2[kBlock + 2];
    std::uint16_t code[kBlock];  // of list positions 0 .. 7
    std::uint8_t last[kBlock];   // digit of list position 8
    for (unsigned x0 = 1; x0 + 1 < width; x0 += kBlock) {
        const unsigned count = width - 1 - x0 < kBlock ? width - 1 - x0 : kBlock;
        src.keys(line[0], x0 - 1, count + 2, k0);
        src.keys(line[1], x0 - 1, count + 2, k1);
        src.keys(line[2], x0 - 1, count + 2, k2);
        for (unsigned i = 0; i < count; ++i) {
            const std::uint8_t picked =
                sixthSmallest(k0[i], k0[i + 1], k0[i + 2], k1[i], k1[i + 1], k1[i + 2], k2[i], k2[i + 1], k2[i + 2]);
            code[i] = static_cast<std::uint16_t>(
                digit(k0[i], picked) + 3 * digit(k0[i + 1], picked) + 9 * digit(k0[i + 2], picked) +
                27 * digit(k1[i], picked) + 81 * digit(k1[i + 1], picked) + 243 * digit(k1[i + 2], picked) +
                729 * digit(k2[i], picked) + 2187 * digit(k2[i + 1], picked));
            last[i] = static_cast<std::uint8_t>(digit(k2[i + 2], picked));
        }
        std::uint8_t* o = out + kOutStep * x0;
        if constexpr (std::is_same_v<Keys, DirectKeys<3>> || std::is_same_v<Keys, DirectKeys<4>>) {
            // The picked colours' top bits, then the fade over the block's bytes;
            // 4-byte pixels fade their alpha bytes too, which the alpha mix over
            // the block then puts back.
            constexpr unsigned kStep = std::is_same_v<Keys, DirectKeys<4>> ? 4 : 3;
            std::uint8_t quantised[kStep * kBlock];
            for (unsigned i = 0; i < count; ++i) {
                const unsigned place = kPickParts[last[i]]->place[code[i]];
                const std::uint8_t* chosen = src.pixel(line[place >> 2], x0 + i - 1 + (place & 3));
                for (unsigned k = 0; k < kStep; ++k) quantised[kStep * i + k] = chosen[k] & 192u;
            }
            fadeIn(quantised, src.pixel(line[1], x0), shown, kept, kStep * count, o);
            if constexpr (kStep == 4) mixRowInPlace(src.pixel(line[1], x0), o, count);
            continue;
        }
        for (unsigned i = 0; i < count; ++i, o += kOutStep) {
            const unsigned x = x0 + i, place = kPickParts[last[i]]->place[code[i]];
            const std::uint8_t* chosen = src.pixel(line[place >> 2], x - 1 + (place & 3));
            const std::uint8_t* c = src.pixel(line[1], x);
            put<Alpha>(o, c, Alpha ? c[3] : 0u, ((chosen[0] & 192u) * shown + c[0] * kept) >> 14,
                       ((chosen[1] & 192u) * shown + c[1] * kept) >> 14,
                       ((chosen[2] & 192u) * shown + c[2] * kept) >> 14);
        }
    }
}

// Fresco, one row: rows with a row below and above take the interior path
// between their two end pixels; everything else goes pixel by pixel.
template <bool Alpha, class Rows, class Keys>
void frescoRow(unsigned y, std::uint32_t progress, unsigned width, unsigned height, const Rows& src,
               const Keys& keys, std::uint8_t* out) {
    if (width == 0) return;
    const unsigned outStep = Alpha ? 4 : 3;
    const std::uint32_t shown = progress, kept = 16384u - progress;
    const unsigned y0 = y > 0 ? y - 1 : y, rowCount = (y + 1 < height ? y + 1 : y) - y0 + 1;
    if (rowCount < 3 || width < 3) {
        for (unsigned x = 0; x < width; ++x)
            frescoPixel(src, x, y, width, y0, rowCount, shown, kept, out + outStep * x, Alpha);
        return;
    }
    frescoPixel(src, 0, y, width, y0, rowCount, shown, kept, out, Alpha);
    frescoInterior<Alpha>(keys, src.rows, y, width, shown, kept, out);
    frescoPixel(src, width - 1, y, width, y0, rowCount, shown, kept, out + outStep * (width - 1), Alpha);
}

// Stamp: the effect colour where the picked luminance of the neighbourhood is
// below 128, its inverse elsewhere. Only the picked key matters, and the key at
// sorted position k is 128 or more exactly when at most k keys lie below 128.
// In blocks: each column's count of dark pixels over the rows y - 1 .. y + 1
// that exist, then the counts of three neighbouring columns against the pick.
template <bool Alpha, class Keys>
void stampRow(const Frame& frame, unsigned y, const Keys& src, std::uint8_t* out) {
    const unsigned width = frame.width, height = frame.height;
    const std::uint8_t* const* rows = frame.rows;
    if (width == 0) return;
    const std::uint32_t colour = frame.colour;
    const unsigned cb = px::colourBlue(colour), cg = px::colourGreen(colour), cr = px::colourRed(colour);
    constexpr unsigned kOutStep = Alpha ? 4 : 3, kBlock = 256;
    const unsigned y0 = y > 0 ? y - 1 : y, rowCount = (y + 1 < height ? y + 1 : y) - y0 + 1;
    const std::uint8_t* const own = rows[y];
    // dark[i] counts column x0 - 1 + i; columns outside the picture count 0.
    std::uint8_t dark[kBlock + 2];
    for (unsigned x0 = 0; x0 < width; x0 += kBlock) {
        const unsigned count = width - x0 < kBlock ? width - x0 : kBlock;
        const unsigned first = x0 > 0 ? 0 : 1, end = x0 + count < width ? count + 2 : count + 1;
        dark[0] = dark[count + 1] = 0;
        const std::uint8_t *bottom = rows[y0], *middle = rows[y0 + rowCount / 2], *top = rows[y0 + rowCount - 1];
        // The keys of the rows that exist: bottom, middle (of three), top (of two or three).
        std::uint8_t keys[3][kBlock + 2];
        src.keys(bottom, x0 - 1 + first, end - first, keys[0] + first);
        if (rowCount == 3) src.keys(middle, x0 - 1 + first, end - first, keys[1] + first);
        if (rowCount >= 2) src.keys(top, x0 - 1 + first, end - first, keys[2] + first);
        if (rowCount == 3)
            for (unsigned i = first; i < end; ++i)
                dark[i] = static_cast<std::uint8_t>((keys[0][i] < 128) + (keys[1][i] < 128) + (keys[2][i] < 128));
        else if (rowCount == 2)
            for (unsigned i = first; i < end; ++i)
                dark[i] = static_cast<std::uint8_t>((keys[0][i] < 128) + (keys[2][i] < 128));
        else
            for (unsigned i = first; i < end; ++i) dark[i] = static_cast<std::uint8_t>(keys[0][i] < 128);
        std::uint8_t* o = out + kOutStep * x0;
        for (unsigned i = 0; i < count; ++i, o += kOutStep) {
            const unsigned x = x0 + i;
            const unsigned n = rowCount * (1u + (x > 0) + (x + 1 < width));
            const bool light = unsigned(dark[i]) + dark[i + 1] + dark[i + 2] <= pickPosition(n);
            const std::uint8_t* c = src.pixel(own, x);
            if (light)
                put<Alpha>(o, c, Alpha ? c[3] : 0u, 255 - cb, 255 - cg, 255 - cr);
            else
                put<Alpha>(o, c, Alpha ? c[3] : 0u, cb, cg, cr);
        }
    }
}

}  // namespace

// The luminance key of every colour of a palette source, once per render.
bool PaletteKeysInit(Frame& frame, Carry&) {
    if (frame.colourTable)
        for (unsigned i = 0; i < 256; ++i) frame.table[i] = static_cast<std::uint8_t>(luminanceAt(frame.colourTable + 4 * i));
    return true;
}

FLR_ROW(DarkStrokesLine1) {
    (void)carry;
    darkStrokesRow<false>(y, frame.progress, frame.width, PaletteRows{frame.rows, frame.colourTable}, out);
}
FLR_ROW(DarkStrokesLine2) {
    (void)carry;
    if (frame.hasAlpha)
        darkStrokesRowDirect<4>(frame.rows[y], frame.progress, frame.width, out);
    else
        darkStrokesRowDirect<3>(frame.rows[y], frame.progress, frame.width, out);
}

FLR_ROW(FrescoLine1) {
    (void)carry;
    frescoRow<false>(y, frame.progress, frame.width, frame.height, PaletteRows{frame.rows, frame.colourTable},
                     PaletteKeys{frame.colourTable, frame.table}, out);
}
FLR_ROW(FrescoLine2) {
    (void)carry;
    if (frame.hasAlpha)
        frescoRow<true>(y, frame.progress, frame.width, frame.height, DirectRows{frame.rows, 4}, DirectKeys<4>{}, out);
    else
        frescoRow<false>(y, frame.progress, frame.width, frame.height, DirectRows{frame.rows, 3}, DirectKeys<3>{}, out);
}

FLR_ROW(StampLine1) {
    (void)carry;
    stampRow<false>(frame, y, PaletteKeys{frame.colourTable, frame.table}, out);
}
FLR_ROW(StampLine2) {
    (void)carry;
    if (frame.hasAlpha)
        stampRow<true>(frame, y, DirectKeys<4>{}, out);
    else
        stampRow<false>(frame, y, DirectKeys<3>{}, out);
}
