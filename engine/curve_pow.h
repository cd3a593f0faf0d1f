// x to the power e for the speed curve, computed from plain IEEE double
// operations in double-double precision, so every platform (and every C
// runtime's pow) gives the same bits.
#pragma once

namespace timing {

// For x >= 0 and any finite e; 0 to a positive power is 0, to a power <= 0 infinite.
double curvePow(double x, double e);

}  // namespace timing
