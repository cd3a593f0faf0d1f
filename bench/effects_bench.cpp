// Every effect on 1920x1080 and 3840x2160 24-bit frames through the full render
// (filter and progress mix), on one thread and on all cores, with a plain copy
// of the frame as the floor. Names are "<size>/<threads>/<effect>": "1080p/1/Solarize",
// "2160p/all/Solarize", "1080p/copy", "1080p/copy/all" (the copy in bands on all cores). "1080p/view/<effect>" renders a 32-bit
// frame stored top row first from view to view on one thread, as a frei0r
// plug-in does inside ffmpeg; "1080p/frei0r/<effect>" hands the same frames to
// the effect's frei0r plug-in (f0r_update, one thread), so the two differ by
// what the plug-in adds.
#include <benchmark/benchmark.h>
#include <malloc.h>

#include <cstring>
#include <string>
#include <vector>

#include "engine/dib.h"
#include "engine/flairize.h"
#include "platform/global_memory.h"
#include "hostops/host_ops.h"
#include "hostops/threads.h"
#ifdef FLAIRIZE_FREI0R_DIR
#include "frei0r/plugin_loader.h"
#endif

namespace {

struct FrameSize {
    const char* name;
    int width, height;
};
constexpr FrameSize kSizes[] = {{"1080p", 1920, 1080}, {"2160p", 3840, 2160}};

HGLOBAL makeFrame(const FrameSize& z) {
    const std::uint32_t stride = std::uint32_t(dib::paddedStride(std::uint32_t(z.width), 24));
    HGLOBAL h = dib::create(z.width, z.height, 24);
    auto* p = static_cast<unsigned char*>(plat::globalLock(h));
    for (int y = 0; y < z.height; ++y)
        for (int x = 0; x < z.width; ++x) {
            unsigned char* q = p + 40 + std::size_t(y) * stride + 3 * std::size_t(x);
            q[0] = static_cast<unsigned char>(x * 255 / z.width);
            q[1] = static_cast<unsigned char>(y * 255 / z.height);
            q[2] = static_cast<unsigned char>((x ^ y) & 0xFF);
        }
    plat::globalUnlock(h);
    return h;
}

HGLOBAL frame(unsigned size) {
    static HGLOBAL frames[2] = {makeFrame(kSizes[0]), makeFrame(kSizes[1])};
    return frames[size];
}

void setCounters(benchmark::State& state, unsigned size) {
    state.counters["MP/s"] = benchmark::Counter(double(kSizes[size].width) * kSizes[size].height / 1e6,
                                                benchmark::Counter::kIsIterationInvariantRate);
}

void copyFrame(benchmark::State& state, unsigned size) {
    HGLOBAL src = frame(size);
    const std::size_t bytes = plat::globalSize(src);
    for (auto _ : state) {
        HGLOBAL out = plat::globalAlloc(bytes);
        std::memcpy(plat::globalLock(out), plat::globalLock(src), bytes);
        plat::globalUnlock(src);
        plat::globalUnlock(out);
        benchmark::DoNotOptimize(out);
        plat::globalFree(out);
    }
    setCounters(state, size);
}

// The same copy in bands on all cores: what memory lets the threads move.
void copyFrameAll(benchmark::State& state, unsigned size) {
    HGLOBAL src = frame(size);
    const std::size_t bytes = plat::globalSize(src);
    const flairize::HostServices host = hostops::threadedServices(0);
    struct Copy {
        const unsigned char* from;
        unsigned char* to;
        std::size_t bytes;
    };
    for (auto _ : state) {
        HGLOBAL out = plat::globalAlloc(bytes);
        Copy c{static_cast<const unsigned char*>(plat::globalLock(src)), static_cast<unsigned char*>(plat::globalLock(out)),
               bytes};
        auto band = [](void* context, unsigned begin, unsigned end) {
            const Copy& k = *static_cast<const Copy*>(context);
            const std::size_t from = k.bytes * begin / 256, to = k.bytes * end / 256;
            std::memcpy(k.to + from, k.from + from, to - from);
        };
        if (host.parallel)
            host.parallel(host.user, 256, band, &c);
        else
            band(&c, 0, 256);
        plat::globalUnlock(src);
        plat::globalUnlock(out);
        benchmark::DoNotOptimize(out);
        plat::globalFree(out);
    }
    setCounters(state, size);
}

void renderEffect(benchmark::State& state, unsigned size, std::uint16_t effect, unsigned threads) {
    SettingsRecord record = flairize::newSettingsRecord();
    flairize::chooseEffect(record, effect);
    record.progress = 16384;
    const flairize::HostServices host = threads == 1 ? hostops::services() : hostops::threadedServices(threads);
    for (auto _ : state) {
        const flairize::Result r =
            flairize::render(host, frame(size), flairize::settingsOf(record), flairize::Mix::Always);
        if (r.status != flairize::Status::Ok) {
            state.SkipWithError("render failed");
            break;
        }
        plat::globalFree(r.picture);
    }
    setCounters(state, size);
}

// A 32-bit 1080p frame, top row first, and an output frame for it.
std::vector<std::uint8_t>& viewFrame(bool output) {
    static std::vector<std::uint8_t> frames[2];
    if (frames[0].empty()) {
        frames[0].resize(std::size_t(1920) * 1080 * 4);
        frames[1].resize(frames[0].size());
        for (std::size_t i = 0; i < frames[0].size(); ++i)
            frames[0][i] = static_cast<std::uint8_t>(i % 4 == 3 ? 255 : (i * 7) >> 5);
    }
    return frames[output ? 1 : 0];
}

void renderView(benchmark::State& state, std::uint16_t effect) {
    SettingsRecord record = flairize::newSettingsRecord();
    flairize::chooseEffect(record, effect);
    record.progress = 16384;
    const flairize::HostServices host = hostops::services();
    const flairize::PictureView in{viewFrame(false).data(), 1920 * 4, 1920, 1080, 4};
    const flairize::PictureView out{viewFrame(true).data(), 1920 * 4, 1920, 1080, 4};
    for (auto _ : state) {
        const flairize::Result r =
            flairize::renderInto(host, in, flairize::settingsOf(record), flairize::Mix::Always, out);
        if (r.status != flairize::Status::Ok) {
            state.SkipWithError("render failed");
            break;
        }
    }
    setCounters(state, 0);
}

#ifdef FLAIRIZE_FREI0R_DIR
void renderPlugin(benchmark::State& state, std::uint16_t effect) {
    setenv("FLAIRIZE_THREADS", "1", 1);
    Frei0rPlugin& plugin = frei0rPlugin(effect);
    if (!plugin.complete()) {
        state.SkipWithError("the plug-in cannot be loaded");
        return;
    }
    f0r_instance_t instance = plugin.construct(1920, 1080);
    const auto* in = reinterpret_cast<const std::uint32_t*>(viewFrame(false).data());
    auto* out = reinterpret_cast<std::uint32_t*>(viewFrame(true).data());
    for (auto _ : state) plugin.update(instance, 0.0, in, out);
    plugin.destruct(instance);
    setCounters(state, 0);
}
#endif

int registerAll() {
    // Freed pictures stay in the process heap, as in the flairize command.
    mallopt(M_MMAP_THRESHOLD, 256 * 1024 * 1024);
    mallopt(M_TRIM_THRESHOLD, 512 * 1024 * 1024);
    for (unsigned size = 0; size < 2; ++size) {
        const std::string prefix = kSizes[size].name;
        benchmark::RegisterBenchmark((prefix + "/copy").c_str(), copyFrame, size)->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark((prefix + "/copy/all").c_str(), copyFrameAll, size)
            ->Unit(benchmark::kMillisecond)
            ->UseRealTime();
        for (unsigned i = 0; i < flairize::effectCount(); ++i) {
            if (!flairize::effectOffered(i)) continue;
            for (unsigned threads : {1u, 0u}) {
                const std::string name = prefix + (threads == 1 ? "/1/" : "/all/") + flairize::effectName(i);
                benchmark::RegisterBenchmark(name.c_str(), renderEffect, size, std::uint16_t(i), threads)
                    ->Unit(benchmark::kMillisecond)
                    ->UseRealTime();
            }
        }
    }
    for (unsigned i = 0; i < flairize::effectCount(); ++i)
        if (flairize::effectOffered(i))
            benchmark::RegisterBenchmark(("1080p/view/" + flairize::effectName(i)).c_str(), renderView,
                                         std::uint16_t(i))
                ->Unit(benchmark::kMillisecond);
#ifdef FLAIRIZE_FREI0R_DIR
    for (unsigned i = 0; i < flairize::effectCount(); ++i)
        if (flairize::effectOffered(i))
            benchmark::RegisterBenchmark(("1080p/frei0r/" + flairize::effectName(i)).c_str(), renderPlugin,
                                         std::uint16_t(i))
                ->Unit(benchmark::kMillisecond);
#endif
    return 0;
}
const int registered = registerAll();

}  // namespace

BENCHMARK_MAIN();
