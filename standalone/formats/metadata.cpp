// EXIF data through Exiv2 (its orientation, and a TIFF file's own tags), and
// turning a picture as its orientation says.
#include <exiv2/exiv2.hpp>

#include <algorithm>
#include <mutex>

#include "standalone/formats/common.h"

namespace pictures {
namespace {

// Exiv2 says nothing on stderr (a damaged EXIF block is only left out), and its
// XMP toolkit is started once, before frames written at once use Exiv2.
void quietExiv2() {
    static std::once_flag once;
    std::call_once(once, [] {
        Exiv2::LogMsg::setLevel(Exiv2::LogMsg::mute);
        Exiv2::XmpParser::initialize();
    });
}

bool tiffHeader(const std::vector<unsigned char>& exif) {
    return exif.size() >= 8 && ((exif[0] == 'I' && exif[1] == 'I') || (exif[0] == 'M' && exif[1] == 'M'));
}

}  // namespace

int exifOrientation(const std::vector<unsigned char>& exif) {
    if (!tiffHeader(exif)) return 1;
    quietExiv2();
    try {
        Exiv2::ExifData data;
        Exiv2::ExifParser::decode(data, exif.data(), std::uint32_t(exif.size()));
        const auto tag = data.findKey(Exiv2::ExifKey("Exif.Image.Orientation"));
        if (tag == data.end() || tag->count() < 1) return 1;
        const long value = tag->toLong();
        return value >= 1 && value <= 8 ? int(value) : 1;
    } catch (...) {   // Exiv2's errors and want of memory alike: the picture is kept as stored
        return 1;
    }
}

void clearExifOrientation(std::vector<unsigned char>& exif) {
    if (!tiffHeader(exif)) return;
    quietExiv2();
    try {
        Exiv2::ExifData data;
        const Exiv2::ByteOrder order = Exiv2::ExifParser::decode(data, exif.data(), std::uint32_t(exif.size()));
        data["Exif.Image.Orientation"] = std::uint16_t(1);
        // The value is changed in place where it can be; otherwise the block is built anew.
        Exiv2::Blob blob;
        if (Exiv2::ExifParser::encode(blob, exif.data(), std::uint32_t(exif.size()), order, data) ==
            Exiv2::wmIntrusive)
            exif.assign(blob.begin(), blob.end());
    } catch (...) {
        exif.clear();   // an orientation that cannot be reset is not passed on
    }
}

namespace {
// A TIFF file's own tags that say what the picture shows rather than how it is stored.
bool describes(const Exiv2::Exifdatum& tag) {
    static const char* const kDescriptive[] = {"Make", "Model", "Software", "DateTime", "Artist", "Copyright",
                                               "ImageDescription"};
    if (tag.groupName() != "Image") return true;
    for (const char* name : kDescriptive)
        if (tag.tagName() == name) return true;
    return false;
}
}  // namespace

bool addExifToTiff(std::vector<unsigned char>& file, const std::vector<unsigned char>& exif) {
    if (!tiffHeader(exif)) return false;
    quietExiv2();
    try {
        Exiv2::ExifData carried;
        Exiv2::ExifParser::decode(carried, exif.data(), std::uint32_t(exif.size()));
        Exiv2::Image::AutoPtr image = Exiv2::ImageFactory::open(file.data(), long(file.size()));
        if (!image.get()) return false;
        image->readMetadata();
        Exiv2::ExifData& data = image->exifData();
        for (const Exiv2::Exifdatum& tag : carried)
            if (describes(tag) || tag.tagName() == "Orientation") data[tag.key()] = tag.value();
        image->writeMetadata();
        Exiv2::BasicIo& io = image->io();
        if (io.open() != 0) return false;
        std::vector<unsigned char> written(io.size());
        const bool whole = io.read(written.data(), long(written.size())) == long(written.size());
        io.close();
        if (!whole) return false;
        file.swap(written);
        return true;
    } catch (...) {
        return false;
    }
}

std::vector<unsigned char> exifOfTiff(const std::vector<unsigned char>& file) {
    quietExiv2();
    try {
        Exiv2::Image::AutoPtr image = Exiv2::ImageFactory::open(file.data(), long(file.size()));
        if (!image.get()) return {};
        image->readMetadata();
        // The picture's own layout (size, strips, samples) is the TIFF writer's,
        // and its orientation tag stays with the TIFF reader; only what
        // describes the picture is carried.
        Exiv2::ExifData data;
        for (const Exiv2::Exifdatum& tag : image->exifData())
            if (describes(tag)) data.add(tag);
        if (data.empty()) return {};
        Exiv2::Blob blob;
        Exiv2::ExifParser::encode(blob, Exiv2::littleEndian, data);
        return std::vector<unsigned char>(blob.begin(), blob.end());
    } catch (...) {
        return {};
    }
}

namespace {

// The picture turned: each seen pixel comes from a stored one, for orientations
// 2..8 (EXIF's numbering), with x and y counted from the top left on both sides.
HGLOBAL turned(const dib::Source& source, int orientation) {
    const dib::Layout& l = source.layout();
    const std::uint32_t w = l.width, h = l.height;
    const bool sidesSwapped = orientation >= 5;
    const std::uint32_t outW = sidesSwapped ? h : w, outH = sidesSwapped ? w : h;
    const std::uint32_t entries = l.bitCount == 8 ? std::min<std::uint32_t>(l.colourTableSize / 4, 256) : 0;
    HGLOBAL upright = dib::create(std::int32_t(outW), std::int32_t(outH), l.bitCount, entries, 40);
    if (!upright) return nullptr;
    auto* base = static_cast<unsigned char*>(plat::globalLock(upright));
    const unsigned char* header = source.block();
    std::memcpy(base + (sidesSwapped ? 28 : 24), header + 24, 4);   // the resolution, turned with the picture
    std::memcpy(base + (sidesSwapped ? 24 : 28), header + 28, 4);
    if (entries) std::memcpy(base + 40, source.colourTable(), entries * 4);
    unsigned char* pixels = base + 40 + entries * 4;
    const std::size_t stride = std::size_t(dib::paddedStride(outW, l.bitCount));
    const unsigned bytes = l.bitCount / 8u;
    for (std::uint32_t y = 0; y < outH; ++y) {
        unsigned char* row = pixels + std::size_t(outH - 1 - y) * stride;   // bottom-up
        for (std::uint32_t x = 0; x < outW; ++x) {
            std::uint32_t sx = x, sy = y;
            switch (orientation) {
            case 2: sx = w - 1 - x; break;
            case 3: sx = w - 1 - x, sy = h - 1 - y; break;
            case 4: sy = h - 1 - y; break;
            case 5: sx = y, sy = x; break;
            case 6: sx = y, sy = h - 1 - x; break;
            case 7: sx = w - 1 - y, sy = h - 1 - x; break;
            default: sx = w - 1 - y, sy = x; break;   // 8
            }
            std::memcpy(row + std::size_t(x) * bytes, source.row(h - 1 - sy) + std::size_t(sx) * bytes, bytes);
        }
    }
    plat::globalUnlock(upright);
    return upright;
}

}  // namespace

bool orientUpright(HGLOBAL& picture, int orientation) {
    HGLOBAL upright = nullptr;
    {
        const dib::Source source(picture);
        if (!source.ok() || orientation < 2 || orientation > 8) return true;   // left for the engine to refuse
        upright = turned(source, orientation);
        if (!upright) return false;
    }
    plat::globalFree(picture);
    picture = upright;
    return true;
}

}  // namespace pictures
