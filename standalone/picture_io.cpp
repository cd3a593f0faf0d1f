// Picture files: reading a file or standard input within the memory limits,
// and choosing its format by signature, or an output's by extension, through
// the one table of formats below (each format's code is in formats/).
#include "standalone/picture_io.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include "standalone/formats/common.h"
#include "standalone/output_file.h"

namespace pictures {
namespace {

struct FileFormat {
    Format format;
    const char* name;            // in messages
    const char* extensions[2];   // an output's name ends in one of these (any case)
    bool takesQuality;
    bool (*matches)(const unsigned char* data, std::size_t size);   // the file's first bytes
    HGLOBAL (*read)(const std::vector<unsigned char>& data, Reading& in);
    bool (*write)(int fd, const dib::Source& pic, const WriteOptions& options, Writing& out);   // null: read only
};

// Every format, in the order messages list them. No two signatures share a
// first byte, so at most one format matches a file.
const FileFormat kFormats[] = {
    {Format::Bmp, "BMP", {".bmp"}, false, isBmp, readBmp, writeBmp},
    {Format::Png, "PNG", {".png"}, false, isPng, readPng, writePng},
    {Format::Jpeg, "JPEG", {".jpg", ".jpeg"}, true, isJpeg, readJpeg, writeJpeg},
    {Format::WebP, "WebP", {".webp"}, true, isWebP, readWebP, writeWebP},
    {Format::Tiff, "TIFF", {".tif", ".tiff"}, false, isTiff, readTiff, writeTiff},
    {Format::Gif, "GIF", {nullptr}, false, isGif, readGif, nullptr},
};

// The format whose signature the first bytes (at least 12, or the whole file)
// start; null for none.
const FileFormat* formatOfContents(const unsigned char* data, std::size_t size) {
    for (const FileFormat& f : kFormats)
        if (f.matches(data, size)) return &f;
    return nullptr;
}

const FileFormat* entryOf(Format format) {
    for (const FileFormat& f : kFormats)
        if (f.format == format) return &f;
    return nullptr;
}

// "a, b, c or d"
std::string listed(const std::vector<std::string>& items) {
    std::string text;
    for (std::size_t i = 0; i < items.size(); ++i)
        text += (i == 0 ? "" : i + 1 == items.size() ? " or " : ", ") + items[i];
    return text;
}

const std::string& knownExtensions() {
    static const std::string text = [] {
        std::vector<std::string> all;
        for (const FileFormat& f : kFormats)
            for (const char* extension : f.extensions)
                if (extension) all.push_back(extension);
        return listed(all);
    }();
    return text;
}

std::string notAPicture() {
    std::vector<std::string> names;
    for (const FileFormat& f : kFormats) names.push_back(f.name);
    return "not a " + listed(names) + " picture";
}

// Reads at most `limit` bytes; more is refused as soon as it arrives, so an
// endless stream (a pipe, /dev/zero) costs no more than the limit. The bytes
// go into chunks of a fixed size, joined once at the end: growing one block
// would hold the old and the new block at once, and the freed blocks would
// stay with the process.
bool readAll(int fd, std::vector<unsigned char>& data, std::size_t expected, std::size_t limit, std::string& error) {
    constexpr std::size_t kChunkBytes = std::size_t(4) << 20;
    // A file of known size comes in one chunk (one byte more shows that it grew).
    const std::size_t first = std::min(expected ? std::max<std::size_t>(expected + 1, 4096) : kChunkBytes, limit + 1);
    std::vector<std::vector<unsigned char>> chunks;
    chunks.emplace_back(first);
    std::size_t used = 0, filled = 0;   // bytes in all chunks, in the last one
    for (;;) {
        if (used > limit) {
            error = "file too large (over " + sizeText(limit) + ", half the memory limit)";
            return false;
        }
        if (filled == chunks.back().size()) {
            chunks.emplace_back(std::min(kChunkBytes, limit + 1 - used));
            filled = 0;
        }
        std::vector<unsigned char>& chunk = chunks.back();
        const ssize_t n = ::read(fd, chunk.data() + filled, chunk.size() - filled);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) {
            error = std::strerror(errno);
            return false;
        }
        if (n == 0) break;
        // A stream that starts no known picture is refused at once, not read to its end.
        if (chunks.size() == 1 && used < 12 && used + std::size_t(n) >= 12 &&
            !formatOfContents(chunk.data(), used + std::size_t(n))) {
            error = notAPicture();
            return false;
        }
        used += std::size_t(n);
        filled += std::size_t(n);
    }
    if (chunks.size() == 1) {
        data = std::move(chunks.front());
        data.resize(used);
        return true;
    }
    data.clear();
    data.reserve(used);
    for (std::vector<unsigned char>& chunk : chunks) {
        data.insert(data.end(), chunk.begin(), chunk.begin() + std::ptrdiff_t(std::min(chunk.size(), used - data.size())));
        std::vector<unsigned char>().swap(chunk);
    }
    return true;
}

bool readFile(const std::string& path, std::vector<unsigned char>& data, std::size_t limit, std::string& error) {
    if (path == "-") return readAll(STDIN_FILENO, data, 0, limit, error);
    const int fd = ::open(path.c_str(), O_RDONLY);
    if (fd < 0) {
        error = std::strerror(errno);
        return false;
    }
    struct stat st {};
    bool ok = ::fstat(fd, &st) == 0;
    if (!ok) error = std::strerror(errno);
    if (ok && S_ISDIR(st.st_mode)) {
        error = "is a folder";
        ok = false;
    }
    if (ok && S_ISREG(st.st_mode) && std::uint64_t(st.st_size) > limit) {   // refused before it is read
        error = "file too large (" + sizeText(std::uint64_t(st.st_size)) + ", limit " + sizeText(limit) +
                ", half the memory limit)";
        ok = false;
    }
    ok = ok && readAll(fd, data, S_ISREG(st.st_mode) ? std::size_t(st.st_size) : 0, limit, error);
    ::close(fd);
    return ok;
}

}  // namespace

const char* const kKnownExtensions = knownExtensions().c_str();

bool hasExtension(const std::string& path, const char* ext) {
    const std::size_t n = std::strlen(ext);
    if (path.size() < n) return false;
    return strcasecmp(path.c_str() + path.size() - n, ext) == 0;
}

Format formatOf(const std::string& path) {
    if (path == "-") return Format::Png;
    for (const FileFormat& f : kFormats)
        for (const char* extension : f.extensions)
            if (extension && hasExtension(path, extension)) return f.format;
    return Format::Unknown;
}

bool takesQuality(Format format) {
    const FileFormat* entry = entryOf(format);
    return entry && entry->takesQuality;
}

namespace {

HGLOBAL readWithin(const std::string& path, Reading& in) {
    std::string& error = in.error;
    std::vector<unsigned char> data;
    if (!readFile(path, data, in.limits.maxFileBytes(), error)) return nullptr;
    if (const FileFormat* format = formatOfContents(data.data(), data.size())) return format->read(data, in);
    error = data.empty() ? "file is empty" : notAPicture();
    return nullptr;
}

}  // namespace

std::string sizeText(std::uint64_t bytes) {
    static const char* const kUnits[] = {"bytes", "KiB", "MiB", "GiB", "TiB"};
    int unit = 0;
    std::uint64_t whole = bytes, tenths = 0;
    while (whole >= 1024 && unit < 4) {
        tenths = (whole % 1024) * 10 / 1024;
        whole /= 1024;
        ++unit;
    }
    return std::to_string(whole) + (tenths && unit ? "." + std::to_string(tenths) : "") + " " + kUnits[unit];
}

bool parseSize(const std::string& text, std::uint64_t& bytes) {
    char* end = nullptr;
    errno = 0;
    if (text.empty() || !(std::isdigit(static_cast<unsigned char>(text[0])) || text[0] == '.')) return false;
    const double v = std::strtod(text.c_str(), &end);
    std::string unit(end);
    if (!unit.empty() && (unit.back() == 'B' || unit.back() == 'b')) unit.pop_back();   // "4GB", "512MiB"
    if (unit.size() == 2 && (unit[1] == 'i' || unit[1] == 'I')) unit.pop_back();
    double scale = 1;
    if (unit.size() == 1) {
        const char* units = "KMGT";
        const char* u = std::strchr(units, std::toupper(static_cast<unsigned char>(unit[0])));
        if (!u) return false;
        scale = double(1ull << (10 * (u - units + 1)));
    } else if (!unit.empty()) {
        return false;
    }
    const double b = v * scale;
    if (errno || !(b >= 1) || b > 1e18) return false;
    bytes = std::uint64_t(b);
    return true;
}

std::uint64_t Limits::need(std::uint64_t width, std::uint64_t height, unsigned bits, std::uint64_t extra) const {
    // The source as read; each render's output and working picture are 24-bit
    // (32-bit for a 32-bit source), rows padded to four bytes.
    const std::uint64_t source = height * ((width * bits + 31) / 32 * 4);
    const std::uint64_t rendered = height * ((width * (bits == 32 ? 32 : 24) + 31) / 32 * 4);
    return source + extra + std::uint64_t(inFlight ? inFlight : 1) * 2 * rendered;
}

std::string Limits::check(std::uint64_t width, std::uint64_t height, unsigned bits, std::uint64_t extra) const {
    const std::string size = std::to_string(width) + " \u00d7 " + std::to_string(height);
    if (width * height > maxPixels)
        return "picture too large (" + size + ", limit " + std::to_string(maxPixels) + " pixels)";
    const std::uint64_t needed = need(width, height, bits, extra);
    if (needed > maxMemory)
        return "picture too large (" + size + ", limit " + sizeText(maxMemory) + " of memory; it needs " +
               sizeText(needed) + ")";
    return "";
}

HGLOBAL read(const std::string& path, std::string& error, const Limits& limits, ReadFailure* why,
             const ReadOptions& options) {
    if (why) *why = ReadFailure::Refused;
    Metadata ownMetadata;
    Metadata& metadata = options.metadata ? *options.metadata : ownMetadata;
    metadata = Metadata();
    Reading in{error, limits, metadata};
    HGLOBAL picture = readWithin(path, in);
    metadata.orientation = exifOrientation(metadata.exif);
    if (picture && metadata.xResolution <= 0) {   // a BMP file's resolution, kept in its header
        BITMAPINFOHEADER header;
        std::memcpy(&header, plat::globalLock(picture), sizeof header);
        plat::globalUnlock(picture);
        if (header.biXPelsPerMeter > 0 && header.biYPelsPerMeter > 0) {
            metadata.xResolution = header.biXPelsPerMeter / 100.0;
            metadata.yResolution = header.biYPelsPerMeter / 100.0;
            metadata.unit = ResolutionUnit::Centimetre;
        }
    }
    if (picture && options.autoOrient && metadata.orientation != 1) {
        // Turned before the effect, so that it sees the picture as people do.
        if (!orientUpright(picture, metadata.orientation)) {
            plat::globalFree(picture);
            picture = in.noMemory();
        }
        if (metadata.orientation >= 5) std::swap(metadata.xResolution, metadata.yResolution);
        clearExifOrientation(metadata.exif);
        metadata.orientation = 1;
    }
    if (why) *why = picture ? ReadFailure::None : in.outOfMemory ? ReadFailure::OutOfMemory : ReadFailure::Refused;
    return picture;
}

bool write(const std::string& path, HGLOBAL picture, std::string& error, const WriteOptions& options,
           WriteFailure* why) {
    if (why) *why = WriteFailure::Refused;
    const FileFormat* format = entryOf(formatOf(path));
    if (!format || !format->write) {
        error = std::string("unknown picture format (use ") + kKnownExtensions + ")";
        return false;
    }
    dib::Source pic(picture);
    if (!pic.ok()) {
        error = "the picture cannot be written";
        return false;
    }
    output::File file;
    if (!file.open(path, error)) return false;
    Writing out{error};
    const bool written = format->write(file.fd(), pic, options, out) && file.commit(error);
    if (why) *why = written ? WriteFailure::None : out.outOfMemory ? WriteFailure::OutOfMemory : WriteFailure::Refused;
    return written;
}

}  // namespace pictures
