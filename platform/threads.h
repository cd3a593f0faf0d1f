// Slice threads for the Linux front ends: the engine's host services with a
// `parallel` function that runs a render's independent rows in bands on a
// oneTBB arena of a given size. The output never depends on the thread count.
#pragma once

#include "hostapi/host_services.h"

namespace hostops {

// The number of threads "all cores" means here.
unsigned availableThreads();

// services() whose renders use `threads` threads (0: all cores; 1: none but
// the caller's). rowTick, when given, may be called from several threads at once.
flairize::HostServices threadedServices(unsigned threads, void (*rowTick)(void* user) = nullptr,
                                        void* user = nullptr);

}  // namespace hostops
