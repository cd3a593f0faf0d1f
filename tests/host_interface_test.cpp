#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <unistd.h>

#include "engine/effect_table.h"
#include "host/curve_pow.h"
#include "host/exports.h"
#include "host/frame_timing.h"
#include "standalone/host_context.h"

namespace {

std::vector<unsigned char> bytesOf(const SettingsRecord* r) {
    const auto* p = reinterpret_cast<const unsigned char*>(r);
    return {p, p + sizeof *r};
}

// A temporary file read and written through a descriptor.
struct TempFile {
    int fd;
    TempFile() {
        char name[] = "/tmp/flairize-test-XXXXXX";
        fd = mkstemp(name);
        unlink(name);
    }
    ~TempFile() { close(fd); }
    std::vector<unsigned char> contents() const {
        std::vector<unsigned char> v(std::size_t(lseek(fd, 0, SEEK_END)));
        pread(fd, v.data(), v.size(), 0);
        return v;
    }
};

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

TEST(SettingsRecord, IdentityAndRegistration) {
    alignas(4) unsigned char id[12];
    std::memset(id, 0xEE, sizeof id);
    ASSERT_EQ(GEN_GeneratorID(reinterpret_cast<std::uint32_t*>(id + 4)), 1u);
    const unsigned char expected[12] = {0xEE, 0xEE, 0xEE, 0xEE, 'Z', 'E', 'W', 'K', 0xEE, 0xEE, 0xEE, 0xEE};
    EXPECT_EQ(0, std::memcmp(id, expected, 12));

    char name[128];
    std::uint16_t kind[3] = {0xEEEE, 0xEEEE, 0xEEEE};
    ASSERT_EQ(InitFilter(name, &kind[1]), 1u);
    EXPECT_STREQ(name, "Flairize");
    EXPECT_EQ(kind[0], 0xEEEE);
    EXPECT_EQ(kind[1], 14);
    EXPECT_EQ(kind[2], 0xEEEE);
    EXPECT_EQ(ChangeImage(1, 2), 1u);
    EXPECT_EQ(ChangeQuality(1, 2), 1u);
    EXPECT_EQ(SwapData(1, 2), 1u);
}

TEST(SettingsStream, BlockLayoutRoundTripsAndTruncation) {
    std::uint32_t size = 0;
    SettingsRecord *fresh = nullptr, *other = nullptr;
    InitData(0, &size, &fresh);
    InitData(0, &size, &other);
    *other = SettingsRecord{37, 0x01020304, 255, 7, 65535, 0xFFFFFFFE, 0x00123456};

    TempFile file;
    EXPECT_EQ(SaveData(file.fd, fresh, 0), 1u);
    EXPECT_EQ(SaveData(file.fd, other, 0), 1u);
    const auto data = file.contents();
    ASSERT_EQ(data.size(), 40u);
    EXPECT_EQ(std::vector<unsigned char>(data.begin(), data.begin() + 20), kFreshRecord);
    const std::vector<unsigned char> otherBytes = {37, 0, 4, 3, 2, 1, 255, 0, 7, 0, 255, 255, 0xFE, 0xFF, 0xFF, 0xFF,
                                                   0x56, 0x34, 0x12, 0};
    EXPECT_EQ(std::vector<unsigned char>(data.begin() + 20, data.end()), otherBytes);

    lseek(file.fd, 0, SEEK_SET);
    SettingsRecord *a = nullptr, *b = nullptr;
    ASSERT_EQ(LoadData(file.fd, &a, 0, 0, 0), 1u);
    ASSERT_EQ(LoadData(file.fd, &b, 0, 0, 0), 1u);
    EXPECT_EQ(bytesOf(a), bytesOf(fresh));
    EXPECT_EQ(bytesOf(b), bytesOf(other));

    // A block that ends early is refused at every cut, and no record is made.
    for (off_t cut = 0; cut < 20; ++cut) {
        ASSERT_EQ(ftruncate(file.fd, 20 + cut), 0);
        lseek(file.fd, 20, SEEK_SET);
        SettingsRecord* none = nullptr;
        EXPECT_EQ(LoadData(file.fd, &none, 0, 0, 0), 0u) << cut;
        EXPECT_EQ(none, nullptr);
    }
    for (auto* r : {fresh, other, a, b}) FreeData(0, r);
}

TEST(FrameTiming, SpeedCurveExamples) {
    const std::uint32_t positions[] = {0, 1, 4096, 8192, 12288, 16383, 16384};
    struct Row { int speed; std::uint32_t out[7]; };
    const Row table[] = {
        {-100, {0, 2352, 12416, 14263, 15467, 16383, 16384}},
        {-50, {0, 48, 7131, 10809, 13786, 16383, 16384}},
        {-1, {0, 1, 4141, 8237, 12316, 16383, 16384}},
        {1, {0, 0, 3875, 7967, 12147, 16382, 16384}},
        {25, {0, 0, 1024, 4096, 9216, 16382, 16384}},
        {50, {0, 0, 256, 2048, 6912, 16381, 16384}},
        {100, {0, 0, 16, 512, 3888, 16379, 16384}},
        {127, {0, 0, 3, 242, 2849, 16377, 16384}},
    };
    for (const Row& row : table)
        for (int i = 0; i < 7; ++i)
            EXPECT_EQ(timing::speedCurve(positions[i], std::int8_t(row.speed)), row.out[i])
                << "speed " << row.speed << " position " << positions[i];
    for (int s = -124; s <= 127; ++s) {
        EXPECT_EQ(timing::speedCurve(0, std::int8_t(s)), 0u) << s;
        EXPECT_EQ(timing::speedCurve(16384, std::int8_t(s)), 16384u) << s;
    }
    EXPECT_EQ(timing::speedCurve(4321, 0), 4321u);
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
            ASSERT_EQ(timing::speedCurve(p, std::int8_t(s)), library) << "speed " << s << " position " << p;
        }
    }
    EXPECT_GT(compared, 100000);
    EXPECT_EQ(timing::curvePow(0.0, -0.5), HUGE_VAL);
    EXPECT_EQ(timing::curvePow(0.25, 0.5), 0.5);
    EXPECT_EQ(timing::curvePow(0.5, 3.0), 0.125);
}

TEST(FrameTiming, DirectionsThroughSetupFrame) {
    struct Case { std::uint32_t direction; std::uint32_t position; std::uint32_t progress; };
    const Case cases[] = {
        {0, 0, 16384},    {0, 16384, 0},     {0, 5000, 11384},  {1, 8192, 16384}, {1, 8193, 16382},
        {1, 0, 0},        {1, 16384, 0},     {2, 1234, 1234},   {2, 16384, 16384}, {3, 8192, 0},
        {3, 8193, 2},     {3, 0, 16384},     {3, 16384, 16384}, {0xFFFFFFF1, 8192, 16384},  // high bits ignored
        {0x80000002, 77, 77},
    };
    for (const Case& c : cases) {
        SettingsRecord r{};
        r.direction = c.direction;
        standalone::Context ctx(&r, nullptr, c.position);
        EXPECT_EQ(SetupFrame(ctx.engineView(), 0), 1u);
        EXPECT_EQ(std::uint32_t(r.progress), c.progress) << "direction " << c.direction << " position " << c.position;
        EXPECT_EQ(std::uint32_t(r.direction), c.direction);
    }
}

TEST(FrameTiming, SlotPositionSpeedAndOtherSlots) {
    SettingsRecord r0{}, r1{};
    r0.direction = r1.direction = 2;
    standalone::Context ctx(&r0, nullptr, 9000);
    hostctx::setRecord(ctx.bytes, 1, &r1);
    hostctx::setSlotPosition(ctx.bytes, 1, 4096);
    hostctx::setSpeed(ctx.bytes, 1, 25);
    hostctx::setSlot(ctx.bytes, 1);
    SetupFrame(ctx.engineView(), 0);
    EXPECT_EQ(std::uint32_t(r1.progress), 1024u);   // the slot's own position, through its speed curve
    EXPECT_EQ(std::uint32_t(r0.progress), 0u);      // other slots untouched
    hostctx::setSlotPosition(ctx.bytes, 1, -1);
    SetupFrame(ctx.engineView(), 0);
    EXPECT_EQ(std::uint32_t(r1.progress), timing::speedCurve(9000, 25));   // -1: the host's current position
    // The curve comes before the direction: Cycle turns where the curved value reaches 8192.
    r1.direction = 1;
    hostctx::setSlotPosition(ctx.bytes, 1, 11585);   // 11585^2 / 16384 = 8191.6
    SetupFrame(ctx.engineView(), 0);
    EXPECT_EQ(std::uint32_t(r1.progress), 2u * 8191);
}
