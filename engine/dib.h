// Packed DIB access: checking a source picture before any pixel is read, and
// making output pictures by the one rule every filter follows.
#pragma once

#include <cstddef>
#include <cstdint>

#include "engine/host_services.h"
#include "platform/win_types.h"

namespace dib {

constexpr std::uint32_t kMaxSide = 65535;

// Byte size of a row of `width` pixels at `bits` per pixel, padded to 4 bytes.
inline std::uint64_t paddedStride(std::uint64_t width, unsigned bits) {
    return ((width * bits + 31) / 32) * 4;
}

// A new bottom-up picture in a movable block: a header of headerSize bytes
// (BITMAPINFOHEADER fields set, the rest zero), tableEntries colour-table entries
// (zero) and zero-filled rows. Null when memory fails or the size does not fit.
HGLOBAL create(std::int32_t width, std::int32_t height, unsigned bits, std::uint32_t tableEntries = 0,
               std::uint32_t headerSize = 40);

// The published rule for the colour table after a header: biClrUsed entries of
// 4 bytes, or 2^biBitCount when it is 0, for pictures of up to 8 bits; none for
// deeper pictures. At most 0xFFFF.
std::uint16_t colourTableBytes(const BITMAPINFOHEADER* header);

// Where the parts of a checked picture lie inside its block.
struct Layout {
    std::uint32_t headerSize = 0;       // biSize
    std::uint32_t colourTableSize = 0;  // bytes after the header
    std::int32_t fullWidth = 0;         // biWidth
    std::int32_t fullHeight = 0;        // biHeight
    std::uint16_t width = 0, height = 0;
    std::uint16_t bitCount = 0;
    std::uint16_t bytesPerPixel = 0;
    std::uint32_t stride = 0;           // biSizeImage / biHeight
    std::uint32_t imageSize = 0;        // biSizeImage
};

// Checks a packed DIB of `blockSize` bytes: 8-, 24- or 32-bit, uncompressed,
// bottom-up, 1..65535 pixels each way, colour table and rows inside the block,
// and an output picture whose size fits 32 bits. False refuses the picture.
// The host, when given, says how long the colour table is; otherwise the
// published rule does.
bool inspect(const std::uint8_t* block, std::size_t blockSize, const flairize::HostServices* host, Layout& layout);

// Pixels in memory: row y (0 = bottom) at bottom + y * step; a negative step
// walks up a picture stored top row first. The engine's filters read and write
// pictures only through views: render() views the packed pictures it is given
// and makes, renderInto() the caller's frames.
struct View {
    std::uint8_t* bottom = nullptr;
    std::ptrdiff_t step = 0;
    std::uint16_t width = 0, height = 0;
    std::uint16_t bitCount = 0;                  // 8 (sources only), 24 or 32
    const std::uint8_t* colourTable = nullptr;   // 8 bits: 256 entries of blue, green, red, reserved
    // The packed picture whose pixels these are, where the view is one
    // picture's pixels entire: operations that take whole pictures are
    // handed the picture itself.
    HGLOBAL picture = nullptr;

    std::uint8_t* row(std::uint32_t y) const { return bottom + std::ptrdiff_t(y) * step; }
    std::size_t rowBytes() const { return std::size_t(width) * (bitCount / 8u); }   // without padding
};

// A locked, checked source picture (see inspect), or a view. ok() is false for
// a picture that is refused.
class Source {
public:
    explicit Source(HGLOBAL handle, const flairize::HostServices* host = nullptr);
    // Reads a view (an 8-bit one through its colour table, which it must have).
    explicit Source(const View& view);
    ~Source();
    Source(const Source&) = delete;
    Source& operator=(const Source&) = delete;

    bool ok() const { return ok_; }
    const Layout& layout() const { return layout_; }
    const std::uint8_t* block() const { return block_; }   // null for a view
    const BITMAPINFOHEADER* header() const { return reinterpret_cast<const BITMAPINFOHEADER*>(block_); }
    const std::uint8_t* pixels() const { return pixels_; }   // the bottom row
    std::ptrdiff_t step() const { return step_; }             // from a row to the one above
    const std::uint8_t* row(std::uint32_t y) const { return pixels_ + std::ptrdiff_t(y) * step_; }
    // 256 colour-table entries; a shorter table is padded with black so every
    // index byte reads inside memory.
    const std::uint8_t* colourTable() const { return table_; }
    bool hasAlpha() const { return layout_.bitCount == 32; }
    // The pixels as a view (of the picture, for a picture); valid while this lives.
    View view() const;

private:
    HGLOBAL handle_ = nullptr;
    const std::uint8_t* block_ = nullptr;
    const std::uint8_t* pixels_ = nullptr;
    std::ptrdiff_t step_ = 0;
    bool ok_ = false;
    Layout layout_;
    const std::uint8_t* table_ = nullptr;
    std::uint8_t paddedTable_[1024];
};

// A new output picture for `source`: header copied (biSize bytes), biBitCount
// 32 for a 32-bit source and 24 otherwise, no colour table, zero-filled pixels.
class Output {
public:
    explicit Output(const Source& source);
    ~Output();   // frees the block unless release() handed it on
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;

    bool ok() const { return pixels_ != nullptr; }
    std::uint8_t* pixels() const { return pixels_; }   // the bottom row
    std::uint8_t* row(std::uint32_t y) const { return pixels_ + std::ptrdiff_t(y) * step_; }
    std::ptrdiff_t stride() const { return step_; }
    std::size_t rowBytes() const { return std::size_t(width_) * (bits_ / 8u); }   // the pixels of a row, without padding
    View view() const;   // the picture's pixels, while it is held here
    HGLOBAL release();   // unlocks and gives up ownership

private:
    HGLOBAL handle_ = nullptr;
    std::uint8_t* pixels_ = nullptr;
    std::ptrdiff_t step_ = 0;
    std::uint16_t width_ = 0, height_ = 0, bits_ = 0;
};

// The pixels of a locked 24- or 32-bit picture the engine made (no colour table).
View viewOf(std::uint8_t* block);

// Whether a caller's views can serve as a render's source and output: 24 or 32
// bits, 1 .. 65535 pixels each way, rows at least a row's bytes apart, the
// output of the source's size and depth and not overlapping it.
bool viewsFit(const View& source, const View& output);

}  // namespace dib
