// What the picture formats of the flairize command share: the read in
// progress, a new DIB to read into, writing to a file descriptor, and each
// format's three entry points, which picture_io.cpp lists in its one table.
// Adding a format: a file here, its declarations below, a row in that table.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "engine/dib.h"
#include "platform/global_memory.h"
#include "standalone/picture_io.h"

namespace pictures {

inline bool sideOk(std::uint64_t width, std::uint64_t height) {
    return width >= 1 && height >= 1 && width <= dib::kMaxSide && height <= dib::kMaxSide;
}

// One read: its limits, what the file says besides its pixels, and whether it
// failed for want of memory.
struct Reading {
    std::string& error;
    const Limits& limits;
    Metadata& metadata;
    bool outOfMemory = false;
    // False, with the refusal, for a declared size over the limits.
    bool fits(std::uint64_t width, std::uint64_t height, unsigned bits, std::uint64_t extra = 0) {
        error = limits.check(width, height, bits, extra);
        return error.empty();
    }
    HGLOBAL noMemory() {
        error = "not enough memory";
        outOfMemory = true;
        return nullptr;
    }
};

// A new bottom-up DIB: `header` (headerSize bytes), `tableEntries` colour entries, rows.
struct NewDib {
    HGLOBAL handle = nullptr;
    unsigned char* base = nullptr;
    unsigned char* table = nullptr;
    unsigned char* pixels = nullptr;
    std::uint32_t stride = 0;
    ~NewDib() {
        if (handle) {
            plat::globalUnlock(handle);
            plat::globalFree(handle);
        }
    }
    bool create(const unsigned char* header, std::uint32_t headerSize, std::int32_t width, std::int32_t height,
                unsigned bits, std::uint32_t tableEntries) {
        handle = dib::create(width, height, bits, tableEntries, headerSize);
        if (!handle) return false;
        base = static_cast<unsigned char*>(plat::globalLock(handle));
        // The file's resolution and a longer header's further fields are kept;
        // colour masks no longer apply to BI_RGB.
        if (header) std::memcpy(base + 24, header + 24, 8);
        if (header && headerSize > 40) std::memcpy(base + 40, header + 40, headerSize - 40);
        if (headerSize >= 56) std::memset(base + 40, 0, 16);
        stride = std::uint32_t(dib::paddedStride(std::uint32_t(width), bits));
        table = base + headerSize;
        pixels = table + tableEntries * 4;
        return true;
    }
    HGLOBAL release() {
        plat::globalUnlock(handle);
        HGLOBAL h = handle;
        handle = nullptr;
        return h;
    }
};

// One write: the reason it failed, and whether that was want of memory.
struct Writing {
    std::string& error;
    bool outOfMemory = false;
    bool noMemory() {
        error = "not enough memory";
        outOfMemory = true;
        return false;
    }
};

// All of `size` bytes to `fd`; false with the system's reason otherwise.
bool writeAll(int fd, const void* data, std::size_t size, std::string& error);

// A picture's rows as BGR or BGRA bytes: its own rows, or for an 8-bit picture
// its colours looked up in the table. top points at the top row, down steps
// to the row below.
struct Rows {
    const unsigned char* top = nullptr;
    std::ptrdiff_t down = 0;
    int channels = 3;
    std::vector<unsigned char> expanded;
};
Rows rowsOf(const dib::Source& pic);

// Whether a resolution is given, in a unit, and of a size a file can hold.
inline bool hasResolution(const Metadata& m) {
    return m.unit != ResolutionUnit::None && m.xResolution > 0 && m.yResolution > 0 && m.xResolution < 1e6 &&
           m.yResolution < 1e6;
}

// formats/metadata.cpp: the EXIF orientation (1..8; 1 when none or unreadable),
// and the EXIF data with its orientation set to 1; EXIF data read from a TIFF
// file's own tags.
int exifOrientation(const std::vector<unsigned char>& exif);
void clearExifOrientation(std::vector<unsigned char>& exif);
std::vector<unsigned char> exifOfTiff(const std::vector<unsigned char>& file);
// Adds EXIF data to a TIFF file in memory (its orientation becomes the file's);
// false, with the file unchanged, where it cannot.
bool addExifToTiff(std::vector<unsigned char>& file, const std::vector<unsigned char>& exif);
// Replaces the picture with the one an orientation of 2..8 says is seen; false
// for want of memory (the picture is then kept).
bool orientUpright(HGLOBAL& picture, int orientation);

// Each format: whether a file's first bytes (at least 12, or the whole file)
// start one; reading a whole file into a new DIB (null, with in.error set, on
// failure); writing a picture to `fd` (false, with `error` set, on failure).

// formats/bmp.cpp
bool isBmp(const unsigned char* data, std::size_t size);
HGLOBAL readBmp(const std::vector<unsigned char>& data, Reading& in);
bool writeBmp(int fd, const dib::Source& pic, const WriteOptions& options, Writing& out);

// formats/png.cpp
bool isPng(const unsigned char* data, std::size_t size);
HGLOBAL readPng(const std::vector<unsigned char>& data, Reading& in);
bool writePng(int fd, const dib::Source& pic, const WriteOptions& options, Writing& out);

// formats/jpeg.cpp
bool isJpeg(const unsigned char* data, std::size_t size);
HGLOBAL readJpeg(const std::vector<unsigned char>& data, Reading& in);
bool writeJpeg(int fd, const dib::Source& pic, const WriteOptions& options, Writing& out);

// formats/webp.cpp
bool isWebP(const unsigned char* data, std::size_t size);
HGLOBAL readWebP(const std::vector<unsigned char>& data, Reading& in);
bool writeWebP(int fd, const dib::Source& pic, const WriteOptions& options, Writing& out);

// formats/gif.cpp (read only: the first frame)
bool isGif(const unsigned char* data, std::size_t size);
HGLOBAL readGif(const std::vector<unsigned char>& data, Reading& in);

// formats/tiff.cpp
bool isTiff(const unsigned char* data, std::size_t size);
HGLOBAL readTiff(const std::vector<unsigned char>& data, Reading& in);
bool writeTiff(int fd, const dib::Source& pic, const WriteOptions& options, Writing& out);

}  // namespace pictures
