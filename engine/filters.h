// The filter functions named by the effect table. All share one contract:
// (effect index, source picture, progress 0..16384, P1, P2, P3) -> new picture or 0.
#pragma once

#include <cstdint>

#include "platform/win_types.h"

#define FLR_FILTER(name)                                                                   \
    extern "C" HGLOBAL FLR_STDCALL name(std::uint16_t effect, HGLOBAL source,              \
                                        std::uint32_t progress, std::uint16_t p1,          \
                                        std::uint16_t p2, std::uint16_t p3)

FLR_FILTER(FLR_LineFilter);      // the row driver
FLR_FILTER(FLR_MeanMapFilter);
FLR_FILTER(FLR_TextureFilter);
FLR_FILTER(FLR_WaterColor);
FLR_FILTER(FLR_Glass);
FLR_FILTER(ColorPencilFilter);
FLR_FILTER(BubblesFilter);
