#include "engine/dib.h"

#include <cstring>

#include "platform/global_memory.h"

namespace dib {

std::uint16_t colourTableBytes(const BITMAPINFOHEADER* header) {
    BITMAPINFOHEADER h;
    std::memcpy(&h, header, sizeof h);
    if (h.biBitCount > 8) return 0;
    const std::uint64_t entries = h.biClrUsed ? h.biClrUsed : (1u << h.biBitCount);
    const std::uint64_t bytes = entries * 4;
    return bytes > 0xFFFF ? 0xFFFF : static_cast<std::uint16_t>(bytes);
}

bool inspect(const std::uint8_t* block, std::size_t blockSize, const flairize::HostServices* host, Layout& layout) {
    if (!block || blockSize < sizeof(BITMAPINFOHEADER)) return false;
    BITMAPINFOHEADER h;
    std::memcpy(&h, block, sizeof h);
    if (h.biSize < sizeof(BITMAPINFOHEADER) || h.biSize > blockSize) return false;
    if (h.biBitCount != 8 && h.biBitCount != 24 && h.biBitCount != 32) return false;
    if (h.biCompression != BI_RGB) return false;
    if (h.biWidth <= 0 || h.biHeight <= 0) return false;
    if (std::uint32_t(h.biWidth) > kMaxSide || std::uint32_t(h.biHeight) > kMaxSide) return false;

    const auto* header = reinterpret_cast<const BITMAPINFOHEADER*>(block);
    const std::uint64_t table =
        host && host->colourTableSize ? host->colourTableSize(host->user, header) : colourTableBytes(header);
    if (h.biBitCount == 8 && table > 1024) return false;
    const std::uint64_t width = std::uint32_t(h.biWidth), height = std::uint32_t(h.biHeight);
    if (h.biSizeImage < paddedStride(width, h.biBitCount) * height) return false;
    if (std::uint64_t(h.biSize) + table + h.biSizeImage > blockSize) return false;
    const unsigned outBits = h.biBitCount == 32 ? 32 : 24;
    if (std::uint64_t(h.biSize) + paddedStride(width, outBits) * height > 0xFFFFFFFFu) return false;

    layout.headerSize = h.biSize;
    layout.colourTableSize = static_cast<std::uint32_t>(table);
    layout.fullWidth = h.biWidth;
    layout.fullHeight = h.biHeight;
    layout.width = static_cast<std::uint16_t>(width);
    layout.height = static_cast<std::uint16_t>(height);
    layout.bitCount = h.biBitCount;
    layout.bytesPerPixel = h.biBitCount / 8;
    layout.stride = h.biSizeImage / std::uint32_t(h.biHeight);
    layout.imageSize = h.biSizeImage;
    return true;
}

HGLOBAL create(std::int32_t width, std::int32_t height, unsigned bits, std::uint32_t tableEntries,
               std::uint32_t headerSize) {
    if (width <= 0 || height <= 0 || headerSize < sizeof(BITMAPINFOHEADER)) return nullptr;
    const std::uint64_t image = paddedStride(std::uint32_t(width), bits) * std::uint32_t(height);
    const std::uint64_t total = headerSize + 4ull * tableEntries + image;
    if (image > 0xFFFFFFFFu || total > 0xFFFFFFFFu) return nullptr;
    HGLOBAL handle = plat::globalAlloc(std::size_t(total));
    if (!handle) return nullptr;
    BITMAPINFOHEADER h{};
    h.biSize = headerSize;
    h.biWidth = width;
    h.biHeight = height;
    h.biPlanes = 1;
    h.biBitCount = static_cast<std::uint16_t>(bits);
    h.biCompression = BI_RGB;
    h.biSizeImage = static_cast<std::uint32_t>(image);
    h.biClrUsed = tableEntries;
    std::memcpy(plat::globalLock(handle), &h, sizeof h);
    plat::globalUnlock(handle);
    return handle;
}

Source::Source(HGLOBAL handle, const flairize::HostServices* host) : handle_(handle) {
    if (!handle_) return;
    block_ = static_cast<const std::uint8_t*>(plat::globalLock(handle_));
    if (!block_ || !inspect(block_, plat::globalSize(handle_), host, layout_)) return;
    table_ = block_ + layout_.headerSize;
    pixels_ = table_ + layout_.colourTableSize;
    step_ = std::ptrdiff_t(layout_.stride);
    if (layout_.bitCount == 8 && layout_.colourTableSize < sizeof paddedTable_) {
        std::memset(paddedTable_, 0, sizeof paddedTable_);
        std::memcpy(paddedTable_, table_, layout_.colourTableSize);
        table_ = paddedTable_;
    }
    ok_ = true;
}

Source::Source(const View& view) {
    if (!view.bottom || !view.width || !view.height) return;
    if (view.bitCount != 24 && view.bitCount != 32 && !(view.bitCount == 8 && view.colourTable)) return;
    layout_.fullWidth = view.width;
    layout_.fullHeight = view.height;
    layout_.width = view.width;
    layout_.height = view.height;
    layout_.bitCount = view.bitCount;
    layout_.bytesPerPixel = view.bitCount / 8;
    pixels_ = view.bottom;
    step_ = view.step;
    table_ = view.colourTable;
    ok_ = true;
}

Source::~Source() {
    if (block_) plat::globalUnlock(handle_);
}

View Source::view() const {
    View v;
    if (!ok_) return v;
    v.bottom = const_cast<std::uint8_t*>(pixels_);   // a source is only read
    v.step = step_;
    v.width = layout_.width;
    v.height = layout_.height;
    v.bitCount = layout_.bitCount;
    v.colourTable = layout_.bitCount == 8 ? table_ : nullptr;
    v.picture = block_ ? handle_ : nullptr;
    return v;
}

Output::Output(const Source& source) {
    if (!source.ok() || !source.block()) return;
    const Layout& in = source.layout();
    bits_ = in.bitCount == 32 ? 32 : 24;
    width_ = in.width;
    height_ = in.height;
    const auto stride = static_cast<std::uint32_t>(paddedStride(std::uint32_t(in.fullWidth), bits_));
    step_ = stride;
    const std::uint32_t imageSize = stride * std::uint32_t(in.fullHeight);
    handle_ = plat::globalAlloc(std::size_t(in.headerSize) + imageSize);
    if (!handle_) return;
    auto* block = static_cast<std::uint8_t*>(plat::globalLock(handle_));
    std::memcpy(block, source.block(), in.headerSize);
    BITMAPINFOHEADER h;
    std::memcpy(&h, block, sizeof h);
    h.biBitCount = bits_;
    h.biClrUsed = 0;
    h.biClrImportant = 0;
    h.biSizeImage = imageSize;
    std::memcpy(block, &h, sizeof h);
    pixels_ = block + in.headerSize;
}

Output::~Output() {
    if (!handle_) return;
    plat::globalUnlock(handle_);
    plat::globalFree(handle_);
}

View Output::view() const {
    View v;
    if (!pixels_) return v;
    v.bottom = pixels_;
    v.step = step_;
    v.width = width_;
    v.height = height_;
    v.bitCount = bits_;
    v.picture = handle_;
    return v;
}

View viewOf(std::uint8_t* block) {
    BITMAPINFOHEADER h;
    std::memcpy(&h, block, sizeof h);
    View v;
    v.bottom = block + h.biSize;
    v.step = std::ptrdiff_t(paddedStride(std::uint32_t(h.biWidth), h.biBitCount));
    v.width = static_cast<std::uint16_t>(h.biWidth);
    v.height = static_cast<std::uint16_t>(h.biHeight);
    v.bitCount = h.biBitCount;
    return v;
}

bool viewsFit(const View& source, const View& output) {
    auto fits = [](const View& v) {
        const std::size_t rowBytes = std::size_t(v.width) * (v.bitCount / 8);
        const std::size_t distance = std::size_t(v.step < 0 ? -v.step : v.step);
        return v.bottom && (v.bitCount == 24 || v.bitCount == 32) && v.width && v.height &&
               (v.height == 1 || distance >= rowBytes);
    };
    if (!fits(source) || !fits(output) || source.width != output.width || source.height != output.height ||
        source.bitCount != output.bitCount)
        return false;
    // The address range each view covers, first to last byte.
    auto span = [](const View& v, std::uintptr_t& lo, std::uintptr_t& hi) {
        const std::uintptr_t a = reinterpret_cast<std::uintptr_t>(v.bottom);
        const std::uintptr_t top = a + std::uintptr_t(std::ptrdiff_t(v.height - 1) * v.step);
        lo = a < top ? a : top;
        hi = (a < top ? top : a) + std::size_t(v.width) * (v.bitCount / 8);
    };
    std::uintptr_t slo, shi, olo, ohi;
    span(source, slo, shi);
    span(output, olo, ohi);
    return shi <= olo || ohi <= slo;
}

HGLOBAL Output::release() {
    HGLOBAL h = handle_;
    if (h) plat::globalUnlock(h);
    handle_ = nullptr;
    pixels_ = nullptr;
    return h;
}

}  // namespace dib
