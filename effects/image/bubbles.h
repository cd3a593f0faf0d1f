// The lens map of the Bubbles effect, shared with its tests.
#pragma once

#include <cstdint>

// Where output pixel (i, j) of a bubble takes its source: column x, row y,
// counted from the bubble's origin.
struct BubbleMapEntry {
    std::int32_t x;
    std::int32_t y;
};

// A W x H map, row j after row j (row 0 is the bubble's lowest row), in local
// working memory that the caller releases with plat::localFree. Null when the
// memory cannot be had or W or H is below 2.
BubbleMapEntry* MakeBubbleMap(std::int32_t w, std::int32_t h);
