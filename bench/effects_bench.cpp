// Every effect on a 1920x1080 24-bit frame, through the full render (filter and
// progress mix), with a plain copy of the frame as the floor.
#include <benchmark/benchmark.h>
#include <malloc.h>

#include <cstring>
#include <string>

#include "engine/dib.h"
#include "engine/flairize.h"
#include "platform/global_memory.h"
#include "platform/host_ops.h"

namespace {

constexpr int kWidth = 1920, kHeight = 1080;

HGLOBAL makeFrame() {
    const std::uint32_t stride = std::uint32_t(dib::paddedStride(kWidth, 24));
    HGLOBAL h = dib::create(kWidth, kHeight, 24);
    auto* p = static_cast<unsigned char*>(plat::globalLock(h));
    for (int y = 0; y < kHeight; ++y)
        for (int x = 0; x < kWidth; ++x) {
            unsigned char* q = p + 40 + std::size_t(y) * stride + 3 * std::size_t(x);
            q[0] = static_cast<unsigned char>(x * 255 / kWidth);
            q[1] = static_cast<unsigned char>(y * 255 / kHeight);
            q[2] = static_cast<unsigned char>((x ^ y) & 0xFF);
        }
    plat::globalUnlock(h);
    return h;
}

HGLOBAL frame() {
    static HGLOBAL f = makeFrame();
    return f;
}

void setCounters(benchmark::State& state) {
    state.counters["MP/s"] =
        benchmark::Counter(double(kWidth) * kHeight / 1e6, benchmark::Counter::kIsIterationInvariantRate);
}

void copyFrame(benchmark::State& state) {
    HGLOBAL src = frame();
    const std::size_t size = plat::globalSize(src);
    for (auto _ : state) {
        HGLOBAL out = plat::globalAlloc(size);
        std::memcpy(plat::globalLock(out), plat::globalLock(src), size);
        plat::globalUnlock(src);
        plat::globalUnlock(out);
        benchmark::DoNotOptimize(out);
        plat::globalFree(out);
    }
    setCounters(state);
}

void renderEffect(benchmark::State& state, std::uint16_t effect) {
    SettingsRecord record = flairize::newSettingsRecord();
    flairize::chooseEffect(record, effect);
    record.progress = 16384;
    const flairize::HostServices host = hostops::services();
    for (auto _ : state) {
        const flairize::Result r = flairize::render(host, frame(), flairize::settingsOf(record), flairize::Mix::Always);
        if (r.status != flairize::Status::Ok) {
            state.SkipWithError("render failed");
            break;
        }
        plat::globalFree(r.picture);
    }
    setCounters(state);
}

int registerAll() {
    // Freed pictures stay in the process heap, as in the flairize command.
    mallopt(M_MMAP_THRESHOLD, 256 * 1024 * 1024);
    mallopt(M_TRIM_THRESHOLD, 512 * 1024 * 1024);
    benchmark::RegisterBenchmark("copy (floor)", copyFrame)->Unit(benchmark::kMillisecond);
    for (unsigned i = 0; i < flairize::effectCount(); ++i) {
        const std::string name = std::to_string(i) + " " + flairize::effectName(i);
        benchmark::RegisterBenchmark(name.c_str(), renderEffect, std::uint16_t(i))->Unit(benchmark::kMillisecond);
    }
    return 0;
}
const int registered = registerAll();

}  // namespace

BENCHMARK_MAIN();
