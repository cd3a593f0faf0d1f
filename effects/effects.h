// The functions and data the effect table names, by family.
#pragma once

#include "engine/effect_table.h"

#define FLR_ROW(name) void name(const Frame& frame, Carry& carry, std::uint16_t y, std::uint8_t* out)
#define FLR_ROW_PAIR(effect) FLR_ROW(effect##Line1); FLR_ROW(effect##Line2)

// The whole-picture filters.
flairize::Result meanMapFilter(const FilterCall& call);
flairize::Result textureFilter(const FilterCall& call);
flairize::Result waterColorFilter(const FilterCall& call);
flairize::Result glassFilter(const FilterCall& call);
flairize::Result colorPencilFilter(const FilterCall& call);
flairize::Result bubblesFilter(const FilterCall& call);

// Effects that are catalogued but do no pixel work.
FLR_ROW(EmptyRow);

// Tone
bool PosterizeInit(Frame& frame, Carry& carry);
FLR_ROW_PAIR(Solarize);
FLR_ROW_PAIR(Posterize);
FLR_ROW_PAIR(LensFlare);

// Edges
bool EdgeBuffersInit(Frame& frame, Carry& carry);
void EdgeBuffersDone(Carry& carry);
void FindEdgesBandStart(const Frame& frame, Carry& carry, std::uint16_t y);
FLR_ROW_PAIR(FindEdges);
FLR_ROW_PAIR(Contours);
FLR_ROW_PAIR(Charcoal);
void ContoursPart(const Frame& frame, std::uint16_t y, unsigned x0, unsigned x1, const std::uint8_t* below,
                  std::uint8_t* own, std::uint8_t* out);
void CharcoalPart(const Frame& frame, std::uint16_t y, unsigned x0, unsigned x1, const std::uint8_t* below,
                  std::uint8_t* own, std::uint8_t* out);

// Painterly
bool PaletteKeysInit(Frame& frame, Carry& carry);
FLR_ROW_PAIR(DarkStrokes);
FLR_ROW_PAIR(Fresco);
FLR_ROW_PAIR(Stamp);

// Displacement
FLR_ROW_PAIR(Shake);
FLR_ROW_PAIR(Frazzle);
bool ReflectionInit(Frame& frame, Carry& carry);
bool KaleidoscopeInit(Frame& frame, Carry& carry);
void LookupDone(Carry& carry);   // frees the carry's lookup
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

// The plain forms (effects/plain): each serves 8-bit and 24-/32-bit sources alike.
FLR_ROW(PlainMotionBlur);
FLR_ROW(PlainCenterBlur);
FLR_ROW(PlainRadialBlur);
FLR_ROW(PlainShake);
FLR_ROW(PlainCharcoal);
FLR_ROW(PlainFindEdges);
FLR_ROW(PlainContours);
FLR_ROW(PlainDarkStrokes);
FLR_ROW(PlainFresco);
FLR_ROW(PlainStamp);

// Whole-picture effects' data: the texture of each texture effect, the pair of
// marks of each mean-map effect.
struct Texture;
extern const Texture kTilesTexture, kBricksTexture, kBumpsTexture, kSteelPlateTexture, kWeaveTexture;
struct MarkPair;
extern const MarkPair kPointillizeMarks, kRainMarks, kTrianglesMarks, kSmudgeMarks;
