#include "hostops/threads.h"

#include <tbb/blocked_range.h>
#include <tbb/global_control.h>
#include <tbb/info.h>
#include <tbb/parallel_for.h>
#include <tbb/parallel_pipeline.h>
#include <tbb/task_arena.h>

#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <tuple>
#include <vector>

#include "hostops/host_ops.h"

// oneTBB is not built with ThreadSanitizer (nor is this file under it), so the
// ordering its task hand-over gives (everything before a parallel run happens
// before each band; each band happens before the run returns) is told to it here.
#if defined(__SANITIZE_THREAD__) || defined(FLAIRIZE_TSAN_HANDOVERS)
extern "C" void __tsan_acquire(void* address);
extern "C" void __tsan_release(void* address);
#define FLAIRIZE_HANDOVER(kind, address) __tsan_##kind(address)
#else
#define FLAIRIZE_HANDOVER(kind, address) ((void)(address))
#endif

namespace hostops {

unsigned availableThreads() {
    const int n = tbb::info::default_concurrency();
    return n > 0 ? unsigned(n) : 1;
}

namespace {

// One arena per thread count, made on first use and kept for the process.
struct Arena {
    tbb::task_arena arena;
    unsigned threads;
    void (*rowTick)(void*);
    void* user;
};

// oneTBB keeps to as many threads as cores unless told otherwise; a render may ask for more.
Arena* arenaFor(unsigned threads, void (*rowTick)(void*), void* user) {
    static std::mutex lock;
    static std::map<std::tuple<unsigned, void (*)(void*), void*>, std::unique_ptr<Arena>> arenas;
    static std::unique_ptr<tbb::global_control> limit;
    static unsigned limitThreads = 0;
    std::lock_guard<std::mutex> hold(lock);
    if (threads > availableThreads() && threads > limitThreads) {
        limit = std::make_unique<tbb::global_control>(tbb::global_control::max_allowed_parallelism, threads);
        limitThreads = threads;
    }
    auto& a = arenas[{threads, rowTick, user}];
    if (!a) a.reset(new Arena{tbb::task_arena(int(threads)), threads, rowTick, user});
    return a.get();
}

// Bands of about a quarter of a thread's share, so that threads that finish
// early take more.
void runInArena(void* arena, unsigned count, void (*body)(void*, unsigned, unsigned), void* context) {
    Arena& a = *static_cast<Arena*>(arena);
    const unsigned grain = count / (4 * a.threads) + 1;
    int start = 0, finish = 0;   // addresses that stand for the two hand-overs
    FLAIRIZE_HANDOVER(release, &start);
    a.arena.execute([&] {
        tbb::parallel_for(tbb::blocked_range<unsigned>(0, count, grain),
                          [&](const tbb::blocked_range<unsigned>& r) {
                              FLAIRIZE_HANDOVER(acquire, &start);
                              body(context, r.begin(), r.end());
                              FLAIRIZE_HANDOVER(release, &finish);
                          },
                          tbb::simple_partitioner());
    });
    FLAIRIZE_HANDOVER(acquire, &finish);
}

}  // namespace

flairize::HostServices threadedServices(unsigned threads, void (*rowTick)(void* user), void* user) {
    if (threads == 0) threads = availableThreads();
    if (threads == 1) return services(rowTick, user);
    flairize::HostServices s = services(rowTick, user);
    s.user = arenaFor(threads, rowTick, user);
    if (rowTick) s.rowTick = [](void* arena) { static_cast<Arena*>(arena)->rowTick(static_cast<Arena*>(arena)->user); };
    s.parallel = runInArena;
    s.threads = threads;
    // The colour operations run their rows in bands on the same arena.
    s.smooth = [](void* arena, HGLOBAL picture) { return smooth(picture, runInArena, arena); };
    s.simplify = [](void* arena, HGLOBAL picture) { return simplify(picture, runInArena, arena); };
    s.soften = [](void* arena, HGLOBAL picture) { return soften(picture, runInArena, arena); };
    s.colourChain = [](void* arena, const flairize::ColourOp* ops, unsigned count, const dib::View& source,
                       const dib::View& output) { return colourChain(ops, count, source, output, runInArena, arena); };
    return s;
}

void runPipeline(unsigned threads, std::size_t tokens, const std::function<void*()>& produce,
                 const std::function<void*(void*)>& work, const std::function<void(void*)>& consume) {
    if (threads < 1) threads = 1;
    if (tokens < 1) tokens = 1;
    // Addresses that stand for the hand-overs: `start` what comes before the run
    // and each call of produce; `consumed` each call of consume (produce reuses
    // what consume let go); `finish` the end of every stage call, which the run's
    // caller takes over; an item's own address its way through the stages.
    int start = 0, consumed = 0, finish = 0;
    struct Finish {
        int* at;
        ~Finish() { FLAIRIZE_HANDOVER(release, at); }
    };
    FLAIRIZE_HANDOVER(release, &start);
    auto takeOver = [&] {
        FLAIRIZE_HANDOVER(acquire, &start);
        FLAIRIZE_HANDOVER(acquire, &consumed);
        FLAIRIZE_HANDOVER(acquire, &finish);
    };
    try {
        arenaFor(threads, nullptr, nullptr)->arena.execute([&] {
            tbb::parallel_pipeline(
                tokens,
                tbb::make_filter<void, void*>(tbb::filter_mode::serial_in_order,
                                              [&](tbb::flow_control& fc) -> void* {
                                                  Finish done{&finish};
                                                  FLAIRIZE_HANDOVER(acquire, &start);
                                                  FLAIRIZE_HANDOVER(acquire, &consumed);
                                                  void* item = produce();
                                                  if (item)
                                                      FLAIRIZE_HANDOVER(release, item);
                                                  else
                                                      fc.stop();
                                                  FLAIRIZE_HANDOVER(release, &start);
                                                  return item;
                                              }) &
                    tbb::make_filter<void*, void*>(tbb::filter_mode::parallel,
                                                   [&](void* item) {
                                                       Finish done{&finish};
                                                       FLAIRIZE_HANDOVER(acquire, item);
                                                       void* result = work(item);
                                                       FLAIRIZE_HANDOVER(release, result);
                                                       return result;
                                                   }) &
                    tbb::make_filter<void*, void>(tbb::filter_mode::serial_in_order, [&](void* item) {
                        Finish done{&finish};
                        FLAIRIZE_HANDOVER(acquire, item);
                        FLAIRIZE_HANDOVER(acquire, &consumed);   // the previous item's call
                        consume(item);
                        FLAIRIZE_HANDOVER(release, item);
                        FLAIRIZE_HANDOVER(release, &consumed);
                    }));
        });
    } catch (...) {
        takeOver();
        throw;
    }
    takeOver();
}

void runInOrder(unsigned inFlight, long count, const std::function<void(long)>& work,
                const std::function<bool(long)>& inOrder) {
    if (inFlight < 1) inFlight = 1;
    // Each item's index lives in a slot of its own; at most inFlight are in use.
    std::vector<long> slots(inFlight);
    long next = 0;
    std::atomic<bool> stopped{false};
    runPipeline(
        inFlight, inFlight,
        [&]() -> void* {
            if (next >= count || stopped.load()) return nullptr;
            long* slot = &slots[std::size_t(next % long(inFlight))];
            *slot = next++;
            return slot;
        },
        [&](void* slot) {
            work(*static_cast<long*>(slot));
            return slot;
        },
        [&](void* slot) {
            if (!inOrder(*static_cast<long*>(slot))) stopped.store(true);
        });
}

}  // namespace hostops
