// The command's picture files beyond their pixels: EXIF orientation, colour
// profile, EXIF data and resolution carried into outputs; GIF, CMYK JPEG and
// animated inputs; standard input within the memory limit; want of memory in
// the WebP writer. Every input is made here, with the format libraries.
#include <gtest/gtest.h>

#include <exiv2/exiv2.hpp>
#include <gif_lib.h>
#include <png.h>
#include <webp/encode.h>
#include <webp/mux.h>

#include <cstdio>
#include <csetjmp>
#include <jpeglib.h>

#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <cmath>
#include <cstdlib>
#include <string>
#include <vector>

#include "resources/string_ids.h"
#include "tests/command_support.h"
#include "tests/sanitized.h"

extern char** environ;

using namespace testcli;

namespace {

// EGifSpew writes and closes the file but leaves the frames and colour maps
// that were handed to it: they are freed here.
int spew(GifFileType* gif) {
    GifFileType frames{};
    frames.SavedImages = gif->SavedImages;
    frames.ImageCount = gif->ImageCount;
    ColorMapObject* map = gif->SColorMap;
    const int result = EGifSpew(gif);
    GifFreeSavedImages(&frames);
    GifFreeMapObject(map);
    return result;
}

#ifdef FLAIRIZE_SANITIZED
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif

struct Rgb {
    int r, g, b;
};

// An ICC profile header of `space` ("RGB " or "CMYK") with no tags: enough
// for libpng to accept it and for the bytes to be compared after a round trip.
std::vector<unsigned char> iccProfile(const char* space) {
    std::vector<unsigned char> p(132, 0);
    auto be32 = [&](std::size_t at, std::uint32_t v) {
        for (int i = 0; i < 4; ++i) p[at + std::size_t(i)] = std::uint8_t(v >> (24 - 8 * i));
    };
    be32(0, 132);
    be32(8, 0x02100000);   // version 2.1
    std::memcpy(&p[12], "mntr", 4);
    std::memcpy(&p[16], space, 4);
    std::memcpy(&p[20], "XYZ ", 4);
    std::memcpy(&p[36], "acsp", 4);
    be32(68, 0x0000F6D6), be32(72, 0x00010000), be32(76, 0x0000D32D);   // D50
    std::memcpy(&p[80], "test", 4);   // the creator, to tell this profile apart
    return p;
}

std::vector<unsigned char> exifBlock(int orientation, const std::string& make) {
    Exiv2::ExifData data;
    data["Exif.Image.Make"] = make;
    data["Exif.Image.Orientation"] = std::uint16_t(orientation);
    Exiv2::Blob blob;
    Exiv2::ExifParser::encode(blob, Exiv2::littleEndian, data);
    return std::vector<unsigned char>(blob.begin(), blob.end());
}

struct JpegError {
    jpeg_error_mgr manager;
    std::jmp_buf jump;
};

// A JPEG written with libjpeg: `pixel(x, y)` from the top left, `components`
// 3 (RGB) or 4 (inks, stored inverted as Adobe's files do), saved as
// `space` (JCS_YCbCr, JCS_CMYK or JCS_YCCK); EXIF data, a profile and a
// resolution in dots an inch when given.
void writeJpeg(const std::string& path, int width, int height, int components, J_COLOR_SPACE space,
               const std::function<std::vector<unsigned char>(int, int)>& pixel,
               const std::vector<unsigned char>& exif = {}, const std::vector<unsigned char>& icc = {}, int dpi = 0) {
    FILE* file = std::fopen(path.c_str(), "wb");
    ASSERT_NE(file, nullptr);
    jpeg_compress_struct info{};
    JpegError error{};
    info.err = jpeg_std_error(&error.manager);
    jpeg_create_compress(&info);
    jpeg_stdio_dest(&info, file);
    info.image_width = JDIMENSION(width);
    info.image_height = JDIMENSION(height);
    info.input_components = components;
    info.in_color_space = components == 4 ? JCS_CMYK : JCS_RGB;
    jpeg_set_defaults(&info);
    jpeg_set_colorspace(&info, space);
    jpeg_set_quality(&info, 100, TRUE);
    for (int c = 0; c < info.num_components; ++c) info.comp_info[c].h_samp_factor = info.comp_info[c].v_samp_factor = 1;
    if (dpi) {
        info.density_unit = 1;
        info.X_density = info.Y_density = UINT16(dpi);
    }
    jpeg_start_compress(&info, TRUE);
    if (!exif.empty()) {
        std::vector<unsigned char> app1 = {'E', 'x', 'i', 'f', 0, 0};
        app1.insert(app1.end(), exif.begin(), exif.end());
        jpeg_write_marker(&info, JPEG_APP0 + 1, app1.data(), unsigned(app1.size()));
    }
    if (!icc.empty()) jpeg_write_icc_profile(&info, icc.data(), unsigned(icc.size()));
    std::vector<unsigned char> row(std::size_t(width * components));
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const std::vector<unsigned char> p = pixel(x, y);
            std::copy(p.begin(), p.end(), row.begin() + x * components);
        }
        JSAMPROW rows[1] = {row.data()};
        jpeg_write_scanlines(&info, rows, 1);
    }
    jpeg_finish_compress(&info);
    jpeg_destroy_compress(&info);
    std::fclose(file);
}

// Reads an output as stored (not turned) with what the command kept of the input.
struct Output {
    Owned picture;
    pictures::Metadata metadata;
};
void readStored(const std::string& path, Output& o) {
    std::string error;
    pictures::ReadOptions options;
    options.autoOrient = false;
    options.metadata = &o.metadata;
    o.picture.h = pictures::read(path, error, pictures::Limits(), nullptr, options);
    EXPECT_TRUE(o.picture.h) << path << ": " << error;
}

Rgb colourAt(HGLOBAL picture, int x, int yFromTop) {
    View v(picture);
    const Bgra c = v.at(x, v.height() - 1 - yFromTop);
    return {c.r, c.g, c.b};
}

bool near(Rgb a, Rgb b, int tolerance) {
    return std::abs(a.r - b.r) <= tolerance && std::abs(a.g - b.g) <= tolerance && std::abs(a.b - b.b) <= tolerance;
}

struct ExifSeen {
    bool found = false;
    std::string make;
    long orientation = 0;
    std::vector<unsigned char> icc;
};
// The file's EXIF data and profile as Exiv2 reads them.
ExifSeen exifOf(const std::string& path) {
    ExifSeen seen;
    Exiv2::Image::AutoPtr image = Exiv2::ImageFactory::open(path);
    image->readMetadata();
    const Exiv2::ExifData& data = image->exifData();
    const auto make = data.findKey(Exiv2::ExifKey("Exif.Image.Make"));
    const auto orientation = data.findKey(Exiv2::ExifKey("Exif.Image.Orientation"));
    seen.found = make != data.end();
    if (seen.found) seen.make = make->toString();
    if (orientation != data.end()) seen.orientation = orientation->toLong();
    if (image->iccProfileDefined())
        seen.icc.assign(image->iccProfile()->pData_, image->iccProfile()->pData_ + image->iccProfile()->size_);
    return seen;
}

const Rgb kGrey{128, 128, 128}, kRed{250, 20, 20};

// 48 x 30, grey, with an 8 x 8 red square in the stored top left corner.
std::vector<unsigned char> markedPixel(int x, int y) {
    if (x < 8 && y < 8) return {250, 20, 20};
    return {128, 128, 128};
}

}  // namespace

// Each EXIF orientation turns the picture upright before the effect: the
// marked corner lands where the orientation puts it, the sides swap for 5..8,
// and the output's EXIF orientation reads 1. --no-auto-orient keeps the
// stored layout and orientation.
TEST(PictureMetadata, OrientationIsAppliedOrKept) {
    enum Corner { TopLeft, TopRight, BottomRight, BottomLeft };
    const struct {
        int orientation;
        bool keep;
        Corner mark;
        bool swapped;
    } cases[] = {
        {1, false, TopLeft, false},   {2, false, TopRight, false},   {3, false, BottomRight, false},
        {4, false, BottomLeft, false}, {5, false, TopLeft, true},     {6, false, TopRight, true},
        {7, false, BottomRight, true}, {8, false, BottomLeft, true},  {6, true, TopLeft, false},
        {3, true, TopLeft, false},
    };
    const int width = 48, height = 30;
    for (const auto& c : cases) {
        SCOPED_TRACE("orientation " + std::to_string(c.orientation) + (c.keep ? " kept" : ""));
        const std::string in = dir() + "/orient.jpg", out = dir() + "/orient-out.png";
        writeJpeg(in, width, height, 3, JCS_YCbCr, markedPixel, exifBlock(c.orientation, "Orient"));
        std::remove(out.c_str());
        const CommandRun r =
            command("render " + in + " " + out + " --effect solarize --progress 0" + (c.keep ? " --no-auto-orient" : ""));
        ASSERT_EQ(r.status, 0) << r.err;
        Output o;
        readStored(out, o);
        ASSERT_TRUE(o.picture.h);
        View v(o.picture.h);
        const int w = c.swapped ? height : width, h = c.swapped ? width : height;
        ASSERT_EQ(v.width(), w);
        ASSERT_EQ(v.height(), h);
        const struct {
            Corner corner;
            int x, y;
        } probes[] = {{TopLeft, 3, 3}, {TopRight, w - 4, 3}, {BottomRight, w - 4, h - 4}, {BottomLeft, 3, h - 4}};
        for (const auto& p : probes)
            EXPECT_TRUE(near(colourAt(o.picture.h, p.x, p.y), p.corner == c.mark ? kRed : kGrey, 12))
                << "corner " << p.corner;
        const ExifSeen seen = exifOf(out);
        EXPECT_EQ(seen.make, "Orient");
        EXPECT_EQ(seen.orientation, c.keep ? c.orientation : 1);
    }
}

// The profile, the EXIF data and the resolution of a JPEG reach every output
// format that holds them (WebP holds no resolution).
TEST(PictureMetadata, ProfileExifAndResolutionSurvive) {
    const std::string in = dir() + "/meta.jpg";
    const std::vector<unsigned char> icc = iccProfile("RGB ");
    writeJpeg(in, 40, 24, 3, JCS_YCbCr, markedPixel, exifBlock(1, "Flairize test"), icc, 300);
    const struct {
        const char* extension;
        bool holdsResolution;
    } cases[] = {{"jpg", true}, {"png", true}, {"webp", false}, {"tif", true}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.extension);
        const std::string out = dir() + "/meta-out." + c.extension;
        const CommandRun r = command("render " + in + " " + out + " --effect solarize");
        ASSERT_EQ(r.status, 0) << r.err;
        const ExifSeen seen = exifOf(out);
        EXPECT_EQ(seen.make, "Flairize test");
        EXPECT_EQ(seen.icc, icc);
        if (!c.holdsResolution) continue;
        Output o;
        readStored(out, o);
        const double perInch = o.metadata.unit == pictures::ResolutionUnit::Centimetre ? 2.54 : 1.0;
        EXPECT_NE(o.metadata.unit, pictures::ResolutionUnit::None);
        EXPECT_NEAR(o.metadata.xResolution * perInch, 300.0, 0.5);
        EXPECT_NEAR(o.metadata.yResolution * perInch, 300.0, 0.5);
    }
}

// A GIF renders its first frame, as the same picture read from a PNG does;
// interlaced rows come back in their places, a transparent colour as clear.
TEST(PictureMetadata, GifRendersLikeThePng) {
    const int width = 37, height = 21, colours = 16;
    auto index = [](int x, int y) { return GifPixelType((x * 3 + y * 5 + (x ^ y)) % 16); };
    std::vector<Bgra> palette(colours);
    for (int i = 0; i < colours; ++i)
        palette[std::size_t(i)] = Bgra{std::uint8_t(i * 16), std::uint8_t(255 - i * 13), std::uint8_t(i * 7 + 30), 0};
    for (const bool interlaced : {false, true}) {
        SCOPED_TRACE(interlaced ? "interlaced" : "in order");
        const std::string gifPath = dir() + "/first.gif", pngPath = dir() + "/first.png";
        int error = 0;
        GifFileType* gif = EGifOpenFileName(gifPath.c_str(), false, &error);
        ASSERT_NE(gif, nullptr);
        ColorMapObject* map = GifMakeMapObject(colours, nullptr);
        for (int i = 0; i < colours; ++i)
            map->Colors[i] = GifColorType{palette[std::size_t(i)].r, palette[std::size_t(i)].g, palette[std::size_t(i)].b};
        gif->SWidth = width, gif->SHeight = height, gif->SColorResolution = 8, gif->SBackGroundColor = 0;
        gif->SColorMap = map;
        // Two frames: the second, all of colour 0, must not show.
        for (int frame = 0; frame < 2; ++frame) {
            SavedImage* image = GifMakeSavedImage(gif, nullptr);
            image->ImageDesc = GifImageDesc{0, 0, width, height, interlaced, nullptr};
            image->RasterBits = static_cast<GifByteType*>(std::calloc(std::size_t(width * height), 1));
            // Rows top first; EGifSpew writes an interlaced frame's rows pass by pass.
            for (int y = 0; y < height; ++y)
                for (int x = 0; x < width; ++x)
                    image->RasterBits[std::size_t(y * width + x)] = frame ? 0 : index(x, y);
        }
        ASSERT_EQ(spew(gif), GIF_OK);
        Owned same(make(width, height, 8, [&](int x, int y) { return Bgra{index(x, height - 1 - y), 0, 0, 0}; }, palette));
        std::string writeError;
        ASSERT_TRUE(pictures::write(pngPath, same.h, writeError)) << writeError;
        const CommandRun fromGif = command("render " + gifPath + " " + dir() + "/gif-out.bmp --effect solarize");
        const CommandRun fromPng = command("render " + pngPath + " " + dir() + "/png-out.bmp --effect solarize");
        ASSERT_EQ(fromGif.status, 0) << fromGif.err;
        ASSERT_EQ(fromPng.status, 0) << fromPng.err;
        const std::string gifOut = slurp(dir() + "/gif-out.bmp"), pngOut = slurp(dir() + "/png-out.bmp");
        EXPECT_FALSE(gifOut.empty());
        EXPECT_TRUE(gifOut == pngOut);
    }
    // A transparent colour: the frame's colour 0 reads as clear, the rest opaque.
    const std::string clearPath = dir() + "/clear.gif";
    int error = 0;
    GifFileType* gif = EGifOpenFileName(clearPath.c_str(), false, &error);
    ASSERT_NE(gif, nullptr);
    ColorMapObject* map = GifMakeMapObject(2, nullptr);
    map->Colors[0] = GifColorType{0, 0, 0};
    map->Colors[1] = GifColorType{200, 100, 50};
    gif->SWidth = 4, gif->SHeight = 2, gif->SColorResolution = 8, gif->SColorMap = map;
    SavedImage* image = GifMakeSavedImage(gif, nullptr);
    image->ImageDesc = GifImageDesc{0, 0, 4, 2, false, nullptr};
    image->RasterBits = static_cast<GifByteType*>(std::calloc(8, 1));
    image->RasterBits[1] = 1;   // top row, second pixel
    GraphicsControlBlock control{DISPOSAL_UNSPECIFIED, false, 0, 0};
    ASSERT_EQ(EGifGCBToSavedExtension(&control, gif, 0), GIF_OK);
    ASSERT_EQ(spew(gif), GIF_OK);
    std::string readError;
    Owned clear(pictures::read(clearPath, readError));
    ASSERT_TRUE(clear.h) << readError;
    View v(clear.h);
    ASSERT_EQ(v.header().biBitCount, 32);
    EXPECT_EQ(v.at(0, 1).a, 0);
    EXPECT_EQ(v.at(1, 1), (Bgra{50, 100, 200, 255}));
}

// CMYK and YCCK JPEG files (Adobe's inverted inks) become RGB: a cyan, a
// magenta and a black patch come out in those colours; their CMYK profile
// no longer applies and is not kept.
TEST(PictureMetadata, CmykJpegRendersInRgb) {
    // Inks 0..255 (255: full ink), stored inverted.
    auto inks = [](int x, int) -> std::vector<unsigned char> {
        const int c = x < 8 ? 255 : 0, m = x >= 8 && x < 16 ? 255 : 0, k = x >= 16 && x < 24 ? 255 : 0;
        return {std::uint8_t(255 - c), std::uint8_t(255 - m), 255, std::uint8_t(255 - k)};
    };
    for (const J_COLOR_SPACE space : {JCS_CMYK, JCS_YCCK}) {
        SCOPED_TRACE(space == JCS_CMYK ? "CMYK" : "YCCK");
        const std::string in = dir() + "/cmyk.jpg", out = dir() + "/cmyk-out.png";
        writeJpeg(in, 32, 8, 4, space, inks, {}, iccProfile("CMYK"));
        const CommandRun r = command("render " + in + " " + out + " --effect solarize --progress 0");
        ASSERT_EQ(r.status, 0) << r.err;
        Output o;
        readStored(out, o);
        ASSERT_TRUE(o.picture.h);
        EXPECT_TRUE(near(colourAt(o.picture.h, 4, 4), Rgb{0, 255, 255}, 16));
        EXPECT_TRUE(near(colourAt(o.picture.h, 12, 4), Rgb{255, 0, 255}, 16));
        EXPECT_TRUE(near(colourAt(o.picture.h, 20, 4), Rgb{0, 0, 0}, 16));
        EXPECT_TRUE(near(colourAt(o.picture.h, 28, 4), Rgb{255, 255, 255}, 16));
        EXPECT_TRUE(exifOf(out).icc.empty());
    }
}

namespace {

// A two-frame animated PNG: an acTL chunk written with libpng before the picture data.
void writeAnimatedPng(const std::string& path) {
    FILE* file = std::fopen(path.c_str(), "wb");
    ASSERT_NE(file, nullptr);
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    png_init_io(png, file);
    png_set_IHDR(png, info, 4, 4, 8, PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT,
                 PNG_FILTER_TYPE_DEFAULT);
    png_write_info(png, info);
    const png_byte control[8] = {0, 0, 0, 2, 0, 0, 0, 0};   // two frames, played forever
    png_write_chunk(png, reinterpret_cast<png_const_bytep>("acTL"), control, sizeof control);
    std::vector<png_byte> row(12, 90);
    for (int y = 0; y < 4; ++y) png_write_row(png, row.data());
    png_write_end(png, nullptr);
    png_destroy_write_struct(&png, &info);
    std::fclose(file);
}

// A two-frame animated WebP through libwebp's animation encoder.
void writeAnimatedWebP(const std::string& path) {
    WebPAnimEncoderOptions options;
    ASSERT_TRUE(WebPAnimEncoderOptionsInit(&options));
    WebPAnimEncoder* encoder = WebPAnimEncoderNew(4, 4, &options);
    WebPConfig config;
    WebPConfigInit(&config);
    config.lossless = 1;
    for (int frame = 0; frame < 2; ++frame) {
        WebPPicture picture;
        WebPPictureInit(&picture);
        picture.use_argb = 1, picture.width = 4, picture.height = 4;
        ASSERT_TRUE(WebPPictureAlloc(&picture));
        for (int i = 0; i < 16; ++i) picture.argb[i] = frame ? 0xFF0000FFu : 0xFFFF0000u;
        ASSERT_TRUE(WebPAnimEncoderAdd(encoder, &picture, frame * 100, &config));
        WebPPictureFree(&picture);
    }
    WebPAnimEncoderAdd(encoder, nullptr, 200, nullptr);
    WebPData data;
    WebPDataInit(&data);
    ASSERT_TRUE(WebPAnimEncoderAssemble(encoder, &data));
    std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char*>(data.bytes), std::streamsize(data.size));
    WebPDataClear(&data);
    WebPAnimEncoderDelete(encoder);
}

}  // namespace

// Animated PNG and WebP files are refused with the reason, not rendered from their first frame.
TEST(PictureMetadata, AnimatedInputsAreRefused) {
    const std::string png = dir() + "/animated.png", webp = dir() + "/animated.webp";
    writeAnimatedPng(png);
    writeAnimatedWebP(webp);
    const struct {
        std::string in, reason;
    } cases[] = {
        {png, "animated PNG: use flairize video to render every frame"},
        {webp, "animated WebP: use flairize video to render every frame"},
    };
    for (const auto& c : cases) {
        const std::string out = dir() + "/animated-out.png";
        std::remove(out.c_str());
        const CommandRun r = command("render " + c.in + " " + out + " --effect solarize");
        EXPECT_EQ(r.status, 2);
        EXPECT_EQ(r.err, "flairize: " + c.in + ": " + c.reason + "\n");
        EXPECT_FALSE(exists(out));
    }
}

namespace {

// Runs a shell command; its exit status and the largest resident size (KiB)
// of it and the processes it waited for.
std::pair<int, long> runMeasured(const std::string& shellCommand) {
    const char* argv[] = {"sh", "-c", shellCommand.c_str(), nullptr};
    pid_t pid = 0;
    if (posix_spawn(&pid, "/bin/sh", nullptr, nullptr, const_cast<char**>(argv), environ) != 0) return {-1, 0};
    int status = 0;
    rusage usage{};
    if (wait4(pid, &status, 0, &usage) != pid) return {-1, 0};
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, usage.ru_maxrss};
}

}  // namespace

// An endless standard input is refused at the file limit (half of
// --max-memory) with one line, the command's peak staying near that limit.
TEST(PictureMetadata, EndlessStandardInputStaysWithinTheLimit) {
    if (kSanitized) GTEST_SKIP() << "peak memory is not measured under the sanitizers";
    const std::string err = dir() + "/stdin-err";
    const auto [status, peakKiB] =
        runMeasured("(printf '\\211PNG\\r\\n\\032\\n\\0\\0\\0\\rIHDR'; head -c 2G /dev/zero) | " + std::string(FLAIRIZE_BIN) +
                    " render - " + dir() + "/stdin-out.png --max-memory 256M 2>" + err);
    EXPECT_EQ(status, 2);
    EXPECT_EQ(slurp(err), "flairize: -: file too large (over 128 MiB, half the memory limit)\n");
    EXPECT_LT(peakKiB, 300L * 1000);
}

// Want of memory in the WebP encoder is the command's one out-of-memory
// failure (exit 1). The address-space limit lets the read and the render
// through (the PNG output shows it) but not the WebP encoder's buffers.
TEST(PictureMetadata, WebPWriterOutOfMemoryIsTheOneMessage) {
    if (kSanitized) GTEST_SKIP() << "the sanitizers reserve more address space than the limit";
    const int side = 4000;
    const std::string in = dir() + "/large.bmp";
    {
        std::vector<unsigned char> file(54 + std::size_t(side) * side * 3);
        const std::uint32_t header[] = {std::uint32_t(file.size()), 0, 54, 40, std::uint32_t(side), std::uint32_t(side)};
        file[0] = 'B', file[1] = 'M';
        std::memcpy(&file[2], header, sizeof header);
        file[26] = 1, file[28] = 24;   // planes, bits
        for (std::size_t i = 54; i < file.size(); ++i) file[i] = std::uint8_t(i * 7 % 251);
        std::ofstream(in, std::ios::binary).write(reinterpret_cast<const char*>(file.data()), std::streamsize(file.size()));
    }
    const std::string limit = "ulimit -v 450000; ";
    const CommandRun png = command("render " + in + " " + dir() + "/large-out.png --effect solarize --threads 1", limit);
    ASSERT_EQ(png.status, 0) << png.err;
    const std::string out = dir() + "/large-out.webp";
    const CommandRun webp = command("render " + in + " " + out + " --effect solarize --threads 1", limit);
    EXPECT_EQ(webp.status, 1);
    EXPECT_EQ(webp.err, "flairize: " + out + ": " + plat::loadString(ids::kNoMemory) + "\n");
    EXPECT_FALSE(exists(out));
}
