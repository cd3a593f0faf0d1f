// The two steps of frame timing, usable on their own by hosts and tests.
#pragma once

#include <cstdint>

namespace timing {

std::uint32_t speedCurve(std::uint32_t position, std::int8_t speed);
std::uint32_t applyDirection(std::uint32_t progress, std::uint32_t direction);

}  // namespace timing
