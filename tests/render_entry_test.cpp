#include <gtest/gtest.h>

#include "engine/render.h"
#include "host/exports.h"
#include "hostapi/host_ops.h"
#include "standalone/host_context.h"
#include "tests/picture_support.h"

using namespace testpic;

namespace {
constexpr std::uint16_t kSolarize = 11, kLensFlare = 8;

SettingsRecord recordFor(std::uint16_t effect, std::uint32_t progress) {
    SettingsRecord r{};
    r.effect = effect;
    r.progress = progress;
    r.direction = 2;
    return r;
}

HGLOBAL generate(SettingsRecord& r, HGLOBAL source, std::uint32_t* ok = nullptr) {
    standalone::Context ctx(&r, source);
    HGLOBAL out = reinterpret_cast<HGLOBAL>(std::uintptr_t(0x1234));
    const std::uint32_t result = GenerateDIB(ctx.engineView(), &out, 0);
    if (ok) *ok = result;
    return result ? out : nullptr;
}
}  // namespace

TEST(RenderEntry, GenerateDibMixesByProgress) {
    Owned src(make(5, 3, 24, pattern));
    View in(src);
    for (std::uint32_t progress : {0u, 5000u, 16384u}) {
        SettingsRecord r = recordFor(kSolarize, progress);
        standalone::operationCounts() = {};
        Owned out(generate(r, src));
        ASSERT_NE(out.h, nullptr);
        EXPECT_EQ(standalone::operationCounts().mixes, 1);   // mixed at every progress
        Owned filtered(runFilter(kSolarize, src, progress));
        View o(out), f(filtered);
        for (int y = 0; y < 3; ++y)
            for (int x = 0; x < 5; ++x) {
                const Bgra s = in.at(x, y), e = f.at(x, y), m = o.at(x, y);
                EXPECT_EQ(m.g, (s.g * (16384 - progress) + e.g * progress) >> 14);
            }
        if (progress == 0) {
            EXPECT_EQ(o.at(2, 1), in.at(2, 1));
        }
        if (progress == 16384) {
            EXPECT_EQ(o.bytes(), f.bytes());
        }
    }
}

TEST(RenderEntry, PublishesClampedValuesAndRefusesBadRecords) {
    Owned src(make(4, 2, 24, pattern));
    // Parameters beyond 255 from a damaged file act as 255; progress beyond 16384 as 16384.
    SettingsRecord wild = recordFor(32, 99999);
    wild.param1 = 4000;
    wild.colour = 0x00A1B2C3;
    Owned a(generate(wild, src));
    EXPECT_EQ(renderState().p1, 255);
    EXPECT_EQ(renderState().colour, 0x00A1B2C3u);
    SettingsRecord tame = recordFor(32, 16384);
    tame.param1 = 255;
    Owned b(generate(tame, src));
    EXPECT_EQ(View(a).bytes(), View(b).bytes());

    std::uint32_t ok = 7;
    for (std::uint16_t effect : {std::uint16_t(38), std::uint16_t(1000), std::uint16_t(65535)}) {
        SettingsRecord r = recordFor(effect, 16384);
        EXPECT_EQ(generate(r, src, &ok), nullptr);
        EXPECT_EQ(ok, 0u);
    }
    SettingsRecord r = recordFor(kSolarize, 16384);
    EXPECT_EQ(generate(r, nullptr, &ok), nullptr);   // the host had no picture
    EXPECT_EQ(ok, 0u);
}

TEST(RenderEntry, FailedFilterLeavesResultUntouched) {
    Owned src(make(4, 2, 24, pattern));
    SettingsRecord r = recordFor(kSolarize, 16384);
    standalone::Context ctx(&r, src.h);
    HGLOBAL out = reinterpret_cast<HGLOBAL>(std::uintptr_t(0x1234));
    MessageCapture messages;
    plat::failAllocationAfter(1);
    EXPECT_EQ(GenerateDIB(ctx.engineView(), &out, 0), 0u);
    plat::failAllocationAfter(0);
    EXPECT_EQ(out, reinterpret_cast<HGLOBAL>(std::uintptr_t(0x1234)));
    EXPECT_EQ(messages.messages.size(), 1u);
    // A failed mix frees the filter's result and reports no message of its own.
    const long live = plat::liveBlocks();
    plat::failAllocationAfter(3);   // output, row table, then the mix
    EXPECT_EQ(GenerateDIB(ctx.engineView(), &out, 0), 0u);
    plat::failAllocationAfter(0);
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(plat::liveBlocks(), live);
    EXPECT_EQ(messages.messages.size(), 1u);
}

TEST(RenderEntry, PreviewSkipsMixAtFullProgressAndBracketsBusy) {
    Owned src(make(4, 3, 32, pattern));
    SettingsRecord r = recordFor(25, 16384);   // the record names Weave; the preview's choice wins
    struct Case { std::uint32_t progress; long mixes; };
    for (const Case c : {Case{16384, 0}, Case{8000, 1}, Case{0, 1}}) {
        r.progress = c.progress;
        standalone::operationCounts() = {};
        HGLOBAL out = nullptr;
        HPALETTE pal = reinterpret_cast<HPALETTE>(1);
        ASSERT_EQ(render::preview(kSolarize, src, r, 999, 0, 0, &out, &pal), 1u);
        Owned result(out);
        EXPECT_EQ(pal, nullptr);   // the stand-alone host has no palettes
        EXPECT_EQ(standalone::operationCounts().mixes, c.mixes);
        EXPECT_EQ(standalone::operationCounts().busyBegin, 1);
        EXPECT_EQ(standalone::operationCounts().busyEnd, 1);
        EXPECT_EQ(renderState().p1, 255);
    }
    // Mix failure: the unmixed picture is handed out with the preview's message.
    MessageCapture messages;
    r.progress = 100;
    standalone::operationCounts() = {};
    HGLOBAL out = nullptr;
    HPALETTE pal = reinterpret_cast<HPALETTE>(1);
    plat::failAllocationAfter(3);
    EXPECT_EQ(render::preview(kSolarize, src, r, 0, 0, 0, &out, &pal), 1u);
    plat::failAllocationAfter(0);
    Owned unmixed(out);
    Owned filtered(runFilter(kSolarize, src, 100));
    EXPECT_EQ(View(unmixed).bytes(), View(filtered).bytes());
    EXPECT_EQ(pal, reinterpret_cast<HPALETTE>(1));
    EXPECT_EQ(standalone::operationCounts().busyEnd, 1);
    ASSERT_EQ(messages.messages.size(), 1u);
    EXPECT_EQ(messages.messages[0], "Not enough memory to complete preview operation");
    // A failing filter ends the bracket too.
    standalone::operationCounts() = {};
    EXPECT_EQ(render::preview(40, src, r, 0, 0, 0, &out, &pal), 0u);
    EXPECT_EQ(standalone::operationCounts().busyBegin, standalone::operationCounts().busyEnd);
}

TEST(RenderEntry, GenAnimationPassesThrough) {
    EXPECT_EQ(GenAnimation(42, 7), AnimKit_GenAnimation(42, 7));
    EXPECT_EQ(GenAnimation(0xFFFFFFFF, 0), AnimKit_GenAnimation(0xFFFFFFFF, 0));
}

TEST(PictureMix, WeightsFormatsAndPadding) {
    // first 8-bit (through its table), second 24-bit of width 3 (one padding byte per row).
    const auto table = palette256();
    Owned first(make(3, 2, 8, [](int x, int y) { return Bgra{std::uint8_t(x + 3 * y), 0, 0, 0}; }, table));
    Owned second(make(3, 2, 24, pattern));
    View s(second);
    for (std::uint32_t w : {0u, 1u, 8192u, 16383u, 16384u}) {
        Owned mixed(BaseKit_MixPictures(first, second, w));
        ASSERT_NE(mixed.h, nullptr);
        View m(mixed);
        EXPECT_EQ(m.header().biBitCount, 24);
        for (int y = 0; y < 2; ++y) {
            for (int x = 0; x < 3; ++x) {
                const Bgra f = table[std::size_t(x + 3 * y)], sp = s.at(x, y), o = m.at(x, y);
                EXPECT_EQ(o.b, (f.b * (16384 - w) + sp.b * w) >> 14);
                EXPECT_EQ(o.r, (f.r * (16384 - w) + sp.r * w) >> 14);
            }
            EXPECT_EQ(m.row(y)[9], 0);
        }
    }
    // 32-bit pictures mix all four bytes; mismatched sizes or depths are refused.
    Owned a32(make(2, 2, 32, [](int, int) { return Bgra{0, 100, 200, 0}; }));
    Owned b32(make(2, 2, 32, [](int, int) { return Bgra{255, 0, 100, 255}; }));
    Owned m32(BaseKit_MixPictures(a32, b32, 4096));
    EXPECT_EQ(View(m32).at(1, 1), (Bgra{63, 75, 175, 63}));
    Owned small(make(2, 1, 24, pattern));
    EXPECT_EQ(BaseKit_MixPictures(small, second, 100), nullptr);
    Owned b24(make(2, 2, 24, pattern));
    EXPECT_EQ(BaseKit_MixPictures(a32, b24, 100), nullptr);
}
