// Picture files for the stand-alone host: BMP, PNG, JPEG, WebP and TIFF in and
// out, GIF in, through libpng, libjpeg-turbo, libwebp, libtiff and giflib; their
// colour profile, EXIF data and resolution through the same libraries and Exiv2.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/win_types.h"

namespace pictures {

enum class Format { Unknown, Bmp, Png, Jpeg, WebP, Tiff, Gif };   // GIF is read only

// The format an output name asks for, by its extension (any case): .bmp, .png,
// .jpg/.jpeg, .webp, .tif/.tiff; "-" (standard output) is PNG.
Format formatOf(const std::string& path);
bool takesQuality(Format format);   // JPEG and WebP
extern const char* const kKnownExtensions;   // for messages: ".bmp, .png, ..."

enum class ResolutionUnit { None, Inch, Centimetre };   // None: the aspect ratio of a pixel only

// What a picture file holds besides its pixels, carried from an input into the
// outputs whose format holds it: JPEG, PNG, WebP and TIFF keep the profile and
// the EXIF data, all but WebP the resolution.
struct Metadata {
    std::vector<unsigned char> icc;    // the ICC colour profile
    std::vector<unsigned char> exif;   // EXIF data as TIFF data ("II*" or "MM*"), without JPEG's "Exif" prefix
    double xResolution = 0, yResolution = 0;   // dots a unit; 0: not given
    ResolutionUnit unit = ResolutionUnit::None;
    int orientation = 1;   // the EXIF orientation (1..8) of the pixels as read
    bool empty() const { return icc.empty() && exif.empty() && xResolution <= 0; }
};

struct WriteOptions {
    // 1..100 for JPEG and WebP; 0 is the default: JPEG quality 90, WebP lossless.
    int quality = 0;
    const Metadata* metadata = nullptr;   // written where the format holds it
};

// What reading and rendering a picture may take. A file larger than half the
// memory budget is refused before it is read (the file and its picture are
// held at once); a picture is refused from its header, before it is decoded,
// when it has more pixels than maxPixels or when it and the pictures its
// renders need (an output and one working picture for each of `inFlight`
// renders at once) come to more than maxMemory.
struct Limits {
    static constexpr std::uint64_t kDefaultMaxPixels = 16384ull * 16384;   // 256 megapixels
    static constexpr std::uint64_t kDefaultMaxMemory = 8ull << 30;        // 8 GiB
    std::uint64_t maxPixels = kDefaultMaxPixels;
    std::uint64_t maxMemory = kDefaultMaxMemory;
    unsigned inFlight = 1;
    std::uint64_t maxFileBytes() const { return maxMemory / 2; }
    // Bytes a picture of width x height read as a `bits`-bit DIB needs, with
    // its renders, plus `extra` bytes the reading needs besides.
    std::uint64_t need(std::uint64_t width, std::uint64_t height, unsigned bits, std::uint64_t extra = 0) const;
    // "" when such a picture fits, else the refusal: "picture too large (W × H, limit ...)".
    std::string check(std::uint64_t width, std::uint64_t height, unsigned bits, std::uint64_t extra = 0) const;
};

// "512M", "4G", "1.5G", "65536K" or bytes; false for anything else.
bool parseSize(const std::string& text, std::uint64_t& bytes);
std::string sizeText(std::uint64_t bytes);   // "8 GiB", "1.5 MiB", "900 bytes"

// Why a read or write failed: the file (missing, damaged, over a limit) or memory.
enum class ReadFailure { None, Refused, OutOfMemory };
using WriteFailure = ReadFailure;

struct ReadOptions {
    // Pixels stored turned or mirrored (EXIF orientation 2..8) are turned to be
    // seen upright, and the orientation kept in `metadata` becomes 1.
    bool autoOrient = true;
    Metadata* metadata = nullptr;   // filled when given
};

// Reads a picture into a new packed DIB (8-bit with colour table, 24- or 32-bit,
// bottom-up, BI_RGB); the format is told by the file's first bytes. "-" reads
// standard input. Pictures with alpha become 32-bit, others 24-bit; palette
// PNG, TIFF and GIF files stay 8-bit with their colour table; 16-bit channels are
// rounded to 8 bits; CMYK JPEG becomes RGB; a GIF gives its first frame, while
// animated PNG and WebP files are refused. On failure returns null and sets
// `error` to a short reason. Within `limits`; `why` (may be null) tells a
// refusal from want of memory.
HGLOBAL read(const std::string& path, std::string& error, const Limits& limits = Limits(),
             ReadFailure* why = nullptr, const ReadOptions& options = {});

// Writes a packed DIB in the format of formatOf(path); "-" writes standard
// output. A file is written beside its final place and renamed, so a failure
// leaves nothing (see output_file.h). `why` (may be null) tells want of memory
// from any other failure.
bool write(const std::string& path, HGLOBAL picture, std::string& error, const WriteOptions& options = {},
           WriteFailure* why = nullptr);

bool hasExtension(const std::string& path, const char* ext);   // case-insensitive

}  // namespace pictures
