// Painterly effects: Dark Strokes, Fresco and Stamp.
#include "effects/rows/row_effects.h"
#include "effects/rows/row_pixels.h"
#include "engine/pixel.h"
#include "engine/render_state.h"

namespace {

using namespace rowpx;

// Pushes every channel away from middle grey by the pixel's own luminance.
template <class Rows>
void darkStrokesRow(unsigned y, std::uint32_t progress, unsigned width, const Rows& src, std::uint8_t* out,
                    bool alpha) {
    const std::int64_t p = progress;
    const unsigned step = alpha ? 4 : 3;
    for (unsigned x = 0; x < width; ++x, out += step) {
        const std::uint8_t* c = src.at(x, y);
        const int d = static_cast<int>((std::int64_t(px::luminance(c[0], c[1], c[2]) - 127) * p) / 16384);
        putPixel(out, c, unsigned(px::clamp255(c[0] + d)), unsigned(px::clamp255(c[1] + d)),
                 unsigned(px::clamp255(c[2] + d)), alpha);
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

inline void orderPair(unsigned& a, unsigned& b) {
    const unsigned lo = a < b ? a : b;
    b = a < b ? b : a;
    a = lo;
}

// The key at position k of the n keys (n <= 9) in ascending order.
inline unsigned keyAtPosition(const std::uint32_t* e, unsigned n, unsigned k) {
    if (n == 9) {
        // A fixed sorting network: no branches for the full neighbourhood.
        unsigned k0 = keyOf(e[0]), k1 = keyOf(e[1]), k2 = keyOf(e[2]), k3 = keyOf(e[3]), k4 = keyOf(e[4]),
                 k5 = keyOf(e[5]), k6 = keyOf(e[6]), k7 = keyOf(e[7]), k8 = keyOf(e[8]);
        orderPair(k0, k3), orderPair(k1, k7), orderPair(k2, k5), orderPair(k4, k8);
        orderPair(k0, k7), orderPair(k2, k4), orderPair(k3, k8), orderPair(k5, k6);
        orderPair(k0, k2), orderPair(k1, k3), orderPair(k4, k5), orderPair(k7, k8);
        orderPair(k1, k4), orderPair(k3, k6), orderPair(k5, k7);
        orderPair(k0, k1), orderPair(k2, k4), orderPair(k3, k5), orderPair(k6, k8);
        orderPair(k2, k3), orderPair(k4, k5), orderPair(k6, k7);
        orderPair(k1, k2), orderPair(k3, k4), orderPair(k5, k6);
        const unsigned sorted[9] = {k0, k1, k2, k3, k4, k5, k6, k7, k8};
        return sorted[k];
    }
    unsigned keys[9];
    for (unsigned i = 0; i < n; ++i) keys[i] = keyOf(e[i]);
    for (unsigned i = 1; i < n; ++i)
        for (unsigned j = i; j > 0 && keys[j - 1] > keys[j]; --j) orderPair(keys[j - 1], keys[j]);
    return keys[k];
}

// The entry that the exchange procedure (for i = 1 .. n - 1, for j = 0 .. i - 1:
// exchange entries j and i when key j > key i) leaves at position k, without
// running it. Inserting entry i puts it after every key up to its own and
// rotates each run of equal greater keys by one: the run's first entry moves
// to the run's end. So the run of the picked key K is built by appending the
// entries of key K in list order and rotating it once for every later entry
// with a key below K; the pick is its entry k - (number of keys below K).
inline std::uint32_t pickAfterExchangeSort(const std::uint32_t* e, unsigned n, unsigned k) {
    const unsigned picked = keyAtPosition(e, n, k);
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

// Fresco: the neighbourhood sorted by luminance with a plain exchange procedure
// (its order of equal keys decides the pick), the picked colour quantised to
// its top two bits and faded in by the progress.
template <class Rows>
void frescoRow(unsigned y, std::uint32_t progress, unsigned width, unsigned height, const Rows& src,
               std::uint8_t* out, bool alpha) {
    if (width == 0) return;
    const unsigned step = alpha ? 4 : 3;
    const std::uint32_t shown = progress, kept = 16384u - progress;
    const unsigned y0 = y > 0 ? y - 1 : y, rowCount = (y + 1 < height ? y + 1 : y) - y0 + 1;

    NeighbourColumn left, middle = neighbourColumn(src, 0, y0, rowCount);
    NeighbourColumn right = width > 1 ? neighbourColumn(src, 1, y0, rowCount) : NeighbourColumn{};
    for (unsigned x = 0; x < width; ++x, out += step) {
        const bool hasLeft = x > 0, hasRight = x + 1 < width;
        std::uint32_t e[9];
        unsigned n = 0;
        for (unsigned r = 0; r < rowCount; ++r) {
            if (hasLeft) e[n++] = left.entry[r];
            e[n++] = middle.entry[r];
            if (hasRight) e[n++] = right.entry[r];
        }
        const std::uint32_t chosen = pickAfterExchangeSort(e, n, pickPosition(n));
        const std::uint8_t* c = src.at(x, y);
        const std::uint32_t qb = chosen & 192u, qg = (chosen >> 8) & 192u, qr = (chosen >> 16) & 192u;
        putPixel(out, c, (qb * shown + c[0] * kept) >> 14, (qg * shown + c[1] * kept) >> 14,
                 (qr * shown + c[2] * kept) >> 14, alpha);

        left = middle;
        middle = right;
        if (x + 2 < width) right = neighbourColumn(src, x + 2, y0, rowCount);
    }
}

// How many of the column's rows y0 .. y0 + count - 1 have a luminance below 128.
template <class Rows>
inline unsigned darkCount(const Rows& src, unsigned x, unsigned y0, unsigned count) {
    unsigned dark = 0;
    for (unsigned i = 0; i < count; ++i) {
        const std::uint8_t* p = src.at(x, y0 + i);
        dark += px::luminance(p[0], p[1], p[2]) < 128;
    }
    return dark;
}

// Stamp: the effect colour where the picked luminance of the neighbourhood is
// below 128, its inverse elsewhere. Only the picked key matters, and the key at
// sorted position k is 128 or more exactly when at most k keys lie below 128.
template <class Rows>
void stampRow(unsigned y, unsigned width, unsigned height, const Rows& src, std::uint8_t* out, bool alpha) {
    if (width == 0) return;
    const std::uint32_t colour = renderState().colour;
    const unsigned cb = px::colourBlue(colour), cg = px::colourGreen(colour), cr = px::colourRed(colour);
    const unsigned step = alpha ? 4 : 3;
    const unsigned y0 = y > 0 ? y - 1 : y, rowCount = (y + 1 < height ? y + 1 : y) - y0 + 1;

    unsigned left = 0, middle = darkCount(src, 0, y0, rowCount);
    unsigned right = width > 1 ? darkCount(src, 1, y0, rowCount) : 0;
    for (unsigned x = 0; x < width; ++x, out += step) {
        const unsigned n = rowCount * (1u + (x > 0) + (x + 1 < width));
        const bool light = left + middle + right <= pickPosition(n);
        const std::uint8_t* c = src.at(x, y);
        if (light)
            putPixel(out, c, 255 - cb, 255 - cg, 255 - cr, alpha);
        else
            putPixel(out, c, cb, cg, cr, alpha);
        left = middle;
        middle = right;
        right = x + 2 < width ? darkCount(src, x + 2, y0, rowCount) : 0;
    }
}

}  // namespace

FLR_ROW1(DarkStrokesLine1) {
    (void)height;
    darkStrokesRow(y, progress, width, PaletteRows{rows, colourTable}, out, false);
}
FLR_ROW2(DarkStrokesLine2) {
    (void)height;
    const bool alpha = hasAlpha != 0;
    darkStrokesRow(y, progress, width, DirectRows{rows, alpha ? 4u : 3u}, out, alpha);
}

FLR_ROW1(FrescoLine1) { frescoRow(y, progress, width, height, PaletteRows{rows, colourTable}, out, false); }
FLR_ROW2(FrescoLine2) {
    const bool alpha = hasAlpha != 0;
    frescoRow(y, progress, width, height, DirectRows{rows, alpha ? 4u : 3u}, out, alpha);
}

FLR_ROW1(StampLine1) {
    (void)progress;
    stampRow(y, width, height, PaletteRows{rows, colourTable}, out, false);
}
FLR_ROW2(StampLine2) {
    (void)progress;
    const bool alpha = hasAlpha != 0;
    stampRow(y, width, height, DirectRows{rows, alpha ? 4u : 3u}, out, alpha);
}
