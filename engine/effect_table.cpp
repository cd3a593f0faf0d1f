// The 38 effect records in index order, then the terminating record.
#include "engine/effect_table.h"

#include "effects/rows/row_effects.h"
#include "engine/filters.h"
#include "resources/string_ids.h"

namespace {

constexpr std::uint16_t N(unsigned index) { return static_cast<std::uint16_t>(ids::kFirstEffectName + index); }

// A row effect run by the row driver.
constexpr EffectRecord rowEffect(unsigned index, std::uint16_t flags, RowFunction1 line1,
                                 RowFunction2 line2, InitFunction init = nullptr,
                                 DoneFunction done = nullptr, std::uint16_t label1 = 0,
                                 std::uint16_t label2 = 0, std::uint16_t default1 = 0,
                                 std::uint16_t default2 = 0) {
    return EffectRecord{N(index), std::uint16_t(index), flags, 0, FLR_LineFilter, init, line1, line2,
                        done, 5, {label1, label2, 0}, {default1, default2, 0}};
}

// An effect with a whole-picture filter of its own.
constexpr EffectRecord imageEffect(unsigned index, std::uint16_t flags, FilterFunction filter,
                                   std::uint16_t label1 = 0, std::uint16_t label2 = 0,
                                   std::uint16_t default1 = 0, std::uint16_t default2 = 0) {
    return EffectRecord{N(index), std::uint16_t(index), flags, 0, filter, nullptr, nullptr, nullptr,
                        nullptr, 5, {label1, label2, 0}, {default1, default2, 0}};
}

constexpr std::uint16_t M = kFlagMix, MC = kFlagMix | kFlagColour;
using namespace ids;

}  // namespace

// Records whose functions are null are refused by the render path (result 0).
EffectRecord g_effectTable[kEffectCount + 1] = {
    rowEffect(0, M, EmptyRow, EmptyRow),                       // *Color Halftone
    rowEffect(1, M, EmptyRow, EmptyRow),                       // *Crystallize
    rowEffect(2, M, EmptyRow, EmptyRow),                       // *Diffuse
    imageEffect(3, M, FLR_WaterColor),                         // WaterColor
    rowEffect(4, M, EmptyRow, EmptyRow),                       // *Extrude
    rowEffect(5, M, EmptyRow, EmptyRow),                       // *Facet
    rowEffect(6, MC, FindEdgesLine1, FindEdgesLine2, EdgeBuffersInit, EdgeBuffersDone),  // Find Edges
    rowEffect(7, M, EmptyRow, EmptyRow),                       // *Fragment
    rowEffect(8, M, LensFlareLine1, LensFlareLine2),           // *Lens Flare
    rowEffect(9, 0, MosaicLine1, MosaicLine2),                 // Mosaic
    imageEffect(10, MC, FLR_MeanMapFilter, kLabelNumber, kLabelRandomness, 128, 128),  // Pointillize
    rowEffect(11, M, SolarizeLine1, SolarizeLine2),            // Solarize
    imageEffect(12, M, FLR_TextureFilter),                     // Tiles
    rowEffect(13, MC, ContoursLine1, ContoursLine2, EdgeBuffersInit, EdgeBuffersDone),  // Contours
    rowEffect(14, M, ShakeLine1, ShakeLine2, nullptr, nullptr, kLabelAngle, kLabelAmount, 0, 128),  // Shake
    imageEffect(15, M, FLR_TextureFilter),                     // Bricks
    imageEffect(16, M, FLR_TextureFilter),                     // Bumps
    rowEffect(17, M, DarkStrokesLine1, DarkStrokesLine2),      // Dark Strokes
    rowEffect(18, M, FrescoLine1, FrescoLine2),                // Fresco
    rowEffect(19, MC, StampLine1, StampLine2),                 // Stamp
    rowEffect(20, M, MotionBlurLine1, MotionBlurLine2, nullptr, nullptr, kLabelAngle, 0, 0),     // Motion Blur
    rowEffect(21, M, CenterBlurLine1, CenterBlurLine2, nullptr, nullptr, kLabelAmount, 0, 128),  // Center Blur
    rowEffect(22, M, RadialBlurLine1, RadialBlurLine2),        // Radial Blur
    rowEffect(23, 0, FrazzleLine1, FrazzleLine2),              // Frazzle
    imageEffect(24, M, FLR_TextureFilter),                     // Steel Plate
    imageEffect(25, M, FLR_TextureFilter),                     // Weave
    imageEffect(26, M, FLR_Glass),                             // Glass
    imageEffect(27, MC, FLR_MeanMapFilter, kLabelNumber, kLabelRandomness, 128, 128),  // Rain
    imageEffect(28, MC, FLR_MeanMapFilter, kLabelNumber, kLabelRandomness, 128, 128),  // Triangles
    imageEffect(29, MC, FLR_MeanMapFilter, kLabelNumber, kLabelRandomness, 128, 128),  // Smudge
    rowEffect(30, 0, ReflectionLine1, ReflectionLine2, nullptr, nullptr, kLabelAmount, 0, 128),  // Reflection
    rowEffect(31, M, CharcoalLine1, CharcoalLine2, EdgeBuffersInit, EdgeBuffersDone),  // Charcoal
    rowEffect(32, M, PosterizeLine1, PosterizeLine2, nullptr, nullptr, kLabelColors, 0, 128),  // Posterize
    rowEffect(33, MC, SamplerLine1, SamplerLine2, nullptr, nullptr, kLabelSize, 0, 128),   // Sampler
    rowEffect(34, MC, CrosshairLine1, CrosshairLine2, nullptr, nullptr, kLabelSize, 0, 255),   // Crosshair
    imageEffect(35, M, ColorPencilFilter),                     // Color Pencil
    imageEffect(36, M, BubblesFilter, kLabelNumber, kLabelRandomness, 128, 0),  // *Bubbles
    rowEffect(37, 0, KaleidoscopeLine1, KaleidoscopeLine2),    // Kaleidoscope
    EffectRecord{},                                            // terminating record
};
