// The types of the effect table and the contract between the engine and the
// effects: one record per effect, in index order, that ties the effect's name,
// sliders, flags and what the front ends show of it to its functions. The
// table itself is the catalogue (effects/catalogue.cpp): adding an effect takes
// its family file, one record there and its name in the strings.
#pragma once

#include <cstdint>

#include "engine/dib.h"
#include "engine/flairize.h"
#include "platform/random.h"
#include "platform/win_types.h"

struct EffectTable;

// One call of a filter: the pictures as views, the render values and the
// host's services. The filter writes the output view and returns no picture;
// only where the output view is a picture's own pixels may a filter hand back
// another picture to take that picture's place (the composite effects hand on
// the host operation's result as the host made it).
struct FilterCall {
    const flairize::HostServices& host;
    const dib::View& source;    // 8-, 24- or 32-bit, checked
    const dib::View& output;    // the source's size, 32-bit for a 32-bit source and 24-bit otherwise
    bool outputCleared;         // every output byte is 0 (a new picture): rows need no clearing
    const EffectTable& table;   // the table the effect was found in
    std::uint16_t effect;       // its index there
    std::uint32_t progress;     // 0..16384
    std::uint16_t p1, p2, p3;   // 0..255
    std::uint32_t colour;       // COLORREF
    // The row driver blends each row with the source by the progress (the
    // host's mixRow) as soon as it is written.
    bool mixRows = false;
};

// A filter renders a whole picture into its output: Ok, or why not.
using FilterFunction = flairize::Result (*)(const FilterCall& call);

// What the row driver hands a row effect. The frame is built before the first
// row (the init function may add to it) and only read while rows run; the
// carry holds what a row leaves for the next one, for effects whose rows
// depend on the rows below them.
struct Frame {
    const std::uint8_t* const* rows;   // source row y (0 = bottom row)
    const std::uint8_t* colourTable;   // 8-bit sources: 256 entries of blue, green, red, reserved
    std::uint16_t width, height;
    bool hasAlpha;                     // 32-bit source: 4-byte pixels whose fourth byte is the mask
    std::uint32_t progress;            // 0..16384
    std::uint16_t p1, p2, p3;          // 0..255
    std::uint32_t colour;              // COLORREF
    std::uint8_t table[256];           // a lookup the init function may build
};
struct Carry {
    HGLOBAL lineBlock[2];              // the edge effects' two line buffers
    std::uint8_t* line[2];
    HGLOBAL lookupBlock;               // values per row or column an init function works out
    const std::int32_t* lookup;        // (Reflection's shifts, Kaleidoscope's diagonal rows)
};
// Prepares the frame and the carry before the first row; false when its memory cannot be had.
using InitFunction = bool (*)(Frame& frame, Carry& carry);
// Writes output row y: 3 bytes a pixel (blue, green, red), or 4 with the mask for a 32-bit source.
using RowFunction = void (*)(const Frame& frame, Carry& carry, std::uint16_t y, std::uint8_t* out);
using DoneFunction = void (*)(Carry& carry);
// Fills a fresh carry (after init) as the rows 0 .. y - 1 would leave it, from
// the source alone, so that rows y, y + 1, ... can run on their own.
using BandStartFunction = void (*)(const Frame& frame, Carry& carry, std::uint16_t y);
// Writes columns x0 .. x1 - 1 of output row y (`out` is the row's first pixel)
// and the row's carried values there, one byte a column, into `own`, reading
// `below`, the carried values of row y - 1 (255 throughout below row 0, and
// in column `width` of every row). Such a row reads the row below only near
// its own columns and its own row only on one side of them (see PartOrder),
// so the driver can run tiles of rows and columns on threads.
using RowPartFunction = void (*)(const Frame& frame, std::uint16_t y, unsigned x0, unsigned x1,
                                 const std::uint8_t* below, std::uint8_t* own, std::uint8_t* out);
// Which tiles a tile of rows and columns waits for, besides the one below it.
enum class PartOrder : std::uint8_t {
    LeftFirst,    // a part reads its own row left of x0 and the row below in x0 .. x1 - 1
    RightFirst,   // a part reads the row below in x0 .. x1 + 1, and nothing else of its own row
};

constexpr std::uint16_t kFlagMix = 1;      // mix the filter's result with the source by progress
constexpr std::uint16_t kFlagColour = 2;   // the effect paints with the record's colour

// What a front end shows of one slider, and its value for a new use of the effect.
struct SliderRecord {
    std::uint16_t labelId = 0;        // string id of the label; 0 hides the slider
    std::uint16_t defaultValue = 0;
    std::uint16_t minimum = 0, maximum = 0;   // the values it offers (larger ones act as the maximum)
    const char* option = "";          // the command's option without dashes: "angle"
    const char* unit = "";            // "" or the unit of one step in words
    const char* meaning = "";         // what it does, in the effect's own terms
};

// The group a front end lists the effect under.
enum class EffectCategory : std::uint8_t { Artistic, Blur, Distort, Stylize, Texture };

struct EffectRecord {
    std::uint16_t nameId;       // string id of the name; a leading "*" keeps it out of the editor
    std::uint16_t index;
    std::uint16_t flags;
    FilterFunction filter;
    // Row effects (filter: the row driver). line1 serves 8-bit sources, line2
    // 24- and 32-bit ones; init and done bracket the rows of one render.
    InitFunction init;
    RowFunction line1;
    RowFunction line2;
    DoneFunction done;
    bool independentRows;       // rows read only the frame and the source: any order, any thread
    SliderRecord sliders[3];
    const void* data;           // the family's own data for this effect (texture, shapes, chain)
    // Rows that carry values to the next row but can start anywhere: with it
    // the driver runs bands on threads, each with its own carry.
    BandStartFunction bandStart;
    bool writesWholeRows = false;   // line2 writes every pixel byte of its row: a view's rows need no clearing
    // Rows that run in order on one thread, whose parts (the same bytes as
    // line1 and line2 write) the driver can run in tiles on the host's threads.
    RowPartFunction rowPart = nullptr;
    PartOrder partOrder = PartOrder::LeftFirst;
    // What the front ends show of the effect.
    const char* slug = "";          // the name to type: lower case with dashes, "find-edges"
    const char* description = "";   // one line: what the effect does
    EffectCategory category = EffectCategory::Stylize;
    bool offered = false;           // listed by the editor (the name has no leading "*")
    // The row function written plainly as the algorithm reads, serving 8-bit
    // and 24-/32-bit sources alike (effects/plain): the tests render with it
    // in place of line1 and line2. Null where the effect has none.
    RowFunction plain = nullptr;
};

struct EffectTable {
    const EffectRecord* records;   // `count` records, then one of zeros
    unsigned count;
};

// Row effects are rendered by the row driver; the whole-picture filters by
// family (effects/effects.h).
flairize::Result rowDriver(const FilterCall& call);

// A composite effect runs another effect's filter at a fixed progress.
struct InnerEffect {
    std::uint16_t effect;
    std::uint32_t progress;
};

namespace flairize {
// render() and renderInto() with a given table: the catalogue's, or another of
// the same effects (the plain forms, for the tests).
Result renderWith(const EffectTable& table, const HostServices& host, HGLOBAL source, const Settings& settings,
                  Mix mix);
Result renderIntoWith(const EffectTable& table, const HostServices& host, const PictureView& source,
                      const Settings& settings, Mix mix, const PictureView& output);
}  // namespace flairize

// Blends every row of `picture` with the same row of `first` by the host's
// mixRow (which must be set), in bands where the host offers threads.
void blendRows(const flairize::HostServices& host, const dib::Source& first, const dib::View& picture,
               std::uint32_t weight);

// Results of a filter.
inline flairize::Result resultOk(HGLOBAL picture) { return {picture, flairize::Status::Ok, 0}; }
inline flairize::Result resultRefused() { return {nullptr, flairize::Status::Refused, 0}; }
flairize::Result resultOutOfMemory();
