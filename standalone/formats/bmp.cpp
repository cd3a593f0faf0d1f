// BMP: the engine's own packed DIB behind a 14-byte file header. 8-, 24- and
// 32-bit uncompressed files are read (32-bit with plain BGRA masks too).
#include <cstdint>
#include <cstring>
#include <vector>

#include "standalone/formats/common.h"

namespace pictures {
namespace {

constexpr std::uint32_t kBiBitfields = 3;

std::uint16_t le16(const unsigned char* p) { return std::uint16_t(p[0] | (p[1] << 8)); }
std::uint32_t le32(const unsigned char* p) {
    return std::uint32_t(p[0]) | (std::uint32_t(p[1]) << 8) | (std::uint32_t(p[2]) << 16) | (std::uint32_t(p[3]) << 24);
}
void putLe32(unsigned char* p, std::uint32_t v) {
    for (int i = 0; i < 4; ++i) p[i] = static_cast<unsigned char>(v >> (8 * i));
}

// A V5 header's colour space may name a profile stored after the pixels (or a
// file); the picture carries no profile, so the header must not claim one.
void dropProfile(unsigned char* header, std::uint32_t headerSize) {
    if (headerSize < 124) return;
    constexpr std::uint32_t kEmbedded = 0x4D424544, kLinked = 0x4C494E4B, kSrgb = 0x73524742;
    const std::uint32_t space = le32(header + 56);
    if (space == kEmbedded || space == kLinked) putLe32(header + 56, kSrgb);
    std::memset(header + 112, 0, 8);   // bV5ProfileData, bV5ProfileSize
}

}  // namespace

bool isBmp(const unsigned char* data, std::size_t size) { return size >= 2 && data[0] == 'B' && data[1] == 'M'; }

HGLOBAL readBmp(const std::vector<unsigned char>& file, Reading& in) {
    const unsigned char* data = file.data();
    const std::size_t size = file.size();
    std::string& error = in.error;
    if (size < 14 + 40 || data[0] != 'B' || data[1] != 'M') {
        error = size < 54 && size >= 2 && data[0] == 'B' && data[1] == 'M' ? "file is truncated" : "not a BMP file";
        return nullptr;
    }
    const std::uint32_t offBits = le32(data + 10);
    const unsigned char* info = data + 14;
    const std::uint32_t headerSize = le32(info);
    if (headerSize != 40 && headerSize != 108 && headerSize != 124) {
        error = "unsupported BMP header of " + std::to_string(headerSize) + " bytes";
        return nullptr;
    }
    if (size < 14 + std::size_t(headerSize)) {
        error = "file is truncated";
        return nullptr;
    }
    const std::int32_t width = std::int32_t(le32(info + 4));
    const std::int32_t rawHeight = std::int32_t(le32(info + 8));
    const unsigned bits = le16(info + 14);
    const std::uint32_t compression = le32(info + 16);
    const std::uint32_t clrUsed = le32(info + 32);
    if (bits != 8 && bits != 24 && bits != 32) {
        error = "unsupported bit depth " + std::to_string(bits) + " (8, 24 and 32 are served)";
        return nullptr;
    }
    std::uint32_t maskBytes = 0;
    if (compression == kBiBitfields && bits == 32) {
        // Plain BGRA masks are the same layout as BI_RGB; anything else is refused.
        const unsigned char* masks = info + 40;
        if (headerSize == 40) {
            if (size < 14 + 40 + 12) {
                error = "file is truncated";
                return nullptr;
            }
            maskBytes = 12;
        }
        if (le32(masks) != 0x00FF0000 || le32(masks + 4) != 0x0000FF00 || le32(masks + 8) != 0x000000FF) {
            error = "unsupported BMP colour masks";
            return nullptr;
        }
    } else if (compression != BI_RGB) {
        error = "compressed BMP files are not supported";
        return nullptr;
    }
    if (width <= 0 || rawHeight == 0 || rawHeight == INT32_MIN || width > std::int32_t(dib::kMaxSide) ||
        (rawHeight < 0 ? -rawHeight : rawHeight) > std::int32_t(dib::kMaxSide)) {
        error = "unsupported picture size";
        return nullptr;
    }
    const bool topDown = rawHeight < 0;
    const std::int32_t height = topDown ? -rawHeight : rawHeight;
    if (!in.fits(std::uint64_t(width), std::uint64_t(height), bits)) return nullptr;
    std::uint32_t entries = 0;
    if (bits == 8) {
        entries = clrUsed ? clrUsed : 256;
        if (entries > 256) {
            error = "colour table has more than 256 entries";
            return nullptr;
        }
    }
    const std::uint64_t tableStart = 14ull + headerSize + maskBytes;
    const std::uint32_t stride = std::uint32_t(dib::paddedStride(std::uint32_t(width), bits));
    const std::uint64_t needed = std::uint64_t(offBits) + std::uint64_t(stride) * std::uint32_t(height);
    if (tableStart + entries * 4ull > size || offBits < tableStart + entries * 4ull || needed > size) {
        error = "file is truncated";
        return nullptr;
    }
    NewDib out;
    if (!out.create(info, headerSize, width, height, bits, entries)) return in.noMemory();
    dropProfile(out.base, headerSize);   // a profile after the pixels is not kept
    std::memcpy(out.table, data + tableStart, entries * 4);
    for (std::int32_t y = 0; y < height; ++y) {
        const std::int32_t fileRow = topDown ? height - 1 - y : y;
        std::memcpy(out.pixels + std::size_t(y) * stride, data + offBits + std::size_t(fileRow) * stride, stride);
    }
    return out.release();
}

// The engine's DIB, behind a 14-byte file header.
bool writeBmp(int fd, const dib::Source& pic, const WriteOptions&, Writing& out) {
    std::string& error = out.error;
    const dib::Layout& l = pic.layout();
    const std::uint32_t dibSize = l.headerSize + l.colourTableSize + l.imageSize;
    const std::uint32_t offBits = 14 + l.headerSize + l.colourTableSize;
    unsigned char fileHeader[14] = {'B', 'M'};
    const std::uint32_t fileSize = 14 + dibSize;
    for (int i = 0; i < 4; ++i) fileHeader[2 + i] = static_cast<unsigned char>(fileSize >> (8 * i));
    for (int i = 0; i < 4; ++i) fileHeader[10 + i] = static_cast<unsigned char>(offBits >> (8 * i));
    // The header goes out with any profile reference dropped (nothing follows the pixels).
    std::vector<unsigned char> header(pic.block(), pic.block() + l.headerSize);
    dropProfile(header.data(), l.headerSize);
    return writeAll(fd, fileHeader, sizeof fileHeader, error) && writeAll(fd, header.data(), header.size(), error) &&
           writeAll(fd, pic.block() + l.headerSize, dibSize - l.headerSize, error);
}

}  // namespace pictures
