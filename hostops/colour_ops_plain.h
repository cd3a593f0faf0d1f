// The colour operations written plainly, for the tests: each output pixel from
// its whole 5 x 5 window at once, beside the separable forms of colour_ops.cpp.
#pragma once

#include "engine/host_services.h"

namespace hostops {

// services() with the plain colour operations in place of the fast ones.
flairize::HostServices plainServices();

}  // namespace hostops
