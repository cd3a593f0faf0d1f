// The engine's entry points for JavaScript (the web editor and its tests),
// compiled to WebAssembly. Pictures cross as packed rows, top first, 3 bytes a
// pixel (blue, green, red) or 4 (with the mask); the engine renders from one
// buffer into the other, bit for bit as `flairize render` renders a picture.
#include <emscripten/emscripten.h>

#include <cstdint>
#include <cstring>
#include <string>

#include "engine/dib.h"
#include "engine/flairize.h"
#include "platform/global_memory.h"
#include "hostops/host_ops.h"
#include "platform/strings.h"
#include "resources/string_ids.h"

namespace {

std::string quoted(const std::string& s) {
    std::string out = "\"";
    for (char c : s) {
        if (c == '"' || c == '\\') out += '\\';
        out += c;
    }
    return out + "\"";
}

std::string lastMessage;

}  // namespace

extern "C" {

// Everything the page shows of the effects, as JSON: every effect by index
// with what it does and its sliders, the dialog's list order of the offered
// ones, and the direction names.
EMSCRIPTEN_KEEPALIVE const char* fz_catalog() {
    static std::string json;
    if (!json.empty()) return json.c_str();
    // One array of three, a value per slider.
    auto perSlider = [](unsigned e, auto value) {
        std::string a = "[";
        for (int k = 0; k < 3; ++k) a += (k ? "," : "") + value(e, k);
        return a + "]";
    };
    auto text = [](const char* (*field)(unsigned, int)) {
        return [field](unsigned e, int k) { return quoted(field(e, k)); };
    };
    json = "{\"effects\":[";
    for (unsigned e = 0; e < flairize::effectCount(); ++e) {
        json += e ? "," : "";
        json += "{\"index\":" + std::to_string(e) + ",\"name\":" + quoted(flairize::effectName(e)) +
                ",\"slug\":" + quoted(flairize::effectSlug(e)) +
                ",\"description\":" + quoted(flairize::effectDescription(e)) +
                ",\"category\":" + quoted(flairize::effectCategory(e)) +
                ",\"offered\":" + (flairize::effectOffered(e) ? "true" : "false") +
                ",\"fadesIn\":" + (flairize::effectFadesIn(e) ? "true" : "false") +
                ",\"usesColour\":" + (flairize::effectUsesColour(e) ? "true" : "false") +
                ",\"labels\":" + perSlider(e, [](unsigned i, int k) { return quoted(flairize::sliderLabel(i, k)); }) +
                ",\"defaults\":" +
                perSlider(e, [](unsigned i, int k) { return std::to_string(flairize::sliderDefault(i, k)); }) +
                ",\"options\":" + perSlider(e, text(flairize::sliderOption)) +
                ",\"units\":" + perSlider(e, text(flairize::sliderUnit)) +
                ",\"meanings\":" + perSlider(e, text(flairize::sliderMeaning)) + ",\"ranges\":" +
                perSlider(e, [](unsigned i, int k) {
                    return "[" + std::to_string(flairize::sliderMinimum(i, k)) + "," +
                           std::to_string(flairize::sliderMaximum(i, k)) + "]";
                }) +
                "}";
    }
    json += "],\"list\":[";
    bool first = true;
    for (unsigned effect : flairize::dialogOrder()) {
        json += (first ? "" : ",") + std::to_string(effect);
        first = false;
    }
    json += "],\"directions\":[";
    for (unsigned d = 0; d < 4; ++d) json += (d ? "," : "") + quoted(plat::loadString(ids::kFirstDirection + d));
    json += "],\"defaultEffect\":" + std::to_string(kDefaultEffect) + "}";
    return json.c_str();
}

// Renders the picture at `source` (width x height, bytesPerPixel 3 or 4) into
// `output` (the same size and depth, not overlapping it) with the frame
// render's progress mix, the engine working in the two buffers themselves.
// 0: done; otherwise the output holds no result and fz_message() says why.
// `mix` 0 writes the filter's own result, as `flairize render --filter-only`.
EMSCRIPTEN_KEEPALIVE int fz_render_mix(const std::uint8_t* source, int width, int height, int bytesPerPixel,
                                       int effect, int p1, int p2, int p3, std::uint32_t colour,
                                       std::uint32_t progress, int mix, std::uint8_t* output) {
    lastMessage.clear();
    if (width < 1 || height < 1 || width > 32767 || height > 32767 || (bytesPerPixel != 3 && bytesPerPixel != 4) ||
        effect < 0 || unsigned(effect) >= flairize::effectCount() || !source || !output) {
        lastMessage = "the picture or the effect is not one the engine serves";
        return 1;
    }
    const std::ptrdiff_t row = std::ptrdiff_t(width) * bytesPerPixel;
    const flairize::PictureView in{const_cast<std::uint8_t*>(source), row, std::uint16_t(width),
                                   std::uint16_t(height), std::uint8_t(bytesPerPixel)};
    const flairize::PictureView out{output, row, std::uint16_t(width), std::uint16_t(height),
                                    std::uint8_t(bytesPerPixel)};

    flairize::Settings settings;
    settings.effect = std::uint16_t(effect);
    const int p[3] = {p1, p2, p3};
    for (int k = 0; k < 3; ++k) settings.sliders[k] = std::uint16_t(p[k] < 0 ? 0 : p[k] > 65535 ? 65535 : p[k]);
    settings.colour = colour;
    settings.progress = progress;
    const flairize::Result r = flairize::renderInto(hostops::services(), in, settings,
                                                    mix ? flairize::Mix::Always : flairize::Mix::None, out);
    if (r.status == flairize::Status::Ok) return 0;
    if (r.status == flairize::Status::OutOfMemory) {
        lastMessage = plat::loadString(ids::kNoMemory);
        return 2;
    }
    lastMessage = r.messageId ? plat::loadString(r.messageId) : "the picture cannot be rendered";
    return 3;
}

EMSCRIPTEN_KEEPALIVE int fz_render(const std::uint8_t* source, int width, int height, int bytesPerPixel, int effect,
                                   int p1, int p2, int p3, std::uint32_t colour, std::uint32_t progress,
                                   std::uint8_t* output) {
    return fz_render_mix(source, width, height, bytesPerPixel, effect, p1, p2, p3, colour, progress, 1, output);
}

EMSCRIPTEN_KEEPALIVE const char* fz_message() { return lastMessage.c_str(); }

// The progress of frame `frame` of `frames` at a speed and direction, as
// `flairize timing` prints it.
EMSCRIPTEN_KEEPALIVE std::uint32_t fz_frame_progress(std::uint32_t frame, std::uint32_t frames, int speed,
                                                     std::uint32_t direction) {
    return flairize::frameProgress(flairize::sequencePosition(frame, frames), static_cast<std::int8_t>(speed),
                                   direction);
}
EMSCRIPTEN_KEEPALIVE std::uint32_t fz_sequence_position(std::uint32_t frame, std::uint32_t frames) {
    return flairize::sequencePosition(frame, frames);
}
EMSCRIPTEN_KEEPALIVE std::uint32_t fz_position_progress(std::uint32_t position, int speed, std::uint32_t direction) {
    return flairize::frameProgress(position, static_cast<std::int8_t>(speed), direction);
}

// The 20-byte settings block of a .flr file.
EMSCRIPTEN_KEEPALIVE void fz_settings_block(int effect, int p1, int p2, int p3, std::uint32_t direction,
                                            std::uint32_t colour, std::uint32_t progress, std::uint8_t* block) {
    SettingsRecord r = flairize::newSettingsRecord();
    r.effect = std::uint16_t(effect);
    r.param1 = std::uint16_t(p1), r.param2 = std::uint16_t(p2), r.param3 = std::uint16_t(p3);
    r.direction = direction;
    r.colour = colour;
    r.progress = progress;
    flairize::encodeSettingsBlock(r, block);
}

// A 20-byte settings block read back into `fields`: effect, P1, P2, P3,
// direction, colour, progress.
EMSCRIPTEN_KEEPALIVE void fz_read_settings_block(const std::uint8_t* block, std::uint32_t* fields) {
    const SettingsRecord r = flairize::decodeSettingsBlock(block);
    const std::uint32_t values[7] = {r.effect, r.param1, r.param2, r.param3, r.direction, r.colour, r.progress};
    std::memcpy(fields, values, sizeof values);
}

}  // extern "C"
