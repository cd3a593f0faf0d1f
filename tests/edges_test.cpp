// The edge effects on pictures wider than the blocks their rows are worked in,
// against their plain forms, on one thread and in bands on several; and a
// banded render whose allocations fail in turn.
#include <gtest/gtest.h>

#include "effects/plain/plain_forms.h"
#include "engine/effect_table.h"
#include "hostops/threads.h"
#include "tests/picture_support.h"

using namespace testpic;

namespace {

flairize::Settings settingsFor(unsigned effect) {
    flairize::Settings s;
    s.effect = std::uint16_t(effect);
    s.progress = 16384;
    s.colour = 0x00336699;
    return s;
}

std::vector<std::uint8_t> bytesOf(const flairize::Result& r) {
    Owned picture(r.picture);
    return r.status == flairize::Status::Ok ? View(picture).bytes() : std::vector<std::uint8_t>{};
}

// Flat runs broken by steps, so that rows have long stretches of painted and of kept pixels.
Bgra steps(int x, int y) {
    const Bgra p = pattern(x / 97, y / 3);
    return Bgra{p.b, p.g, p.r, std::uint8_t(x * 7 + y * 13)};
}

}  // namespace

TEST(EdgeEffects, WidePicturesMatchThePlainFormsOnAnyThreadCount) {
    const flairize::HostServices hosts[] = {hostops::services(), hostops::threadedServices(3)};
    for (const char* name : {"Find Edges", "Contours", "Charcoal"})
        for (int bits : {8, 24, 32})
            for (int width : {1100, 1537}) {
                Owned src(make(width, 11, bits, steps, bits == 8 ? palette256() : std::vector<Bgra>{}));
                const flairize::Settings s = settingsFor(effectNamed(name));
                const auto expected = bytesOf(
                    flairize::renderWith(plainEffectTable(), hostops::services(), src, s, flairize::Mix::Always));
                ASSERT_FALSE(expected.empty());
                for (std::size_t h = 0; h < std::size(hosts); ++h)
                    EXPECT_EQ(bytesOf(flairize::render(hosts[h], src, s, flairize::Mix::Always)), expected)
                        << name << " " << bits << " bits, " << width << " wide, host " << h;
            }
}

// Every band takes buffers of its own: whichever allocation fails, the render
// ends out of memory and leaves no block behind.
TEST(EdgeEffects, BandedRenderFailsCleanlyWhereverMemoryRunsOut) {
    const flairize::HostServices host = hostops::threadedServices(3);
    Owned src(make(40, 30, 24, pattern));
    const flairize::Settings s = settingsFor(effectNamed("Find Edges"));
    for (long n = 1;; ++n) {
        const long live = plat::liveBlocks();
        plat::failAllocationAfter(n);
        const flairize::Result r = flairize::render(host, src, s, flairize::Mix::None);
        plat::failAllocationAfter(0);
        const bool failed = r.status != flairize::Status::Ok;
        plat::globalFree(r.picture);
        EXPECT_EQ(plat::liveBlocks(), live) << "allocation " << n;
        if (!failed) break;
        EXPECT_EQ(r.status, flairize::Status::OutOfMemory) << "allocation " << n;
        EXPECT_EQ(r.picture, nullptr) << "allocation " << n;
        ASSERT_LT(n, 60);
    }
}
