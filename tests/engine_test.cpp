// The engine API beyond what the conformance table covers: pictures it refuses,
// allocation failures through every effect, renders on several threads at once,
// the output header rules and the row ticks.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "hostops/threads.h"
#include "tests/picture_support.h"

using namespace testpic;

namespace {

void changeHeader(HGLOBAL h, const std::function<void(BITMAPINFOHEADER&)>& change) {
    auto* p = static_cast<unsigned char*>(plat::globalLock(h));
    BITMAPINFOHEADER hd;
    std::memcpy(&hd, p, sizeof hd);
    change(hd);
    std::memcpy(p, &hd, sizeof hd);
    plat::globalUnlock(h);
}

std::vector<std::uint8_t> bytesOf(const flairize::Result& r) {
    Owned picture(r.picture);
    return r.status == flairize::Status::Ok ? View(picture).bytes() : std::vector<std::uint8_t>{};
}

}  // namespace

TEST(Engine, RefusesPicturesItCannotServe) {
    using Change = std::function<void(BITMAPINFOHEADER&)>;
    const Change changes[] = {
        [](BITMAPINFOHEADER& h) { h.biBitCount = 16; },         [](BITMAPINFOHEADER& h) { h.biBitCount = 4; },
        [](BITMAPINFOHEADER& h) { h.biCompression = 1; },       [](BITMAPINFOHEADER& h) { h.biHeight = -h.biHeight; },
        [](BITMAPINFOHEADER& h) { h.biWidth = 0; },             [](BITMAPINFOHEADER& h) { h.biHeight = 0; },
        [](BITMAPINFOHEADER& h) { h.biWidth = 65536; },         [](BITMAPINFOHEADER& h) { h.biSizeImage = 0; },
        [](BITMAPINFOHEADER& h) { h.biSizeImage -= 1; },        [](BITMAPINFOHEADER& h) { h.biSizeImage += 4; },
        [](BITMAPINFOHEADER& h) { h.biSize = 39; },             [](BITMAPINFOHEADER& h) { h.biSize = 1u << 30; },
        [](BITMAPINFOHEADER& h) { h.biClrUsed = 300; },   // a table longer than the block
    };
    // One effect of each kind of filter.
    for (const char* name : {"Solarize", "Find Edges", "Tiles", "Pointillize", "WaterColor", "Glass", "Color Pencil",
                             "*Bubbles [24]"}) {
        for (std::size_t i = 0; i < std::size(changes); ++i) {
            Owned src(make(6, 4, 8, pattern, palette256()));
            changeHeader(src, changes[i]);
            const long live = plat::liveBlocks();
            const flairize::Result r = render(effectNamed(name), src);
            EXPECT_EQ(r.status, flairize::Status::Refused) << name << " change " << i;
            EXPECT_EQ(r.picture, nullptr);
            EXPECT_EQ(plat::liveBlocks(), live);
        }
        EXPECT_EQ(render(effectNamed(name), nullptr).status, flairize::Status::Refused);
    }
    Owned ok(make(2, 2, 24, pattern));
    EXPECT_EQ(render(flairize::effectCount(), ok).status, flairize::Status::Refused);
}

// Renders keep all their state to themselves, and slice threads change no
// byte: every effect rendered on four threads at once, each render split in
// bands over three more, gives what it gives alone on one thread.
TEST(Engine, RendersOnSeveralThreadsMatchOneThread) {
    const Owned sources[3] = {make(41, 23, 8, pattern, palette256()), make(41, 23, 24, pattern), make(41, 23, 32, pattern)};
    std::vector<std::vector<std::uint8_t>> alone;
    for (unsigned effect = 0; effect < flairize::effectCount(); ++effect)
        for (const Owned& s : sources) alone.push_back(bytesOf(render(effect, s, 12000)));
    const flairize::HostServices sliced = hostops::threadedServices(3);
    std::vector<std::thread> threads;
    std::vector<int> differences(4, 0);
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&, t] {
            for (int round = 0; round < 3; ++round)
                for (unsigned effect = 0; effect < flairize::effectCount(); ++effect)
                    for (std::size_t k = 0; k < 3; ++k) {
                        flairize::Settings s;
                        s.effect = std::uint16_t(effect);
                        for (int j = 0; j < 3; ++j) s.sliders[j] = flairize::sliderDefault(effect, j);
                        s.progress = 12000;
                        const flairize::HostServices& host = (t + round) % 2 ? sliced : hostops::services();
                        differences[std::size_t(t)] +=
                            bytesOf(flairize::render(host, sources[k], s, flairize::Mix::Always)) != alone[effect * 3 + k];
                    }
        });
    for (std::thread& t : threads) t.join();
    EXPECT_EQ(differences, std::vector<int>(4, 0));
}

// The effects whose rows carry values to the next row run in tiles of rows and
// columns on slice threads: every thread count gives the bytes and the row
// ticks of the rows run in order, for pictures narrower and wider than a tile,
// a row or a column thick, widths and heights that are no multiple of a
// tile's, and tall enough that bands reuse the slots of their values; with the
// row blend, and into views of stale bytes.
TEST(Engine, RowOrderedEffectsOnThreadsMatchOneThread) {
    static std::atomic<long> ticks{0};
    const auto tick = [](void*) { ticks.fetch_add(1, std::memory_order_relaxed); };
    struct Size {
        std::uint16_t width, height;
    };
    const Size sizes[] = {{1, 1}, {2, 19}, {19, 1}, {1, 17}, {131, 37}, {300, 20}, {257, 9}, {200, 300}};
    for (const char* name : {"Contours", "Charcoal", "Color Pencil"}) {
        flairize::Settings s;
        s.effect = std::uint16_t(effectNamed(name));
        s.progress = 12000;
        s.colour = 0x2080E0;
        for (const Size z : sizes)
            for (int bits : {8, 24, 32}) {
                const std::string what = std::string(name) + " " + std::to_string(z.width) + "x" +
                                         std::to_string(z.height) + " at " + std::to_string(bits) + " bits";
                Owned src(make(z.width, z.height, bits, pattern, palette256()));
                const View picture(src);
                const std::size_t rowBytes = std::size_t(z.width) * unsigned(bits / 8);
                std::vector<std::uint8_t> in(rowBytes * std::size_t(z.height));
                for (int y = 0; y < z.height; ++y)
                    std::memcpy(&in[std::size_t(y) * rowBytes], picture.row(z.height - 1 - y), rowBytes);
                const auto view = [&](std::vector<std::uint8_t>& v) {
                    return flairize::PictureView{v.data(), std::ptrdiff_t(rowBytes), z.width, z.height,
                                                 std::uint8_t(bits / 8)};
                };
                // A view render of the direct sources, into stale bytes.
                const auto intoView = [&](const flairize::HostServices& host) {
                    std::vector<std::uint8_t> out(in.size(), 0xA5);
                    if (bits != 8) {
                        EXPECT_EQ(flairize::renderInto(host, view(in), s, flairize::Mix::Always, view(out)).status,
                                  flairize::Status::Ok) << what;
                    }
                    return out;
                };
                ticks = 0;
                const std::vector<std::uint8_t> alone = bytesOf(flairize::render(
                    hostops::services(tick, nullptr), src, s, flairize::Mix::Always));
                ASSERT_EQ(ticks.load(), long(z.height)) << what;
                ASSERT_FALSE(alone.empty()) << what;
                const std::vector<std::uint8_t> aloneView = intoView(hostops::services());
                for (unsigned threads = 2; threads <= 16; ++threads) {
                    ticks = 0;
                    EXPECT_EQ(bytesOf(flairize::render(hostops::threadedServices(threads, tick, nullptr), src, s,
                                                       flairize::Mix::Always)),
                              alone) << what << ", " << threads << " threads";
                    EXPECT_EQ(ticks.load(), long(z.height)) << what << ", " << threads << " threads";
                    EXPECT_EQ(intoView(hostops::threadedServices(threads)), aloneView)
                        << what << ", " << threads << " threads, into a view";
                }
            }
    }
}

// A long source header is copied whole into the output picture (the
// conformance rows cover the 40-byte header's fields and the padding).
TEST(Engine, OutputHeaderRules) {
    for (const char* name : {"Solarize", "Weave", "Pointillize"}) {
        Owned src(make(5, 3, 8, pattern, palette256(), 124));
        auto* p = static_cast<unsigned char*>(plat::globalLock(src));
        for (std::uint32_t i = 40; i < 124; ++i) p[i] = static_cast<unsigned char>(i);
        plat::globalUnlock(src);
        Owned out(render(effectNamed(name), src, 16384, flairize::Mix::None).picture);
        View v(out);
        const auto bytes = v.bytes();
        EXPECT_EQ(v.header().biSize, 124u);
        EXPECT_EQ(bytes.size(), 124u + 16 * 3) << name;
        for (std::uint32_t i = 40; i < 124; ++i) EXPECT_EQ(bytes[i], static_cast<unsigned char>(i)) << name;
    }
}

// The host's row tick: once per row of a row effect or texture, once per band of marks.
TEST(Engine, RowTicks) {
    struct Case {
        const char* effect;
        long ticks;
    };
    for (const Case c : {Case{"Solarize", 20}, Case{"Contours", 20}, Case{"Bricks", 20}, Case{"Pointillize", 3},
                         Case{"*Bubbles [24]", 3}}) {
        long ticks = 0;
        const flairize::HostServices host = hostops::services([](void* n) { ++*static_cast<long*>(n); }, &ticks);
        Owned src(make(9, 20, 24, pattern));
        flairize::Settings s;
        s.effect = std::uint16_t(effectNamed(c.effect));
        s.sliders[0] = 128;   // marks every 9 rows
        Owned out(flairize::render(host, src, s, flairize::Mix::None).picture);
        EXPECT_EQ(ticks, c.ticks) << c.effect;
    }
}

// Frames rendered from view to view for a host that mixes only whole pictures:
// each effect's own result lands in a frame of stale bytes exactly as render()
// makes it in a new picture (the composite effects hand their frames to the
// host's picture operations as pictures), and a render that fades in is
// refused, the frames untouched.
TEST(Engine, ViewRendersWithoutRowMixMatchPictureRenders) {
    flairize::HostServices wholePictures = hostops::services();
    wholePictures.mixRow = nullptr;
    const std::uint16_t sliderSets[2][3] = {{128, 0, 0}, {0, 255, 40}};   // the second leaves gaps between bubbles
    for (int bits : {24, 32}) {
        constexpr int w = 41, h = 23;
        Owned src(make(w, h, bits, pattern));
        const View picture(src);
        const std::size_t rowBytes = std::size_t(w) * unsigned(bits / 8);
        std::vector<std::uint8_t> in(rowBytes * h);
        for (int y = 0; y < h; ++y) std::memcpy(&in[std::size_t(y) * rowBytes], picture.row(h - 1 - y), rowBytes);
        for (unsigned effect = 0; effect < flairize::effectCount(); ++effect)
            for (const auto& sliders : sliderSets) {
                const std::string what = flairize::effectName(effect) + ", " + std::to_string(bits) + " bits, sliders " +
                                         std::to_string(sliders[0]);
                flairize::Settings s;
                s.effect = std::uint16_t(effect);
                for (int k = 0; k < 3; ++k) s.sliders[k] = sliders[k];
                s.progress = 7000;
                s.colour = 0x3060C0;
                std::vector<std::uint8_t> out(in.size(), 0xA5);
                const auto view = [&](std::vector<std::uint8_t>& v) {
                    return flairize::PictureView{v.data(), std::ptrdiff_t(rowBytes), w, h, std::uint8_t(bits / 8)};
                };
                const long live = plat::liveBlocks();
                ASSERT_EQ(flairize::renderInto(wholePictures, view(in), s, flairize::Mix::None, view(out)).status,
                          flairize::Status::Ok) << what;
                EXPECT_EQ(plat::liveBlocks(), live) << what;
                Owned expected(flairize::render(wholePictures, src, s, flairize::Mix::None).picture);
                const View e(expected);
                for (int y = 0; y < h; ++y)
                    ASSERT_EQ(0, std::memcmp(&out[std::size_t(y) * rowBytes], e.row(h - 1 - y), rowBytes))
                        << what << ", row " << y;
                std::vector<std::uint8_t> untouched(in.size(), 0x5A);
                const flairize::Result faded =
                    flairize::renderInto(wholePictures, view(in), s, flairize::Mix::Always, view(untouched));
                EXPECT_EQ(faded.status, flairize::effectFadesIn(effect) ? flairize::Status::Refused : flairize::Status::Ok)
                    << what;
                if (flairize::effectFadesIn(effect)) {
                    EXPECT_EQ(untouched, std::vector<std::uint8_t>(in.size(), 0x5A)) << what;
                }
            }
    }
}
