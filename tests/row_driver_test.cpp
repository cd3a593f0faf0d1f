#include <gtest/gtest.h>

#include "engine/filters.h"
#include "host/exports.h"
#include "standalone/host_context.h"
#include "tests/picture_support.h"

using namespace testpic;

namespace {
constexpr unsigned kSolarize = 11, kPosterize = 32, kEmpty = 0;
BITMAPINFOHEADER headerOf(HGLOBAL h) { return View(h).header(); }
}  // namespace

TEST(RowDriver, OutputHeaderRules) {
    struct Case { int bits; int width; std::uint32_t headerSize; std::uint16_t outBits; std::uint32_t stride; };
    const Case cases[] = {
        {8, 5, 40, 24, 16}, {24, 1, 40, 24, 4}, {24, 7, 40, 24, 24}, {32, 3, 40, 32, 12},
        {24, 5, 124, 24, 16}, {8, 2, 108, 24, 8},
    };
    for (const Case& c : cases) {
        Owned src(make(c.width, 3, c.bits, pattern, c.bits == 8 ? palette256() : std::vector<Bgra>{}, c.headerSize));
        // Give the long headers recognisable bytes past the first 40.
        if (c.headerSize > 40) {
            auto* p = static_cast<unsigned char*>(plat::globalLock(src));
            for (std::uint32_t i = 40; i < c.headerSize; ++i) p[i] = static_cast<unsigned char>(i);
            plat::globalUnlock(src);
        }
        Owned out(runFilter(kSolarize, src, 16384));
        ASSERT_NE(out.h, nullptr);
        const BITMAPINFOHEADER h = headerOf(out);
        EXPECT_EQ(h.biSize, c.headerSize);
        EXPECT_EQ(h.biBitCount, c.outBits);
        EXPECT_EQ(h.biWidth, c.width);
        EXPECT_EQ(h.biHeight, 3);
        EXPECT_EQ(h.biClrUsed, 0u);
        EXPECT_EQ(h.biClrImportant, 0u);
        EXPECT_EQ(h.biSizeImage, c.stride * 3);
        EXPECT_EQ(plat::globalSize(out), c.headerSize + c.stride * 3);   // no colour table
        View v(out);
        const auto bytes = v.bytes();
        for (std::uint32_t i = 40; i < c.headerSize; ++i) EXPECT_EQ(bytes[i], static_cast<unsigned char>(i));
        // Row padding is zero, never leftover memory.
        for (int y = 0; y < 3; ++y)
            for (std::uint32_t k = std::uint32_t(c.width) * c.outBits / 8; k < c.stride; ++k) EXPECT_EQ(v.row(y)[k], 0);
    }
}

TEST(RowDriver, RowsRunBottomUpWithTicksAndParametersIgnored) {
    // Rows are distinct, so a driver that walks top-down or skips a row shows.
    Owned src(make(4, 5, 24, [](int x, int y) { return Bgra{std::uint8_t(y * 40), std::uint8_t(x), 9, 255}; }));
    standalone::operationCounts() = {};
    Owned a(FLR_LineFilter(kPosterize, src, 0, 0, 0, 0));
    EXPECT_EQ(standalone::operationCounts().rowTicks, 5);
    publishRenderValues(255, 0, 0, 0);
    Owned b(FLR_LineFilter(kPosterize, src, 0, 1, 2, 3));
    Owned c(FLR_LineFilter(kPosterize, src, 0, 200, 200, 200));
    EXPECT_EQ(View(b).bytes(), View(c).bytes());   // P1..P3 arguments have no effect
    View v(b);
    for (int y = 0; y < 5; ++y) EXPECT_EQ(v.at(0, y).b, (y * 40 * 16 / 255) * 255 / 16) << y;
}

TEST(RowDriver, RefusesPicturesItCannotServe) {
    auto mutate = [](HGLOBAL h, auto change) {
        BITMAPINFOHEADER hd;
        auto* p = static_cast<unsigned char*>(plat::globalLock(h));
        std::memcpy(&hd, p, sizeof hd);
        change(hd);
        std::memcpy(p, &hd, sizeof hd);
        plat::globalUnlock(h);
    };
    using Change = std::function<void(BITMAPINFOHEADER&)>;
    const Change changes[] = {
        [](BITMAPINFOHEADER& h) { h.biBitCount = 16; },
        [](BITMAPINFOHEADER& h) { h.biBitCount = 4; },
        [](BITMAPINFOHEADER& h) { h.biCompression = 1; },
        [](BITMAPINFOHEADER& h) { h.biHeight = -h.biHeight; },
        [](BITMAPINFOHEADER& h) { h.biWidth = 0; },
        [](BITMAPINFOHEADER& h) { h.biHeight = 0; },
        [](BITMAPINFOHEADER& h) { h.biWidth = 65536; },
        [](BITMAPINFOHEADER& h) { h.biSizeImage = 0; },
        [](BITMAPINFOHEADER& h) { h.biSizeImage -= 1; },
        [](BITMAPINFOHEADER& h) { h.biSizeImage += 4; },     // larger than the block holds
        [](BITMAPINFOHEADER& h) { h.biSize = 39; },
        [](BITMAPINFOHEADER& h) { h.biSize = 1u << 30; },
    };
    MessageCapture messages;
    for (std::size_t i = 0; i < std::size(changes); ++i) {
        Owned src(make(6, 4, 24, pattern));
        mutate(src.h, changes[i]);
        const long live = plat::liveBlocks();
        EXPECT_EQ(runFilter(kSolarize, src, 16384), nullptr) << "change " << i;
        EXPECT_EQ(plat::liveBlocks(), live);
    }
    // An 8-bit picture whose table claims more entries than the block holds.
    Owned pal(make(4, 4, 8, pattern, palette256()));
    mutate(pal.h, [](BITMAPINFOHEADER& h) { h.biClrUsed = 300; });
    EXPECT_EQ(runFilter(kSolarize, pal, 16384), nullptr);
    // Effect indices beyond the table, and a null picture.
    Owned ok(make(2, 2, 24, pattern));
    EXPECT_EQ(FLR_LineFilter(38, ok, 0, 0, 0, 0), nullptr);
    EXPECT_EQ(FLR_LineFilter(0xFFFF, ok, 0, 0, 0, 0), nullptr);
    EXPECT_EQ(FLR_LineFilter(kSolarize, nullptr, 0, 0, 0, 0), nullptr);
    EXPECT_TRUE(messages.messages.empty());   // refusals are silent
}

TEST(RowDriver, ShortColourTablesReadAsBlack) {
    // Two table entries; index 200 lies past the table and reads as black.
    Owned src(make(2, 1, 8, [](int x, int) { return Bgra{std::uint8_t(x ? 200 : 1), 0, 0, 0}; },
                   {Bgra{1, 2, 3, 0}, Bgra{10, 20, 30, 0}}));
    Owned out(runFilter(kSolarize, src, 0));
    View v(out);
    EXPECT_EQ(v.at(0, 0), (Bgra{10, 20, 30, 255}));
    EXPECT_EQ(v.at(1, 0), (Bgra{0, 0, 0, 255}));
}

TEST(RowDriver, OutOfMemoryShowsOneMessageAndLeaksNothing) {
    Owned src(make(5, 5, 24, pattern));
    for (long n : {1L, 2L}) {   // 1: the output picture, 2: the row-pointer table
        MessageCapture messages;
        const long live = plat::liveBlocks();
        plat::failAllocationAfter(n);
        EXPECT_EQ(runFilter(kSolarize, src, 16384), nullptr);
        plat::failAllocationAfter(0);
        EXPECT_EQ(plat::liveBlocks(), live) << n;
        ASSERT_EQ(messages.messages.size(), 1u) << n;
        EXPECT_EQ(messages.messages[0], "Not enough memory to complete operation");
    }
}

TEST(RowDriver, EmptyRowEffectsGiveZeroPixelsThenMix) {
    Owned src(make(3, 2, 24, [](int, int) { return Bgra{200, 100, 50, 255}; }));
    Owned raw(runFilter(kEmpty, src, 16384));
    View r(raw);
    for (int y = 0; y < 2; ++y)
        for (int x = 0; x < 3; ++x) EXPECT_EQ(r.at(x, y), (Bgra{0, 0, 0, 255}));
    // Through GenerateDIB the zero picture is mixed with the source by progress.
    SettingsRecord rec{};
    rec.effect = kEmpty;
    rec.progress = 4096;
    standalone::Context ctx(&rec, src.h);
    HGLOBAL out = nullptr;
    ASSERT_EQ(GenerateDIB(ctx.engineView(), &out, 0), 1u);
    Owned mixed(out);
    EXPECT_EQ(View(mixed).at(1, 1), (Bgra{150, 75, 37, 255}));   // x * 12288 >> 14
}
