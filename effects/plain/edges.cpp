// Charcoal as its algorithm reads: the dark detail of each pixel's 3 x 3 block
// as grey, averaged with the three values the row below left one column
// further right. The buffers come from the production init (EdgeBuffersInit).
#include "effects/plain/plain_rows.h"

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
