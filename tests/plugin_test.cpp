// The plug-in's exports against stand-ins for the host's libraries: settings
// records and their stream, frame timing, and the host calls and messages of
// its render calls.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <unistd.h>

#include "engine/curve_pow.h"
#include "engine/flairize.h"
#include "host/exports.h"
#include "host/host_imports.h"
#include "tests/picture_support.h"
#include "tests/standin_host.h"

using namespace testpic;

namespace {

std::vector<unsigned char> bytesOf(const SettingsRecord* r) {
    const auto* p = reinterpret_cast<const unsigned char*>(r);
    return {p, p + sizeof *r};
}

const std::vector<unsigned char> kFreshRecord = {0x19, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 2, 0, 0, 0, 0, 0, 0, 0};

}  // namespace

TEST(SettingsRecord, FreshRecordBytesAndCopies) {
    std::uint32_t size = 0;
    SettingsRecord* r = nullptr;
    ASSERT_EQ(InitData(0, &size, &r), 1u);
    EXPECT_EQ(size, 20u);
    EXPECT_EQ(bytesOf(r), kFreshRecord);

    r->direction = 0xABCD0001;
    r->progress = 777;
    SettingsRecord* copy = nullptr;
    ASSERT_EQ(CopyData(r, &copy), 1u);
    EXPECT_NE(copy, r);
    EXPECT_EQ(bytesOf(copy), bytesOf(r));
    EXPECT_EQ(FreeData(0, copy), 0u);   // succeeds, yet answers 0
    EXPECT_EQ(FreeData(0, r), 0u);
    EXPECT_EQ(FreeData(0, nullptr), 0u);
}

// The generator's identity is four bytes, written where the host asks and nowhere else.
TEST(SettingsRecord, GeneratorIdentityFillsFourBytes) {
    alignas(4) unsigned char id[12];
    std::memset(id, 0xEE, sizeof id);
    ASSERT_EQ(GEN_GeneratorID(reinterpret_cast<std::uint32_t*>(id + 4)), 1u);
    const unsigned char expected[12] = {0xEE, 0xEE, 0xEE, 0xEE, 'Z', 'E', 'W', 'K', 0xEE, 0xEE, 0xEE, 0xEE};
    EXPECT_EQ(0, std::memcmp(id, expected, 12));
}

TEST(SettingsStream, BlockLayoutRoundTripsAndTruncation) {
    std::uint32_t size = 0;
    SettingsRecord *fresh = nullptr, *other = nullptr;
    InitData(0, &size, &fresh);
    InitData(0, &size, &other);
    *other = SettingsRecord{37, 0x01020304, 255, 7, 65535, 0xFFFFFFFE, 0x00123456};

    std::FILE* file = std::tmpfile();
    const int fd = fileno(file);
    EXPECT_EQ(SaveData(fd, fresh, 0), 1u);
    EXPECT_EQ(SaveData(fd, other, 0), 1u);
    std::vector<unsigned char> data(41);
    ASSERT_EQ(pread(fd, data.data(), data.size(), 0), 40);
    data.resize(40);
    EXPECT_EQ(std::vector<unsigned char>(data.begin(), data.begin() + 20), kFreshRecord);
    const std::vector<unsigned char> otherBytes = {37, 0, 4, 3, 2, 1, 255, 0, 7, 0, 255, 255, 0xFE, 0xFF, 0xFF, 0xFF,
                                                   0x56, 0x34, 0x12, 0};
    EXPECT_EQ(std::vector<unsigned char>(data.begin() + 20, data.end()), otherBytes);

    lseek(fd, 20, SEEK_SET);
    SettingsRecord* loaded = nullptr;
    ASSERT_EQ(LoadData(fd, &loaded, 0, 0, 0), 1u);
    EXPECT_EQ(bytesOf(loaded), bytesOf(other));

    // A block that ends early is refused at every cut, and no record is made.
    for (off_t cut = 0; cut < 20; ++cut) {
        ASSERT_EQ(ftruncate(fd, 20 + cut), 0);
        lseek(fd, 20, SEEK_SET);
        SettingsRecord* none = nullptr;
        EXPECT_EQ(LoadData(fd, &none, 0, 0, 0), 0u) << cut;
        EXPECT_EQ(none, nullptr);
    }
    // The engine's block form is the same 20 bytes.
    std::uint8_t block[kSettingsBlockSize];
    flairize::encodeSettingsBlock(*other, block);
    EXPECT_EQ(std::vector<unsigned char>(block, block + 20), otherBytes);
    EXPECT_EQ(bytesOf(&*std::make_unique<SettingsRecord>(flairize::decodeSettingsBlock(block))), bytesOf(other));
    for (auto* r : {fresh, other, loaded}) FreeData(0, r);
    std::fclose(file);
}

// The curve uses its own double-double power function so that no C runtime's pow
// can change a value; its progress must equal the truncation of the C library's
// pow wherever both are evaluated (all speeds; positions spread over the range).
TEST(FrameTiming, SpeedCurveAgreesWithTheLibraryPow) {
    long compared = 0;
    for (int s = -124; s <= 127; ++s) {
        if (s == 0) continue;
        const double sd = s;
        const double e = s < 0 ? 1.0 + sd * 0.008 : 1.0 + (sd * 0.01) * 4.0;
        for (std::uint32_t p = 0; p <= 16384; p += (p < 64 || p > 16320) ? 1 : 29, ++compared) {
            const auto library = static_cast<std::uint32_t>(std::pow(p * 6.103515625e-05, e) * 16384.0);
            ASSERT_EQ(flairize::speedCurve(p, std::int8_t(s)), library) << "speed " << s << " position " << p;
        }
    }
    EXPECT_GT(compared, 100000);
    EXPECT_EQ(timing::curvePow(0.0, -0.5), HUGE_VAL);
    EXPECT_EQ(timing::curvePow(0.25, 0.5), 0.5);
    EXPECT_EQ(timing::curvePow(0.5, 3.0), 0.125);
}

// SetupFrame reads two bits of the direction (the timing row of the
// conformance table holds every direction's values).
TEST(FrameTiming, DirectionsThroughSetupFrame) {
    struct Case { std::uint32_t direction, position, progress; };
    const Case cases[] = {{0, 5000, 11384}, {1, 8193, 16382}, {2, 1234, 1234}, {3, 8193, 2},
                          {0xFFFFFFF1, 8192, 16384}, {0x80000002, 77, 77}};
    for (const Case& c : cases) {
        SettingsRecord r{};
        r.direction = c.direction;
        TestHostContext ctx(&r, nullptr, c.position);
        EXPECT_EQ(SetupFrame(&ctx, 0), 1u);
        EXPECT_EQ(std::uint32_t(r.progress), c.progress) << "direction " << c.direction << " position " << c.position;
        EXPECT_EQ(std::uint32_t(r.direction), c.direction);
    }
}

TEST(FrameTiming, SlotPositionSpeedAndOtherSlots) {
    SettingsRecord r0{}, r1{};
    r0.direction = r1.direction = 2;
    TestHostContext ctx(&r0, nullptr, 9000);
    ctx.setRecord(1, &r1);
    ctx.setSlotPosition(1, 4096);
    ctx.setSpeed(1, 25);
    ctx.setSlot(1);
    SetupFrame(&ctx, 0);
    EXPECT_EQ(std::uint32_t(r1.progress), 1024u);   // the slot's own position, through its speed curve
    EXPECT_EQ(std::uint32_t(r0.progress), 0u);      // other slots untouched
    ctx.setSlotPosition(1, -1);
    SetupFrame(&ctx, 0);
    EXPECT_EQ(std::uint32_t(r1.progress), flairize::speedCurve(9000, 25));   // -1: the host's current position
    // The curve comes before the direction: Cycle turns where the curved value reaches 8192.
    r1.direction = 1;
    ctx.setSlotPosition(1, 11585);   // 11585^2 / 16384 = 8191.6
    SetupFrame(&ctx, 0);
    EXPECT_EQ(std::uint32_t(r1.progress), 2u * 8191);
}

namespace {

struct HostFrame {
    SettingsRecord record = flairize::newSettingsRecord();
    Owned source;
    TestHostContext context;
    HostFrame(const std::string& effect, std::uint32_t progress, HGLOBAL picture)
        : source(picture), context(&record, picture) {
        flairize::chooseEffect(record, std::uint16_t(effectNamed(effect)));
        record.progress = progress;
    }
    StandInLog& log() const { return *StandIn_Log(); }
};

HGLOBAL kUntouched() { return reinterpret_cast<HGLOBAL>(std::uintptr_t(0x1234)); }

}  // namespace

// A frame render asks for the source once, ticks every row and mixes exactly
// the effects that fade in, at every progress; the preview skips the mix at
// full progress and brackets its work. (Their pixels are conformance rows.)
TEST(PluginRender, HostCallsOfFrameAndPreview) {
    for (const char* name : {"Solarize", "Mosaic"}) {
        for (std::uint32_t progress : {0u, 5000u, 16384u}) {
            HostFrame f(name, progress, make(5, 4, 24, pattern));
            *StandIn_Log() = {};
            HGLOBAL out = nullptr;
            ASSERT_EQ(GenerateDIB(&f.context, &out, 0), 1u);
            Owned result(out);
            const bool fades = flairize::effectFadesIn(f.record.effect);
            EXPECT_EQ(f.log().sourceRequests, 1);
            EXPECT_EQ(f.log().rowTicks, 4);
            EXPECT_EQ(f.log().mixes, fades ? 1 : 0) << name << " " << progress;

            *StandIn_Log() = {};
            HGLOBAL preview = nullptr;
            HPALETTE palette = nullptr;
            const std::uint16_t sliders[3] = {0, 0, 0};
            ASSERT_EQ(plugin::previewRender(f.record.effect, f.source, f.record, sliders, &preview, &palette), 1u);
            Owned shown(preview);
            EXPECT_EQ(f.log().mixes, fades && progress != 16384 ? 1 : 0);
            EXPECT_EQ(f.log().busyBegin, 1);
            EXPECT_EQ(f.log().busyEnd, 1);
            EXPECT_EQ(f.log().palettesMade, 1);
        }
    }
}

// Allocation failures through the plug-in: its message where it shows one,
// the host's own where the host's picture mix fails, the host's result left as
// the host calls for, nothing leaked.
TEST(PluginRender, FailuresAndTheirMessages) {
    HostFrame f("Solarize", 100, make(5, 5, 24, pattern));
    const std::uint16_t sliders[3] = {0, 0, 0};
    struct Case {
        const char* what;
        long failingAllocation;   // 1: output picture, 2: row table, 3: the picture mix
        bool preview;
        std::uint32_t result;
        std::vector<std::string> messages;
        bool resultUntouched;
    };
    const std::string noMemory = "Not enough memory to complete operation";
    const Case cases[] = {
        {"filter", 1, false, 0, {noMemory}, true},
        {"row table", 2, false, 0, {noMemory}, true},
        {"mix (the host says so)", 3, false, 0, {noMemory}, false},
        {"filter in the preview", 1, true, 0, {noMemory}, true},
        {"mix in the preview", 3, true, 1, {noMemory, "Not enough memory to complete preview operation"}, false},
    };
    for (const Case& c : cases) {
        MessageCapture messages;
        *StandIn_Log() = {};
        const long live = plat::liveBlocks();
        HGLOBAL out = kUntouched();
        HPALETTE palette = nullptr;
        plat::failAllocationAfter(c.failingAllocation);
        const std::uint32_t result = c.preview ? plugin::previewRender(f.record.effect, f.source, f.record, sliders, &out, &palette)
                                               : GenerateDIB(&f.context, &out, 0);
        plat::failAllocationAfter(0);
        EXPECT_EQ(result, c.result) << c.what;
        EXPECT_EQ(messages.messages, c.messages) << c.what;
        EXPECT_EQ(out == kUntouched(), c.resultUntouched) << c.what;
        if (c.result) {   // the preview shows the unmixed picture
            Owned shown(out);
            Owned filtered(render(f.record.effect, f.source, 100, flairize::Mix::None).picture);
            EXPECT_EQ(View(shown).bytes(), View(filtered).bytes());
        }
        EXPECT_EQ(plat::liveBlocks(), live) << c.what;
        EXPECT_EQ(f.log().busyBegin, f.log().busyEnd) << c.what;
    }
    // An effect index from a damaged project, and a host without a picture: refused without a message.
    MessageCapture messages;
    HGLOBAL out = kUntouched();
    for (std::uint16_t effect : {std::uint16_t(flairize::effectCount()), std::uint16_t(65535)}) {
        f.record.effect = effect;
        EXPECT_EQ(GenerateDIB(&f.context, &out, 0), 0u);
    }
    f.record.effect = std::uint16_t(effectNamed("Solarize"));
    f.context.source = nullptr;
    EXPECT_EQ(GenerateDIB(&f.context, &out, 0), 0u);
    EXPECT_EQ(out, kUntouched());
    EXPECT_TRUE(messages.messages.empty());
}

// Each exported filter serves its own effects; the row driver renders with the
// published sliders, not its own arguments.
TEST(PluginRender, ExportedFilters) {
    Owned src(make(6, 4, 24, pattern));
    const std::uint16_t posterize = std::uint16_t(effectNamed("Posterize")), tiles = std::uint16_t(effectNamed("Tiles"));
    EXPECT_EQ(FLR_LineFilter(tiles, src, 16384, 0, 0, 0), nullptr);
    EXPECT_EQ(FLR_TextureFilter(posterize, src, 16384, 0, 0, 0), nullptr);
    EXPECT_EQ(FLR_MeanMapFilter(tiles, src, 16384, 0, 0, 0), nullptr);
    EXPECT_EQ(FLR_LineFilter(std::uint16_t(flairize::effectCount()), src, 16384, 0, 0, 0), nullptr);

    HostFrame f("Posterize", 16384, make(6, 4, 24, pattern));
    f.record.param1 = 40;
    HGLOBAL framed = nullptr;
    ASSERT_EQ(GenerateDIB(&f.context, &framed, 0), 1u);   // publishes P1 = 40
    Owned a(framed), b(FLR_LineFilter(posterize, f.source, 16384, 255, 255, 255)),
        c(FLR_LineFilter(posterize, f.source, 16384, 0, 0, 0));
    EXPECT_EQ(View(a).bytes(), View(b).bytes());
    EXPECT_EQ(View(b).bytes(), View(c).bytes());

    // WaterColor and Glass read only their source.
    Owned water(FLR_WaterColor(0, src, 0, 9, 9, 9));
    Owned expected(render(effectNamed("WaterColor"), src, 16384, flairize::Mix::None).picture);
    EXPECT_EQ(View(water).bytes(), View(expected).bytes());
}
