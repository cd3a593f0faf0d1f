// Building source pictures and reading result pixels in tests.
#pragma once

#include <cstdint>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "engine/dib.h"
#include "engine/flairize.h"
#include "platform/global_memory.h"
#include "hostops/host_ops.h"
#include "platform/strings.h"

namespace testpic {

struct Bgra {
    std::uint8_t b = 0, g = 0, r = 0, a = 255;
    bool operator==(const Bgra& o) const { return b == o.b && g == o.g && r == o.r && a == o.a; }
};

// A packed DIB of width x height at 8, 24 or 32 bits. `pixel(x, y)` gives each
// pixel with y counted from the bottom row; for 8-bit pictures only its `b` is
// used, as the colour-table index, and `palette` holds the table entries.
inline HGLOBAL make(int width, int height, int bits, const std::function<Bgra(int, int)>& pixel,
                    const std::vector<Bgra>& palette = {}, std::uint32_t headerSize = 40) {
    const std::uint32_t stride = std::uint32_t(dib::paddedStride(std::uint32_t(width), unsigned(bits)));
    const std::uint32_t entries = bits == 8 ? std::uint32_t(palette.size()) : 0;
    const std::uint32_t tableBytes = 4 * entries;
    HGLOBAL h = dib::create(width, height, unsigned(bits), entries, headerSize);
    auto* p = static_cast<std::uint8_t*>(plat::globalLock(h));
    for (std::size_t i = 0; i < palette.size() && bits == 8; ++i) {
        std::uint8_t* e = p + headerSize + 4 * i;
        e[0] = palette[i].b, e[1] = palette[i].g, e[2] = palette[i].r, e[3] = 0;
    }
    std::uint8_t* pixels = p + headerSize + tableBytes;
    const int bpp = bits / 8;
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            const Bgra c = pixel(x, y);
            std::uint8_t* q = pixels + std::size_t(y) * stride + std::size_t(x) * unsigned(bpp);
            q[0] = c.b;
            if (bpp >= 3) q[1] = c.g, q[2] = c.r;
            if (bpp == 4) q[3] = c.a;
        }
    plat::globalUnlock(h);
    return h;
}

// A deterministic, varied test pattern (no two neighbours alike).
inline Bgra pattern(int x, int y) {
    return Bgra{std::uint8_t(x * 37 + y * 11), std::uint8_t(x * 5 + y * 71 + 19),
                std::uint8_t((x ^ y) * 23 + 101), std::uint8_t((x * 13 + y * 29) & 0xFF)};
}
// A 256-entry palette of varied colours, for 8-bit pictures.
inline std::vector<Bgra> palette256() {
    std::vector<Bgra> t(256);
    for (int i = 0; i < 256; ++i) t[std::size_t(i)] = Bgra{std::uint8_t(i * 7), std::uint8_t(255 - i), std::uint8_t(i * 3 + 40), 0};
    return t;
}

// Read access to a picture (source or result).
class View {
public:
    explicit View(HGLOBAL h) : h_(h) {
        base_ = static_cast<const std::uint8_t*>(plat::globalLock(h));
        std::memcpy(&hdr_, base_, sizeof hdr_);
        const std::uint32_t table = hdr_.biBitCount == 8 ? (hdr_.biClrUsed ? hdr_.biClrUsed : 256) * 4 : 0;
        pixels_ = base_ + hdr_.biSize + table;
        stride_ = hdr_.biSizeImage / std::uint32_t(hdr_.biHeight);
    }
    ~View() { plat::globalUnlock(h_); }
    const BITMAPINFOHEADER& header() const { return hdr_; }
    int width() const { return hdr_.biWidth; }
    int height() const { return hdr_.biHeight; }
    std::uint32_t stride() const { return stride_; }
    const std::uint8_t* row(int y) const { return pixels_ + std::size_t(y) * stride_; }
    // Pixel (x, y) with y from the bottom; 8-bit pictures are read through their table.
    Bgra at(int x, int y) const {
        const int bpp = hdr_.biBitCount / 8;
        const std::uint8_t* q = row(y) + std::size_t(x) * unsigned(bpp);
        if (bpp == 1) {
            const std::uint8_t* e = base_ + hdr_.biSize + 4u * q[0];
            return Bgra{e[0], e[1], e[2], 255};
        }
        return Bgra{q[0], q[1], q[2], bpp == 4 ? q[3] : std::uint8_t(255)};
    }
    std::vector<std::uint8_t> bytes() const { return std::vector<std::uint8_t>(base_, base_ + plat::globalSize(h_)); }

private:
    HGLOBAL h_;
    const std::uint8_t* base_;
    const std::uint8_t* pixels_;
    BITMAPINFOHEADER hdr_;
    std::uint32_t stride_;
};

// The index of the effect of that name.
inline unsigned effectNamed(const std::string& name) {
    for (unsigned i = 0; i < flairize::effectCount(); ++i)
        if (flairize::effectName(i) == name) return i;
    ADD_FAILURE() << "no effect " << name;
    return 0;
}

// Renders effect `effect` through the engine with the Linux host operations.
inline flairize::Result render(unsigned effect, HGLOBAL source, std::uint32_t progress = 16384,
                               flairize::Mix mix = flairize::Mix::Always) {
    flairize::Settings s;
    s.effect = std::uint16_t(effect);
    for (int k = 0; k < 3; ++k) s.sliders[k] = flairize::sliderDefault(effect, k);
    s.progress = progress;
    return flairize::render(hostops::services(), source, s, mix);
}

// Collects message-box texts while alive.
class MessageCapture {
public:
    MessageCapture() { old_ = plat::setMessageSink([this](const std::string& m) { messages.push_back(m); }); }
    ~MessageCapture() { plat::setMessageSink(old_); }
    std::vector<std::string> messages;

private:
    plat::MessageSink old_;
};

// Frees a picture when the test ends.
struct Owned {
    HGLOBAL h = nullptr;
    Owned(HGLOBAL handle = nullptr) : h(handle) {}
    ~Owned() { plat::globalFree(h); }
    Owned(const Owned&) = delete;
    Owned& operator=(const Owned&) = delete;
    operator HGLOBAL() const { return h; }
};

}  // namespace testpic
