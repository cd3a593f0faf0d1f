// The catalogue: the 38 effect records in index order, then the terminating
// record. Each record is the one place that describes its effect: its name and
// the name to type, what it does, its sliders and what they do, its flags, its
// functions and their plain forms.
#include "effects/catalogue.h"

#include <iterator>

#include "effects/effects.h"
#include "resources/string_ids.h"

namespace {

using namespace ids;
using C = EffectCategory;
constexpr std::uint16_t M = kFlagMix, MC = kFlagMix | kFlagColour;
constexpr bool kIndependent = true, kSerial = false;

// A shown slider: 0..255 as the editor offers it.
constexpr SliderRecord slider(std::uint16_t labelId, const char* option, std::uint16_t defaultValue,
                              const char* meaning, const char* unit = "") {
    return SliderRecord{labelId, defaultValue, 0, 255, option, unit, meaning};
}

// One record, built up field by field.
struct Effect {
    EffectRecord r{};

    constexpr Effect(unsigned index, const char* slug, EffectCategory category, const char* description) {
        r.nameId = static_cast<std::uint16_t>(kFirstEffectName + index);
        r.index = static_cast<std::uint16_t>(index);
        r.slug = slug;
        r.category = category;
        r.description = description;
        r.offered = true;
    }
    // Not in the editor's list (its name starts with "*").
    constexpr Effect hidden() const {
        Effect e = *this;
        e.r.offered = false;
        return e;
    }
    // A row effect run by the row driver; `independent` when its rows read
    // only the frame and the source.
    constexpr Effect rows(std::uint16_t flags, bool independent, RowFunction line1, RowFunction line2) const {
        Effect e = *this;
        e.r.flags = flags;
        e.r.filter = rowDriver;
        e.r.independentRows = independent;
        e.r.line1 = line1;
        e.r.line2 = line2;
        return e;
    }
    constexpr Effect initDone(InitFunction init, DoneFunction done = nullptr) const {
        Effect e = *this;
        e.r.init = init;
        e.r.done = done;
        return e;
    }
    // Rows that carry values from row to row, which the source alone gives again at any row.
    constexpr Effect bands(BandStartFunction bandStart) const {
        Effect e = *this;
        e.r.bandStart = bandStart;
        return e;
    }
    // line2 writes every pixel byte of its row.
    constexpr Effect wholeRows() const {
        Effect e = *this;
        e.r.writesWholeRows = true;
        return e;
    }
    // An effect with a whole-picture filter of its own.
    constexpr Effect picture(std::uint16_t flags, FilterFunction filter, const void* data = nullptr) const {
        Effect e = *this;
        e.r.flags = flags;
        e.r.filter = filter;
        e.r.data = data;
        return e;
    }
    constexpr Effect withSlider(int k, SliderRecord s) const {
        Effect e = *this;
        e.r.sliders[k] = s;
        return e;
    }
    // Rows in order whose parts can also run in tiles of rows and columns.
    constexpr Effect parts(RowPartFunction part, PartOrder order) const {
        Effect e = *this;
        e.r.rowPart = part;
        e.r.partOrder = order;
        return e;
    }
    constexpr Effect plainForm(RowFunction plain) const {
        Effect e = *this;
        e.r.plain = plain;
        return e;
    }
    constexpr operator EffectRecord() const { return r; }
};

constexpr const char* kPlaceholder = "Not offered: renders no picture of its own.";
constexpr const char* kTurn = "1/255 turn";

// The mean-map effects' sliders (Bubbles' are its own: it lays bubbles, not marks).
constexpr SliderRecord kMarkNumber =
    slider(kLabelNumber, "number", 128,
           "how close the marks lie: one every (255 - Number) / 16 + 2 pixels, so 17 at 0, 9 at 128, 2 at 255");
constexpr SliderRecord kMarkRandomness =
    slider(kLabelRandomness, "randomness", 128,
           "how far each mark may stray from its place on the grid: up to Randomness / 16 pixels each way "
           "(none below 16, 15 at 255)");

// Glass scatters with Frazzle at a small fixed strength; Color Pencil draws Charcoal at full strength.
constexpr InnerEffect kGlassFrazzle{23, 1146};
constexpr InnerEffect kColorPencilCharcoal{31, 16384};

constexpr EffectRecord kRecords[] = {
    Effect(0, "color-halftone", C::Stylize, kPlaceholder).hidden().rows(M, kIndependent, EmptyRow, EmptyRow),
    Effect(1, "crystallize", C::Stylize, kPlaceholder).hidden().rows(M, kIndependent, EmptyRow, EmptyRow),
    Effect(2, "diffuse", C::Stylize, kPlaceholder).hidden().rows(M, kIndependent, EmptyRow, EmptyRow),
    Effect(3, "watercolor", C::Artistic,
           "Smooths the flat areas while keeping the edges, then reduces the colours to a few levels, twice: "
           "flat washes of colour like a watercolour.")
        .picture(M, waterColorFilter),
    Effect(4, "extrude", C::Stylize, kPlaceholder).hidden().rows(M, kIndependent, EmptyRow, EmptyRow),
    Effect(5, "facet", C::Stylize, kPlaceholder).hidden().rows(M, kIndependent, EmptyRow, EmptyRow),
    // Find Edges carries each row's edge flags, which the source alone gives
    // again: it runs in bands, each starting from the flags of the row below.
    Effect(6, "find-edges", C::Stylize,
           "Keeps the source colours only at and beside the picture's dark edges and paints everything else with "
           "the colour.")
        .rows(MC, kSerial, FindEdgesLine1, FindEdgesLine2)
        .initDone(EdgeBuffersInit, EdgeBuffersDone)
        .bands(FindEdgesBandStart)
        .plainForm(PlainFindEdges),
    Effect(7, "fragment", C::Stylize, kPlaceholder).hidden().rows(M, kIndependent, EmptyRow, EmptyRow),
    Effect(8, "lens-flare", C::Distort,
           "Not offered: zooms the picture about its centre as the progress rises; renders nothing for an 8-bit "
           "picture.")
        .hidden()
        .rows(M, kIndependent, LensFlareLine1, LensFlareLine2)
        .wholeRows(),
    Effect(9, "mosaic", C::Stylize,
           "Divides the picture into square blocks that grow with the progress, up to 17 pixels, each the colour "
           "of its bottom-left pixel.")
        .rows(0, kIndependent, MosaicLine1, MosaicLine2)
        .wholeRows(),
    Effect(10, "pointillize", C::Artistic,
           "Repaints the picture as dots of its average colours laid on a grid over a background of the colour.")
        .picture(MC, meanMapFilter, &kPointillizeMarks)
        .withSlider(0, kMarkNumber)
        .withSlider(1, kMarkRandomness),
    Effect(11, "solarize", C::Stylize,
           "Inverts the pixels brighter than a threshold that falls as the progress rises, until every pixel is "
           "inverted.")
        .rows(M, kIndependent, SolarizeLine1, SolarizeLine2)
        .wholeRows(),
    Effect(12, "tiles", C::Texture, "Embosses square tiles with dark grout lines into the picture.")
        .picture(M, textureFilter, &kTilesTexture),
    // Contours smooths each row with the smoothed row below, so a row's values
    // depend on every row under it: serial, or in tiles that wait for the
    // tiles left of and below them.
    Effect(13, "contours", C::Stylize,
           "Keeps the source colours along lines where the brightness crosses a step of 32 levels, like the "
           "contour lines of a map, and paints everything else with the colour.")
        .rows(MC, kSerial, ContoursLine1, ContoursLine2)
        .initDone(EdgeBuffersInit, EdgeBuffersDone)
        .parts(ContoursPart, PartOrder::LeftFirst)
        .plainForm(PlainContours),
    Effect(14, "shake", C::Blur,
           "Smears the picture along one direction, where the smear is dark, as if the camera shook.")
        .rows(M, kIndependent, ShakeLine1, ShakeLine2)
        .withSlider(0, slider(kLabelAngle, "angle", 0,
                              "the direction of the smear: 0..255 is one turn (0 up, 64 right, 128 down, 192 left)",
                              kTurn))
        .withSlider(1, slider(kLabelAmount, "amount", 128,
                              "the length of the smear at full progress: Amount / 8 steps, so none below 8, 16 at "
                              "128, 31 at 255"))
        .plainForm(PlainShake),
    Effect(15, "bricks", C::Texture, "Embosses a brick wall with dark mortar lines into the picture.")
        .picture(M, textureFilter, &kBricksTexture),
    Effect(16, "bumps", C::Texture, "Embosses a grid of rounded bumps into the picture.")
        .picture(M, textureFilter, &kBumpsTexture),
    Effect(17, "dark-strokes", C::Artistic,
           "Pushes every pixel away from middle grey by its brightness, more as the progress rises: light parts "
           "grow lighter, dark parts darker.")
        .rows(M, kIndependent, DarkStrokesLine1, DarkStrokesLine2)
        .plainForm(PlainDarkStrokes),
    Effect(18, "fresco", C::Artistic,
           "Gives each pixel a coarse colour (four levels a channel) picked by brightness from its 3 x 3 "
           "neighbours, like a fresco painting.")
        .rows(M, kIndependent, FrescoLine1, FrescoLine2)
        .initDone(PaletteKeysInit)
        .plainForm(PlainFresco),
    Effect(19, "stamp", C::Artistic,
           "Turns the picture into two tones, the colour and its inverse, by the brightness around each pixel, "
           "like a rubber stamp.")
        .rows(MC, kIndependent, StampLine1, StampLine2)
        .initDone(PaletteKeysInit)
        .plainForm(PlainStamp),
    Effect(20, "motion-blur", C::Blur,
           "Blurs the picture along one direction, as if it moved while it was taken; longer as the progress "
           "rises.")
        .rows(M, kIndependent, MotionBlurLine1, MotionBlurLine2)
        .withSlider(0, slider(kLabelAngle, "angle", 0,
                              "the direction of the blur: 0..255 is one turn (0 up, 64 right, 128 down, 192 left)",
                              kTurn))
        .plainForm(PlainMotionBlur),
    Effect(21, "center-blur", C::Blur,
           "Blurs each pixel outward along the line from the picture's centre, as if zooming in; longer as the "
           "progress rises.")
        .rows(M, kIndependent, CenterBlurLine1, CenterBlurLine2)
        .withSlider(0, slider(kLabelAmount, "amount", 128,
                              "the length of the blur at full progress: Amount / 8 samples, so none below 8, 16 "
                              "at 128, 31 at 255"))
        .plainForm(PlainCenterBlur),
    Effect(22, "radial-blur", C::Blur,
           "Blurs each pixel across the line from the picture's centre, so that the picture seems to spin about "
           "it.")
        .rows(M, kIndependent, RadialBlurLine1, RadialBlurLine2)
        .plainForm(PlainRadialBlur),
    Effect(23, "frazzle", C::Distort,
           "Scatters the pixels at random, farther as the progress rises, up to half the picture's size.")
        .rows(0, kIndependent, FrazzleLine1, FrazzleLine2),
    Effect(24, "steel-plate", C::Texture, "Embosses the fine diamond pattern of a steel tread plate into the picture.")
        .picture(M, textureFilter, &kSteelPlateTexture),
    Effect(25, "weave", C::Texture, "Embosses a woven pattern of dark threads into the picture.")
        .picture(M, textureFilter, &kWeaveTexture),
    Effect(26, "glass", C::Distort,
           "Scatters the pixels a short random distance and softens the result, as if seen through frosted "
           "glass.")
        .picture(M, glassFilter, &kGlassFrazzle),
    Effect(27, "rain", C::Artistic,
           "Repaints the picture as short slanting streaks of its average colours laid on a grid over a "
           "background of the colour.")
        .picture(MC, meanMapFilter, &kRainMarks)
        .withSlider(0, kMarkNumber)
        .withSlider(1, kMarkRandomness),
    Effect(28, "triangles", C::Artistic,
           "Repaints the picture as triangles of its average colours laid on a grid over a background of the "
           "colour.")
        .picture(MC, meanMapFilter, &kTrianglesMarks)
        .withSlider(0, kMarkNumber)
        .withSlider(1, kMarkRandomness),
    Effect(29, "smudge", C::Artistic,
           "Repaints the picture as smudges of its average colours laid on a grid over a background of the "
           "colour.")
        .picture(MC, meanMapFilter, &kSmudgeMarks)
        .withSlider(0, kMarkNumber)
        .withSlider(1, kMarkRandomness),
    Effect(30, "reflection", C::Distort,
           "Shifts each row sideways by a random wave, like a reflection on rippling water; more as the "
           "progress rises.")
        .rows(0, kIndependent, ReflectionLine1, ReflectionLine2)
        .initDone(ReflectionInit, LookupDone)
        .withSlider(0, slider(kLabelAmount, "amount", 128,
                              "how far each row's wave may move from the last row's: Amount / 16 pixels, so none "
                              "below 16, 8 at 128, 15 at 255")),
    // Charcoal averages each output value with three output values of the row
    // below, so every row depends on all rows under it: serial, or in tiles
    // that wait for the tiles right of, below and below right of them.
    Effect(31, "charcoal", C::Artistic,
           "Draws the picture's dark detail as slanting grey strokes on white, like a charcoal drawing.")
        .rows(M, kSerial, CharcoalLine1, CharcoalLine2)
        .initDone(EdgeBuffersInit, EdgeBuffersDone)
        .parts(CharcoalPart, PartOrder::RightFirst)
        .plainForm(PlainCharcoal),
    Effect(32, "posterize", C::Stylize, "Reduces each colour channel to a few levels, like a poster print.")
        .rows(M, kIndependent, PosterizeLine1, PosterizeLine2)
        .initDone(PosterizeInit)
        .wholeRows()
        .withSlider(0, slider(kLabelColors, "colors", 128,
                              "how many levels each channel keeps: Colors / 16 + 2, so 2..17; 10 at 128")),
    Effect(33, "sampler", C::Stylize,
           "Lays a grid of square cells over the picture that shows the source only on a thin ring inside each "
           "cell and the colour everywhere else.")
        .rows(MC, kIndependent, SamplerLine1, SamplerLine2)
        .wholeRows()
        .withSlider(0, slider(kLabelSize, "size", 128,
                              "the cell size: Size / 16 + 1 pixels, so 1..16, 9 at 128; below 16 the whole "
                              "picture is the colour")),
    Effect(34, "crosshair", C::Stylize,
           "Shows the picture through a round opening in the middle, crossed by two lines, and paints everything "
           "else with the colour.")
        .rows(MC, kIndependent, CrosshairLine1, CrosshairLine2)
        .wholeRows()
        .withSlider(0, slider(kLabelSize, "size", 255,
                              "the size of the opening: its radius is half the shorter side times the square "
                              "root of Size / 255, so 255 fills the shorter side and 0 leaves only the colour")),
    Effect(35, "color-pencil", C::Artistic,
           "Mixes a charcoal drawing of the picture half and half with the picture, like a colour pencil "
           "sketch.")
        .picture(M, colorPencilFilter, &kColorPencilCharcoal),
    Effect(36, "bubbles", C::Distort, "Not offered: lays a grid of small magnifying bubbles over the picture.")
        .hidden()
        .picture(M, bubblesFilter)
        .withSlider(0, slider(kLabelNumber, "number", 128,
                              "how close the bubbles lie: one every (255 - Number) / 16 + 2 pixels, so 17 at 0, "
                              "9 at 128, 2 at 255"))
        .withSlider(1, slider(kLabelRandomness, "randomness", 0,
                              "how far each bubble may stray from its place on the grid: up to Randomness / 16 "
                              "pixels each way (none below 16, 15 at 255)")),
    Effect(37, "kaleidoscope", C::Distort,
           "Folds the picture into mirrored quarters, each mirrored again across its diagonal, like a "
           "kaleidoscope; further as the progress rises.")
        .rows(0, kIndependent, KaleidoscopeLine1, KaleidoscopeLine2)
        .initDone(KaleidoscopeInit, LookupDone),
    EffectRecord{},   // terminating record
};

}  // namespace

const EffectTable kEffectTable{kRecords, unsigned(std::size(kRecords) - 1)};
