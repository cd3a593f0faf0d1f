// The effect table: one record per effect, in index order, then a terminating
// record of zeros. It ties each effect to its name, sliders, flags and functions.
#pragma once

#include <cstdint>

#include "platform/win_types.h"

using FilterFunction = HGLOBAL(FLR_STDCALL*)(std::uint16_t effect, HGLOBAL source,
                                             std::uint32_t progress, std::uint16_t p1,
                                             std::uint16_t p2, std::uint16_t p3);
using InitFunction = int (*)(std::uint16_t width, std::uint16_t height, std::uint16_t bytesPerPixel);
// Row functions: line1 serves 8-bit sources (seventh argument: the colour table),
// line2 serves 24- and 32-bit sources (seventh argument: 1 when the source has alpha).
using RowFunction1 = void (*)(std::uint16_t y, std::uint32_t progress, std::uint16_t width,
                              std::uint16_t height, const std::uint8_t* const* rows,
                              std::uint8_t* out, const std::uint8_t* colourTable);
using RowFunction2 = void (*)(std::uint16_t y, std::uint32_t progress, std::uint16_t width,
                              std::uint16_t height, const std::uint8_t* const* rows,
                              std::uint8_t* out, std::uint32_t hasAlpha);
using DoneFunction = void (*)();

constexpr std::uint16_t kFlagMix = 1;      // mix the filter's result with the source by progress
constexpr std::uint16_t kFlagColour = 2;   // the effect paints with the record's colour

struct EffectRecord {
    std::uint16_t nameId;
    std::uint16_t index;
    std::uint16_t flags;
    std::uint16_t listPosition;   // written by the editor while its dialog is open
    FilterFunction filter;
    InitFunction init;
    RowFunction1 line1;
    RowFunction2 line2;
    DoneFunction done;
    std::uint16_t reserved5;
    std::uint16_t labelIds[3];
    std::uint16_t defaults[3];
};

constexpr unsigned kEffectCount = 38;
extern EffectRecord g_effectTable[kEffectCount + 1];

// The record of effect `index`, or null for an index outside the table.
inline EffectRecord* effectRecord(unsigned index) {
    return index < kEffectCount ? &g_effectTable[index] : nullptr;
}
