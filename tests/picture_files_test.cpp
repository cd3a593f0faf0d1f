#include <gtest/gtest.h>

#include <png.h>

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

TEST(PictureFiles, RoundTripsKeepFormatAndPixels) {
    for (int bits : {8, 24, 32})
        for (const char* ext : {".bmp", ".png"}) {
            Owned src(make(5, 3, bits, pattern, bits == 8 ? palette256() : std::vector<Bgra>{}));
            const std::string path = tempDir() + "/round" + std::to_string(bits) + ext;
            std::string error;
            ASSERT_TRUE(pictures::write(path, src, error)) << error;
            Owned back(pictures::read(path, error));
            ASSERT_NE(back.h, nullptr) << error;
            EXPECT_EQ(View(back).header().biBitCount, bits) << ext;
            expectSamePixels(back, src);
            if (std::string(ext) == ".bmp") {   // BMP output carries the DIB unchanged
                const auto file = fileBytes(path);
                const auto dibBytes = View(src).bytes();
                ASSERT_EQ(file.size(), 14 + dibBytes.size());
                EXPECT_TRUE(std::equal(dibBytes.begin(), dibBytes.end(), file.begin() + 14));
            }
        }
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
