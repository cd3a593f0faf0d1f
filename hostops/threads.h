// Slice threads for the Linux front ends: the engine's host services with a
// `parallel` function that runs a render's independent rows in bands on a
// oneTBB arena of a given size. The output never depends on the thread count.
#pragma once

#include <cstddef>
#include <functional>

#include "engine/host_services.h"

namespace hostops {

// The number of threads "all cores" means here.
unsigned availableThreads();

// services() whose renders use `threads` threads (0: all cores; 1: none but
// the caller's). rowTick, when given, may be called from several threads at once.
flairize::HostServices threadedServices(unsigned threads, void (*rowTick)(void* user) = nullptr,
                                        void* user = nullptr);

// Three stages on `threads` threads with at most `tokens` items in flight:
// produce makes the next item (one call at a time; null ends the run), work
// runs on up to `threads` items at once, consume takes them one at a time in
// the order they were made. An exception from any stage ends the run and is
// thrown again here.
void runPipeline(unsigned threads, std::size_t tokens, const std::function<void*()>& produce,
                 const std::function<void*(void*)>& work, const std::function<void(void*)>& consume);

// Runs work(i) for i = 0 .. count - 1 on up to `inFlight` threads at once and
// calls inOrder(i) on one thread at a time in increasing i, each after its
// work(i) has finished. Once inOrder returns false no further work starts; the
// items already started still finish and still reach inOrder.
void runInOrder(unsigned inFlight, long count, const std::function<void(long)>& work,
                const std::function<bool(long)>& inOrder);

}  // namespace hostops
