// Every effect on 1920x1080 and 3840x2160 frames, 24-bit and 32-bit, on one
// thread and on more, beside plain copies of frames of the same depth.
// Names:
//   "<size>/<threads>/<effect>"     a 24-bit frame through the full render (filter
//                                   and progress mix), a new picture each time;
//   "<size>/32bit/<threads>/<effect>" a 32-bit frame stored top row first, rendered
//                                   from view to view as the video hosts do;
//   "<size>/copy[/<threads>]"       the copy of a 24-bit frame into a new picture;
//   "<size>/copy32[/<threads>]"     the copy of a 32-bit frame from view to view;
//   "<size>/mix32[/<threads>]"      the alpha mix alone over a 32-bit frame: what a
//                                   32-bit render adds to the effect;
//   "1080p/alpha/mix32", "1080p/alpha/32bit/1/<effect>": the same on a frame
//                                   whose alpha is 0, 255 and in between (one thread);
//   "1080p/frei0r/<effect>"         the effect's frei0r plug-in (f0r_update, one
//                                   thread) on the frames of "1080p/32bit/1/<effect>".
// <threads> is 1 and "all" (all cores), or 1 and the counts FLAIRIZE_BENCH_THREADS
// lists ("2,4,8,16"; "all" may be one of them); without a count a copy or mix runs
// on one thread. More threads than cores are allowed.
#include <benchmark/benchmark.h>
#include <malloc.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "effects/rows/row_pixels.h"
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

// A thread count as the names give it: 0 stands for all cores.
std::string threadName(unsigned threads) { return threads == 0 ? "all" : std::to_string(threads); }

flairize::HostServices hostFor(unsigned threads) {
    return threads == 1 ? hostops::services() : hostops::threadedServices(threads);
}

// Runs body(begin, end) over [0, 256) in bands on the host's threads.
template <typename Body>
void inBands(const flairize::HostServices& host, Body& body) {
    auto band = [](void* context, unsigned begin, unsigned end) { (*static_cast<Body*>(context))(begin, end); };
    if (host.parallel)
        host.parallel(host.user, 256, band, &body);
    else
        band(&body, 0, 256);
}

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

// A 32-bit frame, top row first, and an output frame for it: opaque as a video
// host's frames are, or (partialAlpha) a third transparent, a third opaque and
// a third with alpha rising across a soft edge, in vertical stripes of 64 pixels.
std::vector<std::uint8_t>& viewFrame(unsigned size, bool output, bool partialAlpha = false) {
    static std::vector<std::uint8_t> frames[2][2][2];
    std::vector<std::uint8_t>* f = frames[partialAlpha][size];
    if (f[0].empty()) {
        const std::size_t width = std::size_t(kSizes[size].width);
        f[0].resize(width * std::size_t(kSizes[size].height) * 4);
        f[1].resize(f[0].size());
        for (std::size_t i = 0; i < f[0].size(); ++i) {
            std::uint8_t v = static_cast<std::uint8_t>(i % 4 == 3 ? 255 : (i * 7) >> 5);
            if (i % 4 == 3 && partialAlpha) {
                const std::size_t x = (i / 4) % width, stripe = (x / 64) % 3;
                v = stripe == 0 ? 0 : stripe == 1 ? 255 : static_cast<std::uint8_t>(1 + (x % 64) * 4);
            }
            f[0][i] = v;
        }
    }
    return f[output ? 1 : 0];
}

flairize::PictureView viewOf(unsigned size, bool output, bool partialAlpha = false) {
    return {viewFrame(size, output, partialAlpha).data(), std::ptrdiff_t(kSizes[size].width) * 4,
            std::uint16_t(kSizes[size].width), std::uint16_t(kSizes[size].height), 4};
}

void setCounters(benchmark::State& state, unsigned size) {
    state.counters["MP/s"] = benchmark::Counter(double(kSizes[size].width) * kSizes[size].height / 1e6,
                                                benchmark::Counter::kIsIterationInvariantRate);
}

// The 24-bit frame copied into a new picture, in bands on the threads given:
// the floor of a render that returns a new picture.
void copyFrame(benchmark::State& state, unsigned size, unsigned threads) {
    HGLOBAL src = frame(size);
    const std::size_t bytes = plat::globalSize(src);
    const flairize::HostServices host = hostFor(threads);
    for (auto _ : state) {
        HGLOBAL out = plat::globalAlloc(bytes);
        const auto* from = static_cast<const unsigned char*>(plat::globalLock(src));
        auto* to = static_cast<unsigned char*>(plat::globalLock(out));
        auto band = [&](unsigned begin, unsigned end) {
            std::memcpy(to + bytes * begin / 256, from + bytes * begin / 256, bytes * end / 256 - bytes * begin / 256);
        };
        inBands(host, band);
        plat::globalUnlock(src);
        plat::globalUnlock(out);
        benchmark::DoNotOptimize(out);
        plat::globalFree(out);
    }
    setCounters(state, size);
}

// The 32-bit frame copied from view to view: the floor of a 32-bit render.
void copyView(benchmark::State& state, unsigned size, unsigned threads) {
    const std::uint8_t* from = viewFrame(size, false).data();
    std::uint8_t* to = viewFrame(size, true).data();
    const std::size_t bytes = viewFrame(size, false).size();
    const flairize::HostServices host = hostFor(threads);
    for (auto _ : state) {
        auto band = [&](unsigned begin, unsigned end) {
            std::memcpy(to + bytes * begin / 256, from + bytes * begin / 256, bytes * end / 256 - bytes * begin / 256);
        };
        inBands(host, band);
        benchmark::DoNotOptimize(to);
        benchmark::ClobberMemory();
    }
    setCounters(state, size);
}

// The alpha mix alone: values already in the output frame mixed in place over
// the source frame's pixels under its alpha, row by row.
void mixView(benchmark::State& state, unsigned size, unsigned threads, bool partialAlpha) {
    const flairize::PictureView in = viewOf(size, false, partialAlpha), out = viewOf(size, true, partialAlpha);
    std::memcpy(out.top, in.top, viewFrame(size, false, partialAlpha).size());
    const flairize::HostServices host = hostFor(threads);
    for (auto _ : state) {
        auto band = [&](unsigned begin, unsigned end) {
            for (unsigned y = in.height * begin / 256; y < in.height * end / 256; ++y)
                rowpx::mixRowInPlace(in.top + y * in.stride, out.top + y * out.stride, in.width);
        };
        inBands(host, band);
        benchmark::DoNotOptimize(out.top);
        benchmark::ClobberMemory();
    }
    setCounters(state, size);
}

flairize::Settings fullProgress(std::uint16_t effect) {
    SettingsRecord record = flairize::newSettingsRecord();
    flairize::chooseEffect(record, effect);
    record.progress = 16384;
    return flairize::settingsOf(record);
}

void renderEffect(benchmark::State& state, unsigned size, std::uint16_t effect, unsigned threads) {
    const flairize::Settings settings = fullProgress(effect);
    const flairize::HostServices host = hostFor(threads);
    for (auto _ : state) {
        const flairize::Result r = flairize::render(host, frame(size), settings, flairize::Mix::Always);
        if (r.status != flairize::Status::Ok) {
            state.SkipWithError("render failed");
            break;
        }
        plat::globalFree(r.picture);
    }
    setCounters(state, size);
}

void renderView(benchmark::State& state, unsigned size, std::uint16_t effect, unsigned threads, bool partialAlpha) {
    const flairize::Settings settings = fullProgress(effect);
    const flairize::HostServices host = hostFor(threads);
    const flairize::PictureView in = viewOf(size, false, partialAlpha), out = viewOf(size, true, partialAlpha);
    for (auto _ : state) {
        const flairize::Result r = flairize::renderInto(host, in, settings, flairize::Mix::Always, out);
        if (r.status != flairize::Status::Ok) {
            state.SkipWithError("render failed");
            break;
        }
    }
    setCounters(state, size);
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
    const auto* in = reinterpret_cast<const std::uint32_t*>(viewFrame(0, false).data());
    auto* out = reinterpret_cast<std::uint32_t*>(viewFrame(0, true).data());
    for (auto _ : state) plugin.update(instance, 0.0, in, out);
    plugin.destruct(instance);
    setCounters(state, 0);
}
#endif

// The thread counts to measure: one, then those FLAIRIZE_BENCH_THREADS lists,
// else all cores.
std::vector<unsigned> threadCounts() {
    std::vector<unsigned> counts{1};
    const char* list = std::getenv("FLAIRIZE_BENCH_THREADS");
    std::string text = list && *list ? list : "1,all";
    for (std::size_t at = 0; at <= text.size();) {
        std::size_t end = text.find(',', at);
        if (end == std::string::npos) end = text.size();
        const std::string item = text.substr(at, end - at);
        const unsigned n = item == "all" ? 0 : unsigned(std::strtoul(item.c_str(), nullptr, 10));
        if ((n > 0 || item == "all") && std::find(counts.begin(), counts.end(), n) == counts.end()) counts.push_back(n);
        at = end + 1;
    }
    return counts;
}

template <typename... Args>
void add(const std::string& name, Args&&... args) {
    benchmark::RegisterBenchmark(name.c_str(), std::forward<Args>(args)...)->Unit(benchmark::kMillisecond)->UseRealTime();
}

int registerAll() {
    // Freed pictures stay in the process heap, as in the flairize command.
    mallopt(M_MMAP_THRESHOLD, 256 * 1024 * 1024);
    mallopt(M_TRIM_THRESHOLD, 512 * 1024 * 1024);
    const std::vector<unsigned> counts = threadCounts();
    for (unsigned size = 0; size < 2; ++size) {
        const std::string prefix = kSizes[size].name;
        for (unsigned threads : counts) {
            const std::string t = threads == 1 ? "" : "/" + threadName(threads);
            add(prefix + "/copy" + t, copyFrame, size, threads);
            add(prefix + "/copy32" + t, copyView, size, threads);
            add(prefix + "/mix32" + t, mixView, size, threads, false);
        }
        for (unsigned i = 0; i < flairize::effectCount(); ++i) {
            if (!flairize::effectOffered(i)) continue;
            for (unsigned threads : counts)
                add(prefix + "/" + threadName(threads) + "/" + flairize::effectName(i), renderEffect, size,
                    std::uint16_t(i), threads);
            for (unsigned threads : counts)
                add(prefix + "/32bit/" + threadName(threads) + "/" + flairize::effectName(i), renderView, size,
                    std::uint16_t(i), threads, false);
        }
    }
    add("1080p/alpha/mix32", mixView, 0u, 1u, true);
    for (unsigned i = 0; i < flairize::effectCount(); ++i)
        if (flairize::effectOffered(i))
            add("1080p/alpha/32bit/1/" + flairize::effectName(i), renderView, 0u, std::uint16_t(i), 1u, true);
#ifdef FLAIRIZE_FREI0R_DIR
    for (unsigned i = 0; i < flairize::effectCount(); ++i)
        if (flairize::effectOffered(i))
            add("1080p/frei0r/" + flairize::effectName(i), renderPlugin, std::uint16_t(i));
#endif
    return 0;
}
const int registered = registerAll();

}  // namespace

BENCHMARK_MAIN();
