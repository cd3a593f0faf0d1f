// Runs a body over rows 0 .. count - 1 in bands: on the host's threads through
// a `parallel` function where one is given, otherwise as one band on the
// caller's thread. The body is called as body(begin, end); bands run at once
// must write disjoint rows.
#pragma once

#include "engine/host_services.h"

using ParallelFunction = decltype(flairize::HostServices::parallel);

template <class Body>
void runBands(ParallelFunction parallel, void* user, unsigned count, const Body& body) {
    if (!count) return;
    if (!parallel) {
        body(0u, count);
        return;
    }
    parallel(
        user, count,
        [](void* context, unsigned begin, unsigned end) { (*static_cast<const Body*>(context))(begin, end); },
        const_cast<Body*>(&body));
}

template <class Body>
void runBands(const flairize::HostServices& host, unsigned count, const Body& body) {
    runBands(host.parallel, host.user, count, body);
}
