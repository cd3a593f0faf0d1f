// A frei0r filter over the engine. Every plug-in is a copy of this one module,
// named flairize-<effect>.so after the effect it renders; it finds its effect
// by its own file name, and its name, description, sliders and what they do,
// colour and fade-in come from the catalogue, so a newly landed effect needs
// nothing here.
//
// Parameters, in this order:
//   the effect's shown sliders by their labels, doubles 0..1 for 0..255
//     (rounded to the nearest step; defaults are the effect's defaults / 255);
//   "Progress", 0..1 for 0..16384 (rounded; default 1, the full effect);
//   "Color" for effects that paint with a colour (each component 0..1 for 0..255);
//   "Mix" for effects that fade in: on blends the result with the source by the
//     progress (the host's render call), off gives the filter's own result.
// A frame renders on all cores unless FLAIRIZE_THREADS caps them (a host such
// as MLT may already render several frames at once).
// Frames are 32-bit pictures (bytes blue, green, red, alpha) with the top row
// first. The engine reads the host's frame where it lies and writes straight
// into the host's output frame; only a frame rendered in place (the same
// memory in and out) is copied first, into a buffer the instance keeps.
extern "C" {
#include <frei0r.h>   // declares the entry points without C linkage of its own
}

#include <dlfcn.h>

#include <cctype>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <new>
#include <string>
#include <vector>

#include "engine/flairize.h"
#include "platform/global_memory.h"
#include "hostops/host_ops.h"
#include "hostops/threads.h"
#include "platform/strings.h"
#include "resources/string_ids.h"

namespace {

// FLAIRIZE_THREADS=N caps the threads of a render; unset or not a number: all cores.
unsigned threadsAllowed() {
    const char* v = std::getenv("FLAIRIZE_THREADS");
    char* end = nullptr;
    const unsigned long n = v ? std::strtoul(v, &end, 10) : 0;
    return v && *v && !*end && n >= 1 && n <= 1024 ? unsigned(n) : 0;
}


enum class ParamKind { Slider, Progress, Colour, Mix };

struct Param {
    ParamKind kind;
    unsigned slider;   // 0..2 for ParamKind::Slider
    int type;          // F0R_PARAM_*
    std::string name;
    std::string explanation;
};

// Everything a host asks about the plug-in, built once from the effect table.
struct Description {
    bool found = false;
    unsigned effect = 0;
    std::string name;
    std::string author;
    std::string explanation;
    std::vector<Param> params;
};

// The offered effect this plug-in's file is named after: flairize-<slug>.so.
bool effectOfThisFile(unsigned& effect) {
    Dl_info info{};
    if (!dladdr(reinterpret_cast<void*>(&f0r_init), &info) || !info.dli_fname) return false;
    std::string file = info.dli_fname;
    file = file.substr(file.rfind('/') + 1);
    for (unsigned i = 0; i < flairize::effectCount(); ++i)
        if (flairize::effectOffered(i) && file == "flairize-" + flairize::effectSlug(i) + ".so") {
            effect = i;
            return true;
        }
    return false;
}

Description describe() {
    Description d;
    d.found = effectOfThisFile(d.effect);
    if (!d.found) return d;
    const unsigned e = d.effect;
    d.name = "flairize-" + flairize::effectSlug(e);   // GStreamer names its elements after it
    d.author = plat::loadString(ids::kDisplayName);
    const bool fades = flairize::effectFadesIn(e);
    d.explanation = std::string(flairize::effectDescription(e)) + " The " + flairize::effectName(e) + " effect of " +
                    d.author + ", bit for bit as the flairize command renders it; it " +
                    (fades ? "fades in with Progress." : "animates with Progress.");

    // Each slider: what it does in the effect's own terms, then how 0..1 maps onto its steps.
    for (int k = 0; k < 3; ++k) {
        if (!flairize::sliderLabelId(e, k)) continue;
        std::string explanation = flairize::sliderMeaning(e, k);
        if (!explanation.empty()) explanation[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(explanation[0])));
        const std::string unit = flairize::sliderUnit(e, k);
        explanation += "; 0..1 covers the slider's " + std::to_string(flairize::sliderMinimum(e, k)) + ".." +
                       std::to_string(flairize::sliderMaximum(e, k)) + " (rounded to the nearest step" +
                       (unit.empty() ? "" : " of " + unit) + ")";
        d.params.push_back({ParamKind::Slider, unsigned(k), F0R_PARAM_DOUBLE, flairize::sliderLabel(e, k), explanation});
    }
    d.params.push_back({ParamKind::Progress, 0, F0R_PARAM_DOUBLE, "Progress",
                        fades ? "How far the effect has faded in: 0 shows the source, 1 the full effect "
                                "(0 to 16384 inside, rounded); keyframe it to fade the effect in"
                              : "How far the effect has advanced: 0 to 1, 1 the full effect "
                                "(0 to 16384 inside, rounded); keyframe it to animate the effect"});
    if (flairize::effectUsesColour(e))
        d.params.push_back({ParamKind::Colour, 0, F0R_PARAM_COLOR, "Color", "The colour the effect paints with"});
    if (fades)
        d.params.push_back({ParamKind::Mix, 0, F0R_PARAM_BOOL, "Mix",
                            "On: blend the effect with the source by Progress. Off: the effect's own result, "
                            "without that blend"});
    return d;
}

const Description& description() {
    static const Description d = describe();
    return d;
}

// 0..1 to 0..top, rounded to the nearest step; out-of-range and NaN values are clamped.
std::uint32_t toSteps(double v, std::uint32_t top) {
    if (!(v > 0)) return 0;
    if (v >= 1) return top;
    return static_cast<std::uint32_t>(std::lround(v * top));
}

struct Instance {
    std::mutex lock;   // a host may set parameters from another thread while a frame renders
    unsigned width = 0, height = 0;
    std::vector<std::uint8_t> copy;   // the source of a frame rendered in place
    double slider[3] = {0, 0, 0};
    double progress = 1.0;
    f0r_param_color_t colour{0.0f, 0.0f, 0.0f};
    double mix = 1.0;
    bool toldNoMemory = false;   // the out-of-memory message goes to stderr once an instance

    // A frame that cannot be rendered passes through unchanged.
    void passThrough(const std::uint8_t* in, std::uint8_t* out, std::size_t size) {
        if (in != out) std::memmove(out, in, size);
        if (!toldNoMemory) plat::showStringMessage(ids::kNoMemory);
        toldNoMemory = true;
    }

    flairize::Settings settings() const {
        const unsigned e = description().effect;
        flairize::Settings s;
        s.effect = static_cast<std::uint16_t>(e);
        s.progress = toSteps(progress, 16384);
        for (int k = 0; k < 3; ++k)   // hidden sliders keep the effect's defaults
            s.sliders[k] = flairize::sliderLabelId(e, k) ? static_cast<std::uint16_t>(toSteps(slider[k], 255))
                                                         : flairize::sliderDefault(e, k);
        s.colour = toSteps(colour.r, 255) | (toSteps(colour.g, 255) << 8) | (toSteps(colour.b, 255) << 16);
        return s;
    }

    void render(const std::uint32_t* inframe, std::uint32_t* outframe) {
        std::lock_guard<std::mutex> hold(lock);
        const std::size_t rowBytes = std::size_t(width) * 4, size = rowBytes * height;
        const auto* in = reinterpret_cast<const std::uint8_t*>(inframe);
        auto* out = reinterpret_cast<std::uint8_t*>(outframe);
        if (in < out + size && out < in + size) {   // in place: render from a copy of the frame
            try {
                copy.resize(size);
            } catch (const std::bad_alloc&) {
                passThrough(in, out, size);   // the frame stays as it is
                return;
            }
            std::memcpy(copy.data(), in, size);
            in = copy.data();
        }
        const flairize::PictureView source{const_cast<std::uint8_t*>(in), std::ptrdiff_t(rowBytes),
                                           std::uint16_t(width), std::uint16_t(height), 4};
        const flairize::PictureView output{out, std::ptrdiff_t(rowBytes), std::uint16_t(width),
                                           std::uint16_t(height), 4};
        const bool fades = flairize::effectFadesIn(description().effect);
        static const flairize::HostServices host = hostops::threadedServices(threadsAllowed());
        const flairize::Result r = flairize::renderInto(
            host, source, settings(), fades && mix < 0.5 ? flairize::Mix::None : flairize::Mix::Always, output);
        // A render that fails for want of memory (in the engine or a host
        // operation alike) passes the frame through, with the one message.
        if (r.status != flairize::Status::Ok) passThrough(in, out, size);
    }
};

const Param* paramAt(int index) {
    const auto& params = description().params;
    return index >= 0 && std::size_t(index) < params.size() ? &params[std::size_t(index)] : nullptr;
}

}  // namespace

extern "C" {

// 1 when this plug-in's file names an offered effect; 0 refuses it.
int f0r_init(void) { return description().found ? 1 : 0; }

void f0r_deinit(void) {}

void f0r_get_plugin_info(f0r_plugin_info_t* info) {
    if (!info) return;
    const Description& d = description();
    info->name = d.name.c_str();
    info->author = d.author.c_str();
    info->plugin_type = F0R_PLUGIN_TYPE_FILTER;
    info->color_model = F0R_COLOR_MODEL_BGRA8888;
    info->frei0r_version = FREI0R_MAJOR_VERSION;
    info->major_version = FLAIRIZE_VERSION_MAJOR;
    info->minor_version = FLAIRIZE_VERSION_MINOR;
    info->num_params = static_cast<int>(d.params.size());
    info->explanation = d.explanation.c_str();
}

void f0r_get_param_info(f0r_param_info_t* info, int param_index) {
    const Param* p = paramAt(param_index);
    if (!info || !p) return;
    info->name = p->name.c_str();
    info->type = p->type;
    info->explanation = p->explanation.c_str();
}

f0r_instance_t f0r_construct(unsigned int width, unsigned int height) {
    const Description& d = description();
    if (!d.found || width == 0 || height == 0 || width > 65535 || height > 65535) return nullptr;
    // Test hook: FLAIRIZE_FAIL_ALLOCATION=N fails this module's N-th allocation from here on.
    if (const char* n = std::getenv("FLAIRIZE_FAIL_ALLOCATION")) plat::failAllocationAfter(std::atol(n));
    auto* instance = new (std::nothrow) Instance;
    if (!instance) return nullptr;
    instance->width = width;
    instance->height = height;
    for (int k = 0; k < 3; ++k) instance->slider[k] = flairize::sliderDefault(d.effect, k) / 255.0;
    return instance;
}

void f0r_destruct(f0r_instance_t instance) { delete static_cast<Instance*>(instance); }

void f0r_set_param_value(f0r_instance_t instance, f0r_param_t param, int param_index) {
    const Param* p = paramAt(param_index);
    if (!instance || !param || !p) return;
    auto& in = *static_cast<Instance*>(instance);
    std::lock_guard<std::mutex> hold(in.lock);
    switch (p->kind) {
    case ParamKind::Slider: in.slider[p->slider] = *static_cast<const double*>(param); break;
    case ParamKind::Progress: in.progress = *static_cast<const double*>(param); break;
    case ParamKind::Colour: in.colour = *static_cast<const f0r_param_color_t*>(param); break;
    case ParamKind::Mix: in.mix = *static_cast<const double*>(param); break;
    }
}

void f0r_get_param_value(f0r_instance_t instance, f0r_param_t param, int param_index) {
    const Param* p = paramAt(param_index);
    if (!instance || !param || !p) return;
    auto& in = *static_cast<Instance*>(instance);
    std::lock_guard<std::mutex> hold(in.lock);
    switch (p->kind) {
    case ParamKind::Slider: *static_cast<double*>(param) = in.slider[p->slider]; break;
    case ParamKind::Progress: *static_cast<double*>(param) = in.progress; break;
    case ParamKind::Colour: *static_cast<f0r_param_color_t*>(param) = in.colour; break;
    case ParamKind::Mix: *static_cast<double*>(param) = in.mix; break;
    }
}

void f0r_update(f0r_instance_t instance, double, const uint32_t* inframe, uint32_t* outframe) {
    if (!instance || !inframe || !outframe) return;
    static_cast<Instance*>(instance)->render(inframe, outframe);
}

void f0r_update2(f0r_instance_t instance, double time, const uint32_t* inframe1, const uint32_t*,
                 const uint32_t*, uint32_t* outframe) {
    f0r_update(instance, time, inframe1, outframe);
}

}  // extern "C"
