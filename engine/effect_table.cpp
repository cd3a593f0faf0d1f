// The 38 effect records in index order, then the terminating record.
#include "engine/effect_table.h"

#include <iterator>

#include "effects/effects.h"
#include "resources/string_ids.h"

namespace {

constexpr std::uint16_t N(unsigned index) { return static_cast<std::uint16_t>(ids::kFirstEffectName + index); }

struct Sliders {
    std::uint16_t label1 = 0, label2 = 0, default1 = 0, default2 = 0;
};

// A row effect run by the row driver; `independent` when its rows read only
// the frame and the source, `bandStart` when they carry values from row to row
// that the source alone gives again at any row.
constexpr EffectRecord rowEffect(unsigned index, std::uint16_t flags, bool independent, RowFunction line1,
                                 RowFunction line2, InitFunction init = nullptr, DoneFunction done = nullptr,
                                 Sliders s = {}, BandStartFunction bandStart = nullptr) {
    return EffectRecord{N(index), std::uint16_t(index), flags, rowDriver, init, line1, line2, done, independent,
                        {s.label1, s.label2, 0}, {s.default1, s.default2, 0}, nullptr, bandStart};
}

// A row effect whose line2 writes every pixel byte of its row.
constexpr EffectRecord wholeRows(EffectRecord record) {
    record.writesWholeRows = true;
    return record;
}

// An effect with a whole-picture filter of its own.
constexpr EffectRecord imageEffect(unsigned index, std::uint16_t flags, FilterFunction filter, const void* data = nullptr,
                                   Sliders s = {}) {
    return EffectRecord{N(index), std::uint16_t(index), flags, filter, nullptr, nullptr, nullptr, nullptr, false,
                        {s.label1, s.label2, 0}, {s.default1, s.default2, 0}, data, nullptr};
}

constexpr std::uint16_t M = kFlagMix, MC = kFlagMix | kFlagColour;
constexpr bool kIndependent = true, kSerial = false;
constexpr Sliders kNoSliders{};
using namespace ids;
constexpr Sliders kMarks{kLabelNumber, kLabelRandomness, 128, 128};

// Glass scatters with Frazzle at a small fixed strength; Color Pencil draws Charcoal at full strength.
constexpr InnerEffect kGlassFrazzle{23, 1146};
constexpr InnerEffect kColorPencilCharcoal{31, 16384};

constexpr EffectRecord kRecords[] = {
    rowEffect(0, M, kIndependent, EmptyRow, EmptyRow),                 // *Color Halftone
    rowEffect(1, M, kIndependent, EmptyRow, EmptyRow),                 // *Crystallize
    rowEffect(2, M, kIndependent, EmptyRow, EmptyRow),                 // *Diffuse
    imageEffect(3, M, waterColorFilter),                               // WaterColor
    rowEffect(4, M, kIndependent, EmptyRow, EmptyRow),                 // *Extrude
    rowEffect(5, M, kIndependent, EmptyRow, EmptyRow),                 // *Facet
    // Find Edges carries each row's edge flags, which the source alone gives
    // again: it runs in bands, each starting from the flags of the row below.
    rowEffect(6, MC, kSerial, FindEdgesLine1, FindEdgesLine2, EdgeBuffersInit, EdgeBuffersDone, kNoSliders,
              FindEdgesBandStart),                                                                // Find Edges
    rowEffect(7, M, kIndependent, EmptyRow, EmptyRow),                 // *Fragment
    wholeRows(rowEffect(8, M, kIndependent, LensFlareLine1, LensFlareLine2)),   // *Lens Flare
    wholeRows(rowEffect(9, 0, kIndependent, MosaicLine1, MosaicLine2)),         // Mosaic
    imageEffect(10, MC, meanMapFilter, &kPointillizeMarks, kMarks),    // Pointillize
    wholeRows(rowEffect(11, M, kIndependent, SolarizeLine1, SolarizeLine2)),    // Solarize
    imageEffect(12, M, textureFilter, &kTilesTexture),                 // Tiles
    // Contours smooths each row with the smoothed row below, so a row's values
    // depend on every row under it: serial.
    rowEffect(13, MC, kSerial, ContoursLine1, ContoursLine2, EdgeBuffersInit, EdgeBuffersDone),   // Contours
    rowEffect(14, M, kIndependent, ShakeLine1, ShakeLine2, nullptr, nullptr, {kLabelAngle, kLabelAmount, 0, 128}),
    imageEffect(15, M, textureFilter, &kBricksTexture),                // Bricks
    imageEffect(16, M, textureFilter, &kBumpsTexture),                 // Bumps
    rowEffect(17, M, kIndependent, DarkStrokesLine1, DarkStrokesLine2),                          // Dark Strokes
    rowEffect(18, M, kIndependent, FrescoLine1, FrescoLine2, PaletteKeysInit),                   // Fresco
    rowEffect(19, MC, kIndependent, StampLine1, StampLine2, PaletteKeysInit),                    // Stamp
    rowEffect(20, M, kIndependent, MotionBlurLine1, MotionBlurLine2, nullptr, nullptr, {kLabelAngle, 0, 0, 0}),
    rowEffect(21, M, kIndependent, CenterBlurLine1, CenterBlurLine2, nullptr, nullptr, {kLabelAmount, 0, 128, 0}),
    rowEffect(22, M, kIndependent, RadialBlurLine1, RadialBlurLine2),                            // Radial Blur
    rowEffect(23, 0, kIndependent, FrazzleLine1, FrazzleLine2),                                       // Frazzle
    imageEffect(24, M, textureFilter, &kSteelPlateTexture),            // Steel Plate
    imageEffect(25, M, textureFilter, &kWeaveTexture),                 // Weave
    imageEffect(26, M, glassFilter, &kGlassFrazzle),                   // Glass
    imageEffect(27, MC, meanMapFilter, &kRainMarks, kMarks),           // Rain
    imageEffect(28, MC, meanMapFilter, &kTrianglesMarks, kMarks),      // Triangles
    imageEffect(29, MC, meanMapFilter, &kSmudgeMarks, kMarks),         // Smudge
    rowEffect(30, 0, kIndependent, ReflectionLine1, ReflectionLine2, ReflectionInit, LookupDone,
              {kLabelAmount, 0, 128, 0}),
    // Charcoal averages each output value with three output values of the row
    // below, so every row depends on all rows under it: serial.
    rowEffect(31, M, kSerial, CharcoalLine1, CharcoalLine2, EdgeBuffersInit, EdgeBuffersDone),   // Charcoal
    wholeRows(rowEffect(32, M, kIndependent, PosterizeLine1, PosterizeLine2, PosterizeInit, nullptr,
                        {kLabelColors, 0, 128, 0})),
    wholeRows(rowEffect(33, MC, kIndependent, SamplerLine1, SamplerLine2, nullptr, nullptr, {kLabelSize, 0, 128, 0})),
    wholeRows(rowEffect(34, MC, kIndependent, CrosshairLine1, CrosshairLine2, nullptr, nullptr,
                        {kLabelSize, 0, 255, 0})),
    imageEffect(35, M, colorPencilFilter, &kColorPencilCharcoal),      // Color Pencil
    imageEffect(36, M, bubblesFilter, nullptr, {kLabelNumber, kLabelRandomness, 128, 0}),   // *Bubbles
    rowEffect(37, 0, kIndependent, KaleidoscopeLine1, KaleidoscopeLine2, KaleidoscopeInit, LookupDone),  // Kaleidoscope
    EffectRecord{},                                                    // terminating record
};

}  // namespace

const EffectTable kEffectTable{kRecords, unsigned(std::size(kRecords) - 1)};
