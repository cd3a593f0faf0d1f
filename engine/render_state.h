// Values published for one render and read by the filters and row functions
// while it runs. One set per thread, so renders on different threads are
// independent while a single-threaded host sees exactly one set.
#pragma once

#include <cstdint>

#include "platform/win_types.h"

struct RenderState {
    void* hostContext = nullptr;
    std::uint16_t p1 = 0, p2 = 0, p3 = 0;
    std::uint32_t colour = 0;             // COLORREF, red in the lowest byte
    // Working memory of the edge effects, alive from init to done of one render.
    HGLOBAL edgeHandle[2] = {nullptr, nullptr};
    std::uint8_t* edgeBuffer[2] = {nullptr, nullptr};
    // Reflection's wave offsets, one per row-function slot.
    std::int32_t waveOffset[2] = {0, 0};
};

RenderState& renderState();

inline void publishRenderValues(std::uint16_t p1, std::uint16_t p2, std::uint16_t p3,
                                std::uint32_t colour) {
    RenderState& s = renderState();
    s.p1 = p1;
    s.p2 = p2;
    s.p3 = p3;
    s.colour = colour;
}
