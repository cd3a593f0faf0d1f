// Every available effect on a 1920x1080 24-bit frame, through the host's render
// call (filter and progress mix), with a plain copy of the frame as the floor.
#include <benchmark/benchmark.h>

#include <cstring>
#include <string>

#include "engine/dib.h"
#include "engine/effect_table.h"
#include "engine/filters.h"
#include "host/exports.h"
#include "platform/global_memory.h"
#include "platform/strings.h"
#include "standalone/host_context.h"

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
    std::uint32_t size = 0;
    SettingsRecord* record = nullptr;
    InitData(0, &size, &record);
    record->effect = effect;
    const EffectRecord* e = effectRecord(effect);
    record->param1 = e->defaults[0];
    record->param2 = e->defaults[1];
    record->param3 = e->defaults[2];
    record->progress = 16384;
    standalone::Context ctx(record, frame());
    for (auto _ : state) {
        HGLOBAL out = nullptr;
        if (!GenerateDIB(ctx.engineView(), &out, 0)) {
            state.SkipWithError("render failed");
            break;
        }
        plat::globalFree(out);
    }
    setCounters(state);
    FreeData(0, record);
}

bool available(const EffectRecord& e) {
    if (!e.filter) return false;
    if (e.filter == FLR_LineFilter) return e.line1 && e.line2;
    return true;
}

int registerAll() {
    standalone::keepPictureMemory();
    benchmark::RegisterBenchmark("copy (floor)", copyFrame)->Unit(benchmark::kMillisecond);
    for (unsigned i = 0; i < kEffectCount; ++i) {
        const EffectRecord& e = g_effectTable[i];
        if (!available(e)) continue;
        const std::string name = std::to_string(i) + " " + plat::loadString(e.nameId);
        benchmark::RegisterBenchmark(name.c_str(), renderEffect, std::uint16_t(i))->Unit(benchmark::kMillisecond);
    }
    return 0;
}
const int registered = registerAll();

}  // namespace

BENCHMARK_MAIN();
