// Want of memory on every path: each allocation of every effect fails once,
// through the engine, the plug-in's frame render and the frei0r update; each
// failure ends with one out-of-memory report and nothing leaked.
#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdio>
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <vector>

#include "engine/flairize.h"
#include "host/exports.h"
#include "platform/global_memory.h"
#include "hostops/host_ops.h"
#include "hostops/threads.h"
#include "tests/picture_support.h"
#include "tests/standin_host.h"

#ifdef FLAIRIZE_FREI0R_DIR
#include "frei0r/plugin_loader.h"
#endif

using namespace testpic;

namespace {

const std::string kNoMemory = "Not enough memory to complete operation";

// One render of `effect` over `source` on one path, the n-th allocation failing:
// false when nothing failed (every allocation has then been failed once).
using Path = std::function<bool(unsigned effect, HGLOBAL source)>;

bool throughEngine(const flairize::HostServices& host, unsigned effect, HGLOBAL source) {
    flairize::Settings s;
    s.effect = std::uint16_t(effect);
    for (int k = 0; k < 3; ++k) s.sliders[k] = flairize::sliderDefault(effect, k);
    s.progress = 9000;
    const flairize::Result r = flairize::render(host, source, s, flairize::Mix::Always);
    plat::globalFree(r.picture);
    if (r.status == flairize::Status::Ok) return false;
    // Never a refusal: the front ends turn these two into the one message.
    EXPECT_TRUE(r.status == flairize::Status::OutOfMemory || r.status == flairize::Status::MixFailed) << effect;
    EXPECT_EQ(r.picture != nullptr, r.status == flairize::Status::MixFailed) << effect;
    return true;
}

bool throughGenerateDib(unsigned effect, HGLOBAL source) {
    SettingsRecord record = flairize::newSettingsRecord();
    flairize::chooseEffect(record, std::uint16_t(effect));
    record.progress = 9000;
    TestHostContext context(&record, source);
    HGLOBAL out = nullptr;
    MessageCapture messages;
    const std::uint32_t made = GenerateDIB(&context, &out, 0);
    if (made) {
        plat::globalFree(out);
        EXPECT_TRUE(messages.messages.empty()) << effect;
        return false;
    }
    // The plug-in's message or the host operation's own, never both, never none.
    EXPECT_EQ(messages.messages, std::vector<std::string>{kNoMemory}) << flairize::effectName(effect);
    EXPECT_EQ(out, nullptr) << effect;
    return true;
}

TEST(Memory, EveryAllocationFailureEndsInOneReport) {
    const flairize::HostServices whole = hostops::services(), sliced = hostops::threadedServices(2);
    const struct {
        const char* name;
        Path run;
    } paths[] = {
        {"engine, whole-picture mix", [&](unsigned e, HGLOBAL s) { return throughEngine(whole, e, s); }},
        {"engine, slice threads", [&](unsigned e, HGLOBAL s) { return throughEngine(sliced, e, s); }},
        {"plug-in frame render", throughGenerateDib},
    };
    for (const auto& path : paths) {
        long failures = 0;
        for (int bits : {8, 24, 32}) {
            Owned src(make(7, 5, bits, pattern, bits == 8 ? palette256() : std::vector<Bgra>{}));
            for (unsigned effect = 0; effect < flairize::effectCount(); ++effect)
                for (long n = 1;; ++n) {
                    const long live = plat::liveBlocks();
                    plat::failAllocationAfter(n);
                    const bool failed = path.run(effect, src);
                    plat::failAllocationAfter(0);
                    EXPECT_EQ(plat::liveBlocks(), live) << path.name << ", effect " << effect << ", allocation " << n;
                    if (!failed) break;
                    ++failures;
                    ASSERT_LT(n, 60) << path.name << ", effect " << effect << " keeps failing";
                }
        }
        // Every effect needs at least its output picture on each path.
        EXPECT_GE(failures, 3 * long(flairize::effectCount()) - 3 * 6) << path.name;
    }
}

// A frame rendered from view to view, as the frei0r plug-ins and the video
// command render: only the effects that hand pictures to the host's colour
// operations (WaterColor, Glass) or picture mix (Color Pencil, where the host
// cannot mix rows) may make a frame-sized block; every other effect works in
// the caller's frames with small working blocks at most.
TEST(Memory, ViewRendersMakeNoFrameCopies) {
    constexpr unsigned w = 256, h = 192;
    constexpr std::size_t frameSized = std::size_t(w) * h;   // a block of at least a byte a pixel
    const std::vector<unsigned> mayCopy = {effectNamed("WaterColor"), effectNamed("Glass"), effectNamed("Color Pencil")};
    const flairize::HostServices oneThread = hostops::services(), sliced = hostops::threadedServices(2);
    const struct {
        const char* name;
        const flairize::HostServices& host;
        std::uint8_t bytesPerPixel;
    } runs[] = {{"32-bit frames, slice threads", sliced, 4},
                {"32-bit frames, one thread", oneThread, 4},
                {"24-bit frames, slice threads", sliced, 3}};
    for (const auto& run : runs) {
        const std::size_t rowBytes = std::size_t(w) * run.bytesPerPixel;
        std::vector<std::uint8_t> in(rowBytes * h), out(in.size());
        for (std::size_t i = 0; i < in.size(); ++i) in[i] = std::uint8_t(i * 37 + (i >> 2) * 11 + (i >> 9));
        const flairize::PictureView source{in.data(), std::ptrdiff_t(rowBytes), w, h, run.bytesPerPixel},
            output{out.data(), std::ptrdiff_t(rowBytes), w, h, run.bytesPerPixel};
        for (unsigned effect = 0; effect < flairize::effectCount(); ++effect) {
            flairize::Settings s;
            s.effect = std::uint16_t(effect);
            for (int k = 0; k < 3; ++k) s.sliders[k] = flairize::sliderDefault(effect, k);
            s.progress = 9000;
            const long live = plat::liveBlocks();
            plat::countAllocations(frameSized);
            const flairize::Result r = flairize::renderInto(run.host, source, s, flairize::Mix::Always, output);
            const plat::AllocationCount made = plat::countedAllocations();
            plat::countAllocations(SIZE_MAX);
            ASSERT_EQ(r.status, flairize::Status::Ok) << run.name << ", " << flairize::effectName(effect);
            EXPECT_EQ(plat::liveBlocks(), live) << run.name << ", " << flairize::effectName(effect);
            const bool copies = std::find(mayCopy.begin(), mayCopy.end(), effect) != mayCopy.end();
            if (!copies) {
                EXPECT_EQ(made.large, 0) << run.name << ", " << flairize::effectName(effect) << " made " << made.large
                                         << " frame-sized blocks of " << made.all << " blocks";
            }
        }
    }
    // The count sees frame-sized blocks: a render into a new picture makes one.
    Owned src(make(int(w), int(h), 32, pattern));
    plat::countAllocations(frameSized);
    Owned rendered(render(effectNamed("Solarize"), src).picture);
    const plat::AllocationCount made = plat::countedAllocations();
    plat::countAllocations(SIZE_MAX);
    EXPECT_NE(rendered.h, nullptr);
    EXPECT_EQ(made.large, 1);
    EXPECT_GE(made.all, made.large);
}

#ifdef FLAIRIZE_FREI0R_DIR

// What the plug-in writes to stderr while `body` runs.
std::string stderrOf(const std::function<void()>& body) {
    char name[] = "/tmp/flairize-stderr-XXXXXX";
    const int file = mkstemp(name);
    std::fflush(stderr);
    const int saved = dup(STDERR_FILENO);
    dup2(file, STDERR_FILENO);
    body();
    std::fflush(stderr);
    dup2(saved, STDERR_FILENO);
    close(saved);
    close(file);
    std::ifstream in(name);
    std::string text{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    std::remove(name);
    return text;
}

// Each plug-in module counts its own allocations; its test hook arms the
// count when an instance is made.
f0r_instance_t constructFailing(const Frei0rPlugin& p, long n, unsigned w, unsigned h) {
    setenv("FLAIRIZE_FAIL_ALLOCATION", std::to_string(n).c_str(), 1);
    f0r_instance_t instance = p.construct(w, h);
    unsetenv("FLAIRIZE_FAIL_ALLOCATION");
    return instance;
}

// A frei0r update that cannot be had passes the frame through, and an
// instance says so once however many of its frames fail.
TEST(Memory, Frei0rUpdatePassesTheFrameThroughAndSaysSoOnce) {
    constexpr unsigned w = 9, h = 6;
    std::vector<std::uint8_t> in(w * h * 4);
    for (std::size_t i = 0; i < in.size(); ++i) in[i] = std::uint8_t(i * 37 + (i >> 2) * 11);
    const auto* frame = reinterpret_cast<const std::uint32_t*>(in.data());
    int failures = 0;
    for (unsigned effect = 0; effect < flairize::effectCount(); ++effect) {
        if (!flairize::effectOffered(effect)) continue;
        const Frei0rPlugin& p = frei0rPlugin(effect);
        ASSERT_TRUE(p.complete()) << p.path;
        for (long n = 1;; ++n) {
            f0r_instance_t instance = constructFailing(p, n, w, h);
            std::vector<std::uint8_t> first(in.size()), second(in.size());
            const std::string said = stderrOf([&] {
                p.update(instance, 0, frame, reinterpret_cast<std::uint32_t*>(first.data()));
                f0r_instance_t other = constructFailing(p, n, w, h);   // the same allocation fails again
                p.update(instance, 0, frame, reinterpret_cast<std::uint32_t*>(second.data()));
                p.destruct(other);
            });
            p.destruct(constructFailing(p, 0, w, h));   // the count off again
            p.destruct(instance);
            if (said.empty()) break;   // every allocation of this effect has failed once
            ++failures;
            EXPECT_EQ(said, kNoMemory + "\n") << flairize::effectName(effect) << ", allocation " << n;
            EXPECT_EQ(first, in) << flairize::effectName(effect);
            EXPECT_EQ(second, in) << flairize::effectName(effect);
            ASSERT_LT(n, 60) << flairize::effectName(effect) << " keeps failing";
        }
    }
    EXPECT_GT(failures, 0);   // views alone need no memory; the effects on whole pictures do
}

#endif  // FLAIRIZE_FREI0R_DIR

}  // namespace
