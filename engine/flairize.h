// The Flairize engine: renders a picture with one of the effects. Everything a
// render reads is passed in (effect, sliders, colour, progress, the host's
// services) and its outcome comes back as a value; the engine keeps no state
// between calls, so renders on different threads are independent.
//
// Pictures are packed DIBs in movable memory blocks (platform/global_memory.h):
// a BITMAPINFOHEADER, the colour table of 8-bit pictures, then the rows bottom
// first, each padded to 4 bytes. Sources of 8, 24 and 32 bits are served; the
// result is 24-bit, or 32-bit for a 32-bit source, whose fourth byte is the mask.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "engine/settings_record.h"
#include "hostapi/host_services.h"
#include "platform/win_types.h"

namespace flairize {

// ---- the effects

unsigned effectCount();
std::string effectName(unsigned effect);     // as the string table has it: "Find Edges", "*Bubbles [24]"
std::string effectSlug(unsigned effect);     // lower case with dashes, without "*" and "[...]": "find-edges"
bool effectOffered(unsigned effect);         // listed by the editor (its name has no leading "*")
unsigned offeredCount();
bool effectFadesIn(unsigned effect);         // the full render mixes the filter's result with the source
bool effectUsesColour(unsigned effect);      // the effect paints with the settings' colour
std::uint16_t sliderLabelId(unsigned effect, int slider);   // string id of slider 0..2's label; 0: not shown
std::string sliderLabel(unsigned effect, int slider);       // "" when the slider is not shown
std::uint16_t sliderDefault(unsigned effect, int slider);
// What front ends show. Every text lives as long as the program; an effect
// outside the table, or a slider that is not shown, gives "" or 0.
const char* effectDescription(unsigned effect);         // one line: what the effect does
const char* effectCategory(unsigned effect);            // "Artistic", "Blur", "Distort", "Stylize" or "Texture"
const char* sliderOption(unsigned effect, int slider);  // the command's option without dashes: "angle"
const char* sliderUnit(unsigned effect, int slider);    // "" or the unit of one step in words: "1/255 turn"
const char* sliderMeaning(unsigned effect, int slider); // what the slider does, in the effect's own terms
std::uint16_t sliderMinimum(unsigned effect, int slider);   // 0 for a shown slider
std::uint16_t sliderMaximum(unsigned effect, int slider);   // 255 for a shown slider (larger values act as 255)
std::vector<unsigned> dialogOrder();   // the offered effects in the editor's list order: by name, ignoring case

// ---- rendering

struct Settings {
    std::uint16_t effect = kDefaultEffect;
    std::uint16_t sliders[3] = {0, 0, 0};   // P1..P3, 0..255 (larger values act as 255)
    std::uint32_t colour = 0;               // COLORREF: red in the lowest byte
    std::uint32_t progress = 16384;         // 0..16384 (larger values act as 16384)
};

enum class Mix : std::uint8_t {
    None,        // the filter's own result
    Always,      // effects that fade in are mixed with the source by the progress (a frame render)
    BelowFull,   // the same except at full progress, where the result already is the filter's (the preview)
};

enum class Status : std::uint8_t {
    Ok,
    Refused,       // an effect index outside the table, or a picture the engine does not serve
    OutOfMemory,   // a picture or working memory could not be had; messageId says what to show
    MixFailed,     // the filter ran but the host's picture mix failed; picture is the unmixed result
};

struct Result {
    HGLOBAL picture = nullptr;       // a new picture that the caller owns
    Status status = Status::Refused;
    std::uint16_t messageId = 0;     // string-table id of the message for the user, 0 for none
};

Result render(const HostServices& host, HGLOBAL source, const Settings& settings, Mix mix);

// A picture in memory the caller holds: 3 bytes a pixel (blue, green, red) or 4
// (with the mask), row y (0 = top) at top + y * stride. A source is only read.
struct PictureView {
    std::uint8_t* top = nullptr;
    std::ptrdiff_t stride = 0;
    std::uint16_t width = 0, height = 0;
    std::uint8_t bytesPerPixel = 0;
};

// render() from one view into another of the same size and depth, which must
// not overlap: the output is written in place, no picture is returned. Effects
// that fade in need the host's mixRow here (without it the render is refused).
Result renderInto(const HostServices& host, const PictureView& source, const Settings& settings, Mix mix,
                  const PictureView& output);

// ---- settings records and frame timing

SettingsRecord newSettingsRecord();                      // Weave with its defaults, Forward, black
void chooseEffect(SettingsRecord& record, std::uint16_t effect);   // the effect and its slider defaults
Settings settingsOf(const SettingsRecord& record);
void encodeSettingsBlock(const SettingsRecord& record, std::uint8_t block[kSettingsBlockSize]);
SettingsRecord decodeSettingsBlock(const std::uint8_t block[kSettingsBlockSize]);

// The progress of a sequence position (0..16384): bent by the speed curve
// (-128..127; positive speeds start slowly), then mapped through the direction
// (its low two bits: Backward, Cycle, Forward, Reverse Cycle).
std::uint32_t speedCurve(std::uint32_t position, std::int8_t speed);
std::uint32_t applyDirection(std::uint32_t progress, std::uint32_t direction);
inline std::uint32_t frameProgress(std::uint32_t position, std::int8_t speed, std::uint32_t direction) {
    return applyDirection(speedCurve(position, speed), direction);
}
// Position of frame i of a sequence of n frames: i * 16384 / (n - 1); a single frame sits at the end.
std::uint32_t sequencePosition(std::uint64_t frame, std::uint64_t frames);

}  // namespace flairize
