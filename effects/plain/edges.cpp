// The edge effects as their algorithms read. The buffers come from the
// production init (EdgeBuffersInit).
#include "effects/plain/plain_rows.h"

// Charcoal: the dark detail of each pixel's 3 x 3 block as grey, averaged with
// the three values the row below left one column further right.
FLR_ROW(PlainCharcoal) {
    const int width = frame.width, height = frame.height;
    auto white = [&](int x) { plain::writeAt(frame, out, x, y, 255, 255, 255); };
    if (y == 0 || y == height - 1) {
        for (int x = 0; x < width; ++x) white(x);
        return;
    }
    std::uint8_t* written = carry.line[y & 1u];
    const std::uint8_t* below = carry.line[(y & 1u) ^ 1u];
    for (int x = 0; x < width; ++x) {
        if (x == 0 || x == width - 1) {
            white(x);
            continue;
        }
        int sum[3] = {0, 0, 0};
        for (int yy = y - 1; yy <= y + 1; ++yy)
            for (int xx = x - 1; xx <= x + 1; ++xx)
                for (int i = 0; i < 3; ++i) sum[i] += plain::sourceAt(frame, xx, yy)[i];
        const std::uint8_t* centre = plain::sourceAt(frame, x, y);
        int light[3];
        for (int i = 0; i < 3; ++i) light[i] = 255 - px::clamp255(32 * (sum[i] / 9 - centre[i]));
        const int v = (below[x] + below[x + 1] + below[x + 2] + px::luminance(light[0], light[1], light[2])) >> 2;
        written[x] = static_cast<std::uint8_t>(v);
        plain::writeAt(frame, out, x, y, v, v, v);
    }
}

// Find Edges as its algorithm reads: a pixel darker than the mean of its
// clipped 3 x 3 block by enough in a channel is an edge; it, its right, upper
// and upper-right neighbours keep their colour, everything else is painted.
FLR_ROW(PlainFindEdges) {
    const int width = frame.width, height = frame.height;
    std::uint8_t* written = carry.line[y & 1u];
    const std::uint8_t* below = carry.line[(y & 1u) ^ 1u];
    const std::uint32_t c = frame.colour;
    for (int x = 0; x < width; ++x) {
        int sum[3] = {0, 0, 0}, n = 0;
        for (int yy = y - 1; yy <= y + 1; ++yy)
            for (int xx = x - 1; xx <= x + 1; ++xx) {
                if (yy < 0 || yy >= height || xx < 0 || xx >= width) continue;
                for (int i = 0; i < 3; ++i) sum[i] += plain::sourceAt(frame, xx, yy)[i];
                ++n;
            }
        const std::uint8_t* centre = plain::sourceAt(frame, x, y);
        const bool edge = 32 * (sum[2] / n - centre[2]) >= 180 || 32 * (sum[1] / n - centre[1]) >= 128 ||
                          32 * (sum[0] / n - centre[0]) >= 205;
        const bool neighbour = x == 0 ? below[0] != 0 : written[x - 1] != 0 || below[x] != 0 || below[x - 1] != 0;
        written[x] = edge ? 1 : 0;
        if (edge || neighbour)
            plain::writeAt(frame, out, x, y, centre[0], centre[1], centre[2]);
        else
            plain::writeAt(frame, out, x, y, px::colourBlue(c), px::colourGreen(c), px::colourRed(c));
    }
}

// Contours as its algorithm reads: the luminance smoothed with the value to the
// left and the value below; a change of band of 32 levels against either keeps
// the pixel (from row 2 on for palette pictures, row 3 on otherwise).
FLR_ROW(PlainContours) {
    const int width = frame.width;
    const std::uint8_t* below = carry.line[y & 1u];
    std::uint8_t* written = carry.line[(y & 1u) ^ 1u];
    const std::uint32_t c = frame.colour;
    const int firstKept = frame.colourTable ? 2 : 3;
    int left = width > 0 ? plain::luminanceOf(plain::sourceAt(frame, 0, y)) : 0;
    for (int x = 0; x < width; ++x) {
        const std::uint8_t* p = plain::sourceAt(frame, x, y);
        const int l = plain::luminanceOf(p);
        const int s = y >= 2 ? (left + l + below[x]) / 3 : l;
        const bool contour = ((s ^ left) & 0xE0) != 0 || ((below[x] ^ s) & 0xE0) != 0;
        if (contour && y >= firstKept)
            plain::writeAt(frame, out, x, y, p[0], p[1], p[2]);
        else
            plain::writeAt(frame, out, x, y, px::colourBlue(c), px::colourGreen(c), px::colourRed(c));
        left = s;
        written[x] = static_cast<std::uint8_t>(s);
    }
}
