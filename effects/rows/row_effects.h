// Row functions of the row effects, by family. line1 functions read 8-bit
// sources through their colour table; line2 functions read 24- and 32-bit sources.
#pragma once

#include <cstdint>

#define FLR_ROW1(name)                                                                    \
    void name(std::uint16_t y, std::uint32_t progress, std::uint16_t width,               \
              std::uint16_t height, const std::uint8_t* const* rows, std::uint8_t* out,   \
              const std::uint8_t* colourTable)
#define FLR_ROW2(name)                                                                    \
    void name(std::uint16_t y, std::uint32_t progress, std::uint16_t width,               \
              std::uint16_t height, const std::uint8_t* const* rows, std::uint8_t* out,   \
              std::uint32_t hasAlpha)
#define FLR_ROW_PAIR(effect) FLR_ROW1(effect##Line1); FLR_ROW2(effect##Line2)

// Effects that are catalogued but do no pixel work.
FLR_ROW1(EmptyRow);
FLR_ROW2(EmptyRow);

// Tone
FLR_ROW_PAIR(Solarize);
FLR_ROW_PAIR(Posterize);
FLR_ROW_PAIR(LensFlare);

// Edges
int EdgeBuffersInit(std::uint16_t width, std::uint16_t height, std::uint16_t bytesPerPixel);
void EdgeBuffersDone();
FLR_ROW_PAIR(FindEdges);
FLR_ROW_PAIR(Contours);
FLR_ROW_PAIR(Charcoal);

// Painterly
FLR_ROW_PAIR(DarkStrokes);
FLR_ROW_PAIR(Fresco);
FLR_ROW_PAIR(Stamp);

// Displacement
FLR_ROW_PAIR(Shake);
FLR_ROW_PAIR(Frazzle);
FLR_ROW_PAIR(Reflection);
FLR_ROW_PAIR(Kaleidoscope);

// Blurs
FLR_ROW_PAIR(MotionBlur);
FLR_ROW_PAIR(CenterBlur);
FLR_ROW_PAIR(RadialBlur);

// Blocks
FLR_ROW_PAIR(Mosaic);
FLR_ROW_PAIR(Sampler);
FLR_ROW_PAIR(Crosshair);
