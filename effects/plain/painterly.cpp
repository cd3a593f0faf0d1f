// Dark Strokes, Fresco and Stamp as their algorithms read: per pixel, the
// luminance shift, or the neighbourhood list sorted by the exchange procedure.
#include <cstdint>

#include "effects/plain/plain_rows.h"

namespace {

struct Entry {
    int key;
    const std::uint8_t* colour;
};

// The 3 x 3 block around (x, y) that lies inside the picture, rows y - 1, y,
// y + 1 and within each columns x - 1, x, x + 1, sorted ascending by key with
// the exchange procedure; returns how many entries there are.
int sortedNeighbourhood(const Frame& f, int x, int y, Entry* list) {
    int n = 0;
    for (int yy = y - 1; yy <= y + 1; ++yy)
        for (int xx = x - 1; xx <= x + 1; ++xx)
            if (yy >= 0 && yy < f.height && xx >= 0 && xx < f.width) {
                const std::uint8_t* c = plain::sourceAt(f, xx, yy);
                list[n++] = Entry{plain::luminanceOf(c), c};
            }
    for (int i = 1; i < n; ++i)
        for (int j = 0; j < i; ++j)
            if (list[j].key > list[i].key) {
                const Entry e = list[j];
                list[j] = list[i];
                list[i] = e;
            }
    return n;
}

// Position (n + 1) / 2 of the sorted list; a lone entry (a 1 x 1 picture) is its own pick.
const Entry& pick(const Entry* list, int n) { return list[(n + 1) / 2 < n ? (n + 1) / 2 : n - 1]; }

}  // namespace

FLR_ROW(PlainDarkStrokes) {
    (void)carry;
    for (int x = 0; x < frame.width; ++x) {
        const std::uint8_t* c = plain::sourceAt(frame, x, y);
        const int d = static_cast<int>(std::int64_t(plain::luminanceOf(c) - 127) * frame.progress / 16384);
        plain::writeAt(frame, out, x, y, px::clamp255(c[0] + d), px::clamp255(c[1] + d), px::clamp255(c[2] + d));
    }
}

FLR_ROW(PlainFresco) {
    (void)carry;
    const std::uint32_t p = frame.progress;
    for (int x = 0; x < frame.width; ++x) {
        Entry list[9];
        const std::uint8_t* chosen = pick(list, sortedNeighbourhood(frame, x, y, list)).colour;
        const std::uint8_t* c = plain::sourceAt(frame, x, y);
        int v[3];
        for (int i = 0; i < 3; ++i) v[i] = int(((chosen[i] & 192u) * p + c[i] * (16384u - p)) >> 14);
        plain::writeAt(frame, out, x, y, v[0], v[1], v[2]);
    }
}

FLR_ROW(PlainStamp) {
    (void)carry;
    const int b = px::colourBlue(frame.colour), g = px::colourGreen(frame.colour), r = px::colourRed(frame.colour);
    for (int x = 0; x < frame.width; ++x) {
        Entry list[9];
        if (pick(list, sortedNeighbourhood(frame, x, y, list)).key >= 128)
            plain::writeAt(frame, out, x, y, 255 - b, 255 - g, 255 - r);
        else
            plain::writeAt(frame, out, x, y, b, g, r);
    }
}
