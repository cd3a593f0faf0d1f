// Render settings, the settings block, the frame timing, the version and the
// statuses in words, for C.
#include <cstring>

#include "engine/flairize.h"
#include "libflairize/boundary.h"

static_assert(FLAIRIZE_BLOCK_SIZE == kSettingsBlockSize, "the block's size in the header");

namespace {

flairize_record recordOf(const SettingsRecord& r) {
    flairize_record c;
    c.effect = r.effect;
    c.progress = r.progress;
    c.param1 = r.param1, c.param2 = r.param2, c.param3 = r.param3;
    c.direction = r.direction;
    c.colour = libflairize::swapRedBlue(r.colour);
    return c;
}

SettingsRecord engineRecordOf(const flairize_record& c) {
    SettingsRecord r;
    r.effect = c.effect;
    r.progress = c.progress;
    r.param1 = c.param1, r.param2 = c.param2, r.param3 = c.param3;
    r.direction = c.direction;
    r.colour = libflairize::swapRedBlue(c.colour);
    return r;
}

}  // namespace

extern "C" {

const char* flairize_status_text(flairize_status status) {
    switch (libflairize::passedValue(status)) {
        case FLAIRIZE_OK:
            return "ok";
        case FLAIRIZE_ERROR_NULL:
            return "a pointer that must be given is null";
        case FLAIRIZE_ERROR_SIZE:
            return "width or height is 0 or more than 65535";
        case FLAIRIZE_ERROR_STRIDE:
            return "a stride is smaller than a row's bytes";
        case FLAIRIZE_ERROR_FORMAT:
            return "bytes per pixel is not 3 or 4, or the channel order is unknown";
        case FLAIRIZE_ERROR_EFFECT:
            return "no such effect";
        case FLAIRIZE_ERROR_ARGUMENT:
            return "an argument is out of range";
        case FLAIRIZE_ERROR_OUT_OF_MEMORY:
            return "out of memory";
        case FLAIRIZE_ERROR_REFUSED:
            return "the engine refused the render";
        case FLAIRIZE_ERROR_INTERNAL:
            return "an unexpected failure inside the library";
        case FLAIRIZE_STATUS_MAX_ENUM:
            break;
    }
    return "unknown status";
}

const char* flairize_version(void) { return FLAIRIZE_RELEASE; }

unsigned flairize_abi_version(void) { return FLAIRIZE_ABI_VERSION; }

flairize_status flairize_settings_init(flairize_settings* settings, unsigned effect) {
    if (!settings) return FLAIRIZE_ERROR_NULL;
    if (effect >= flairize::effectCount()) return FLAIRIZE_ERROR_EFFECT;
    settings->effect = effect;
    for (int k = 0; k < 3; ++k) settings->sliders[k] = flairize::sliderDefault(effect, k);
    settings->colour = 0;
    settings->progress = 16384;
    settings->mix = FLAIRIZE_MIX_FULL;
    return FLAIRIZE_OK;
}

uint32_t flairize_frame_progress(uint32_t position, int speed, uint32_t direction) {
    const int clamped = speed < -128 ? -128 : speed > 127 ? 127 : speed;
    return flairize::frameProgress(position > 16384 ? 16384 : position, static_cast<std::int8_t>(clamped), direction);
}

uint32_t flairize_sequence_position(uint64_t frame, uint64_t frames) {
    return flairize::sequencePosition(frame, frames);
}

flairize_status flairize_record_init(flairize_record* record, unsigned effect) {
    if (!record) return FLAIRIZE_ERROR_NULL;
    if (effect >= flairize::effectCount()) return FLAIRIZE_ERROR_EFFECT;
    SettingsRecord r = flairize::newSettingsRecord();
    flairize::chooseEffect(r, static_cast<std::uint16_t>(effect));
    *record = recordOf(r);
    return FLAIRIZE_OK;
}

flairize_status flairize_record_read(const void* block, size_t size, flairize_record* record) {
    if (!block || !record) return FLAIRIZE_ERROR_NULL;
    if (size < kSettingsBlockSize) return FLAIRIZE_ERROR_ARGUMENT;
    std::uint8_t bytes[kSettingsBlockSize];
    std::memcpy(bytes, block, sizeof bytes);
    *record = recordOf(flairize::decodeSettingsBlock(bytes));
    return FLAIRIZE_OK;
}

flairize_status flairize_record_write(const flairize_record* record, void* block, size_t size) {
    if (!block || !record) return FLAIRIZE_ERROR_NULL;
    if (size < kSettingsBlockSize) return FLAIRIZE_ERROR_ARGUMENT;
    std::uint8_t bytes[kSettingsBlockSize];
    flairize::encodeSettingsBlock(engineRecordOf(*record), bytes);
    std::memcpy(block, bytes, sizeof bytes);
    return FLAIRIZE_OK;
}

flairize_status flairize_record_settings(const flairize_record* record, flairize_settings* settings) {
    if (!record || !settings) return FLAIRIZE_ERROR_NULL;
    if (record->effect >= flairize::effectCount()) return FLAIRIZE_ERROR_EFFECT;
    const flairize::Settings s = flairize::settingsOf(engineRecordOf(*record));
    settings->effect = s.effect;
    for (int k = 0; k < 3; ++k) settings->sliders[k] = s.sliders[k];
    settings->colour = libflairize::swapRedBlue(s.colour);
    settings->progress = s.progress;
    settings->mix = FLAIRIZE_MIX_FULL;
    return FLAIRIZE_OK;
}

}  // extern "C"
