// The host's picture operations as Flairize provides them wherever the real
// host's libraries are not there: the Linux front ends use them through
// services(), the Wine stand-ins for the host's libraries export them. Each
// makes a new picture and never changes its input; all arithmetic is integer.
#pragma once

#include <cstdint>

#include "engine/bands.h"
#include "engine/host_services.h"
#include "platform/win_types.h"

namespace hostops {

// Why the last operation on this thread returned null: a picture it does not
// take (a caller's mistake) or memory it could not have. A host reports the
// second to its user as out of memory; the first is never the user's to see.
enum class Failure { None, BadPicture, OutOfMemory };
Failure lastFailure();
HGLOBAL failed(Failure why);         // records why and gives null
HGLOBAL succeeded(HGLOBAL picture);  // records success and gives the picture

// (first * (16384 - weight) + second * weight) >> 14 per byte, in the second
// picture's format; an 8-bit first picture is read through its colour table.
HGLOBAL mix(HGLOBAL first, HGLOBAL second, std::uint32_t weight);

// The colour operations: 24-bit in gives 24-bit out, 32-bit gives 32-bit with
// every pixel's alpha kept, 8-bit gives 24-bit read through the colour table.
// Given a parallel function (with its user pointer), the rows run in bands through it.
// Smooth: edge-preserving smoothing; Simplify: each channel to the nearest of
// eight levels; Soften: 5 x 5 binomial blur.
HGLOBAL smooth(HGLOBAL picture, ParallelFunction parallel = nullptr, void* user = nullptr);
HGLOBAL simplify(HGLOBAL picture, ParallelFunction parallel = nullptr, void* user = nullptr);
HGLOBAL soften(HGLOBAL picture, ParallelFunction parallel = nullptr, void* user = nullptr);

// The colour operations ops[0 .. count - 1] one after another from view to
// view, as flairize::HostServices::colourChain describes, the rows in bands
// through `parallel` where given. False for views that do not fit or when
// working memory cannot be had.
bool colourChain(const flairize::ColourOp* ops, unsigned count, const dib::View& source, const dib::View& output,
                 ParallelFunction parallel = nullptr, void* user = nullptr);

// The engine's services over these operations; rowTick (may be null) is
// called with `user` before every row of a render.
flairize::HostServices services(void (*rowTick)(void* user) = nullptr, void* user = nullptr);

}  // namespace hostops
