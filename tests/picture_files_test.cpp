#include <gtest/gtest.h>

#include <png.h>
#include <tiffio.h>

#include <algorithm>
#include <cstdlib>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <unistd.h>

#include "standalone/picture_io.h"
#include "tests/picture_support.h"

using namespace testpic;

namespace {

std::string tempDir() {
    static std::string dir = [] {
        char t[] = "/tmp/flairize-files-XXXXXX";
        return std::string(mkdtemp(t));
    }();
    return dir;
}

std::vector<unsigned char> fileBytes(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

void putFile(const std::string& path, const std::vector<unsigned char>& data) {
    std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char*>(data.data()), std::streamsize(data.size()));
}

// A BMP file around a packed DIB, optionally stored top-down and with biSizeImage 0.
std::vector<unsigned char> bmpFile(HGLOBAL picture, bool topDown, bool zeroSizeImage) {
    View v(picture);
    auto dibBytes = v.bytes();
    BITMAPINFOHEADER h = v.header();
    const std::uint32_t table = h.biBitCount == 8 ? h.biClrUsed * 4 : 0;
    const std::uint32_t pixelsAt = h.biSize + table;
    if (topDown) {
        std::vector<unsigned char> flipped(dibBytes);
        for (int y = 0; y < h.biHeight; ++y)
            std::memcpy(flipped.data() + pixelsAt + std::size_t(h.biHeight - 1 - y) * v.stride(), v.row(y), v.stride());
        dibBytes = flipped;
        h.biHeight = -h.biHeight;
    }
    if (zeroSizeImage) h.biSizeImage = 0;
    std::memcpy(dibBytes.data(), &h, sizeof h);
    std::vector<unsigned char> file(14 + dibBytes.size(), 0);
    file[0] = 'B', file[1] = 'M';
    const std::uint32_t off = 14 + pixelsAt;
    std::memcpy(&file[10], &off, 4);
    std::copy(dibBytes.begin(), dibBytes.end(), file.begin() + 14);
    return file;
}

// A BMP file's bytes read back through a file, as the command reads it.
HGLOBAL readBytes(const std::vector<unsigned char>& file, std::string& error) {
    const std::string path = tempDir() + "/bytes.bmp";
    putFile(path, file);
    return pictures::read(path, error);
}

void expectSamePixels(HGLOBAL a, HGLOBAL b) {
    View va(a), vb(b);
    ASSERT_EQ(va.width(), vb.width());
    ASSERT_EQ(va.height(), vb.height());
    for (int y = 0; y < va.height(); ++y)
        for (int x = 0; x < va.width(); ++x) ASSERT_EQ(va.at(x, y), vb.at(x, y)) << x << "," << y;
}

}  // namespace

TEST(PictureFiles, BmpVariantsReadBottomUp) {
    struct Case { int bits; std::uint32_t headerSize; bool topDown; bool zeroSize; };
    const Case cases[] = {{8, 40, false, false}, {24, 40, true, false}, {32, 40, false, true}, {24, 108, true, true},
                          {32, 124, false, false}, {8, 124, true, true}};
    for (const Case& c : cases) {
        Owned src(make(7, 5, c.bits, pattern, c.bits == 8 ? palette256() : std::vector<Bgra>{}, c.headerSize));
        const auto file = bmpFile(src, c.topDown, c.zeroSize);
        std::string error;
        Owned read(readBytes(file, error));
        ASSERT_NE(read.h, nullptr) << error;
        View v(read);
        EXPECT_EQ(v.header().biHeight, 5);
        EXPECT_EQ(v.header().biSize, c.headerSize);
        EXPECT_EQ(v.header().biSizeImage, v.stride() * 5);
        expectSamePixels(read, src);
    }
}

TEST(PictureFiles, BrokenBmpFilesAreRefused) {
    Owned src(make(6, 4, 24, pattern));
    const auto good = bmpFile(src, false, false);
    struct Case { const char* what; std::function<void(std::vector<unsigned char>&)> change; const char* reason; };
    const Case cases[] = {
        {"truncated rows", [](auto& f) { f.resize(f.size() - 1); }, "truncated"},
        {"truncated header", [](auto& f) { f.resize(30); }, "truncated"},
        {"16-bit", [](auto& f) { f[14 + 14] = 16; }, "bit depth 16"},
        {"RLE", [](auto& f) { f[14 + 16] = 1; }, "compressed"},
        {"odd header", [](auto& f) { f[14] = 64; }, "header"},
        {"zero width", [](auto& f) { std::memset(&f[14 + 4], 0, 4); }, "size"},
        {"huge width", [](auto& f) { f[14 + 6] = 1; }, "size"},
        {"offset past the end", [](auto& f) { f[12] = 0x7F; }, "truncated"},
    };
    for (const Case& c : cases) {
        auto file = good;
        c.change(file);
        std::string error;
        EXPECT_EQ(readBytes(file, error), nullptr) << c.what;
        EXPECT_NE(error.find(c.reason), std::string::npos) << c.what << ": " << error;
    }
    std::string error;
    const std::string path = tempDir() + "/garbage.png";
    putFile(path, {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n', 0, 0, 0, 13, 'I', 'H'});
    EXPECT_EQ(pictures::read(path, error), nullptr);
    EXPECT_FALSE(error.empty());
    EXPECT_EQ(pictures::read(tempDir() + "/missing.bmp", error), nullptr);
}

// Smooth colours, for the lossy formats; alpha varies.
Bgra smooth(int x, int y) {
    return Bgra{std::uint8_t(x * 8), std::uint8_t(y * 10 + 20), std::uint8_t(150 + x * 3 - y * 4), std::uint8_t(x * 16 + y)};
}

TEST(PictureFiles, RoundTripsThroughEveryFormat) {
    // Lossless formats give the pixels back exactly, lossy ones within a tolerance.
    struct Case { const char* ext; int bits; int backBits; int tolerance; int quality; };
    const Case cases[] = {
        {".bmp", 8, 8, 0, 0},    {".bmp", 24, 24, 0, 0},  {".bmp", 32, 32, 0, 0},   {".png", 8, 8, 0, 0},
        {".PNG", 24, 24, 0, 0},  {".png", 32, 32, 0, 0},  {".tif", 8, 8, 0, 0},     {".tiff", 24, 24, 0, 0},
        {".TIF", 32, 32, 0, 0},  {".webp", 8, 24, 0, 0},  {".webp", 24, 24, 0, 0},  {".WebP", 32, 32, 0, 0},
        {".webp", 24, 24, 16, 90}, {".jpg", 24, 24, 6, 0}, {".JPEG", 32, 24, 6, 0}, {".jpeg", 24, 24, 40, 10},
    };
    for (const Case& c : cases) {
        const bool lossy = c.tolerance > 0;
        Owned src(make(16, 12, c.bits, lossy ? smooth : pattern, c.bits == 8 ? palette256() : std::vector<Bgra>{}));
        const std::string path = tempDir() + "/round" + std::to_string(c.bits) + std::to_string(c.quality) + c.ext;
        const std::string what = std::string(c.ext) + " " + std::to_string(c.bits) + "-bit q" + std::to_string(c.quality);
        std::string error;
        pictures::WriteOptions options;
        options.quality = c.quality;
        ASSERT_TRUE(pictures::write(path, src, error, options)) << what << ": " << error;
        Owned back(pictures::read(path, error));
        ASSERT_NE(back.h, nullptr) << what << ": " << error;
        View vs(src), vb(back);
        ASSERT_EQ(vb.header().biBitCount, c.backBits) << what;
        ASSERT_EQ(vb.width(), 16);
        ASSERT_EQ(vb.height(), 12);
        int worst = 0;
        for (int y = 0; y < 12; ++y)
            for (int x = 0; x < 16; ++x) {
                const Bgra a = vs.at(x, y), b = vb.at(x, y);
                worst = std::max({worst, std::abs(a.b - b.b), std::abs(a.g - b.g), std::abs(a.r - b.r)});
                ASSERT_EQ(b.a, c.backBits == 32 ? a.a : 255) << what << " alpha at " << x << "," << y;
            }
        EXPECT_LE(worst, c.tolerance) << what;
        // The same file cut in half is refused with a reason, never read in part.
        auto half = fileBytes(path);
        half.resize(half.size() / 2);
        putFile(path, half);
        error.clear();
        EXPECT_EQ(pictures::read(path, error), nullptr) << what;
        EXPECT_FALSE(error.empty()) << what;
    }
}

TEST(PictureFiles, SixteenBitChannelsAreRounded) {
    const std::uint16_t wide[6] = {0, 128, 129, 30719, 32896, 65535};
    const std::uint8_t rounded[6] = {0, 0, 1, 120, 128, 255};   // truncation gives 0 0 0 119 128 255
    const std::string png = tempDir() + "/wide.png", tiff = tempDir() + "/wide.tif";
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    image.width = 6;
    image.height = 1;
    image.format = PNG_FORMAT_LINEAR_Y;   // 16-bit grey, stored as given
    ASSERT_TRUE(png_image_write_to_file(&image, png.c_str(), 0, wide, 0, nullptr));
    TIFF* t = TIFFOpen(tiff.c_str(), "w");
    ASSERT_NE(t, nullptr);
    TIFFSetField(t, TIFFTAG_IMAGEWIDTH, 2);
    TIFFSetField(t, TIFFTAG_IMAGELENGTH, 1);
    TIFFSetField(t, TIFFTAG_BITSPERSAMPLE, 16);
    TIFFSetField(t, TIFFTAG_SAMPLESPERPIXEL, 3);
    TIFFSetField(t, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_RGB);
    TIFFSetField(t, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    std::uint16_t row[6];
    std::copy(wide, wide + 6, row);
    ASSERT_EQ(TIFFWriteScanline(t, row, 0, 0), 1);
    TIFFClose(t);
    for (const std::string& path : {png, tiff}) {
        std::string error;
        Owned pic(pictures::read(path, error));
        ASSERT_NE(pic.h, nullptr) << path << ": " << error;
        View v(pic);
        const bool grey = path == png;
        for (int i = 0; i < 6; ++i) {
            const Bgra p = v.at(grey ? i : i / 3, 0);
            const std::uint8_t channel = grey ? p.r : (i % 3 == 0 ? p.r : i % 3 == 1 ? p.g : p.b);   // RGB order
            EXPECT_EQ(channel, rounded[i]) << path << " value " << wide[i];
        }
    }
}

TEST(PictureFiles, V5ProfileIsNotWrittenBack) {
    // A V5 BMP whose colour space is a profile stored after the pixels.
    Owned src(make(5, 3, 24, pattern, {}, 124));
    auto file = bmpFile(src, false, false);
    const std::uint32_t profileAt = std::uint32_t(file.size() - 14);   // from the header's start
    std::memcpy(&file[14 + 56], "DEBM", 4);                            // 'MBED', little-endian
    std::memcpy(&file[14 + 112], &profileAt, 4);
    const std::uint32_t profileSize = 16;
    std::memcpy(&file[14 + 116], &profileSize, 4);
    file.resize(file.size() + profileSize, 0xA5);
    std::string error;
    Owned read(readBytes(file, error));
    ASSERT_NE(read.h, nullptr) << error;
    const std::string out = tempDir() + "/v5.bmp";
    ASSERT_TRUE(pictures::write(out, read, error)) << error;
    // Neither the picture read (whose header the results copy) nor the file written claims the profile.
    const std::vector<unsigned char> dibRead = View(read).bytes(), written = fileBytes(out);
    for (std::size_t at : {std::size_t(0), std::size_t(14)}) {
        const std::vector<unsigned char>& bytes = at ? written : dibRead;
        ASSERT_GT(bytes.size(), at + 124);
        EXPECT_NE(std::memcmp(bytes.data() + at + 56, "DEBM", 4), 0) << at;
        EXPECT_EQ(std::count(bytes.begin() + long(at) + 112, bytes.begin() + long(at) + 120, 0), 8) << at;
    }
    EXPECT_EQ(written.size(), 14 + View(src).bytes().size());
    Owned back(pictures::read(out, error));
    ASSERT_NE(back.h, nullptr) << error;
    expectSamePixels(back, src);
}

TEST(PictureFiles, GreyPngBecomes24Bit) {
    // A 2x2 grey PNG written with libpng directly: top row 0, 85; bottom row 170, 255.
    const std::string path = tempDir() + "/grey.png";
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    image.width = 2;
    image.height = 2;
    image.format = PNG_FORMAT_GRAY;
    const unsigned char grey[4] = {0, 85, 170, 255};
    ASSERT_TRUE(png_image_write_to_file(&image, path.c_str(), 0, grey, 0, nullptr));
    std::string error;
    Owned pic(pictures::read(path, error));
    ASSERT_NE(pic.h, nullptr) << error;
    View v(pic);
    EXPECT_EQ(v.header().biBitCount, 24);
    EXPECT_EQ(v.at(0, 1), (Bgra{0, 0, 0, 255}));
    EXPECT_EQ(v.at(1, 1), (Bgra{85, 85, 85, 255}));
    EXPECT_EQ(v.at(0, 0), (Bgra{170, 170, 170, 255}));

}
