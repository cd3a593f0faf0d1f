// The Python module flairize._flairize: the effects' catalogue, renders of
// NumPy arrays, frame timing and the settings block, over libflairize's C
// interface. Renders release the GIL; arrays are read and written in place
// where the library's strides allow it.
#include <flairize/flairize.h>

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace py = pybind11;

namespace {

constexpr std::uint32_t kFullProgress = 16384;

[[noreturn]] void refuse(const std::string& text) { throw py::value_error(text); }

std::size_t editDistance(const std::string& a, const std::string& b) {
    std::vector<std::size_t> row(b.size() + 1);
    for (std::size_t j = 0; j <= b.size(); ++j) row[j] = j;
    for (std::size_t i = 1; i <= a.size(); ++i) {
        std::size_t diagonal = row[0];
        row[0] = i;
        for (std::size_t j = 1; j <= b.size(); ++j) {
            const std::size_t above = row[j];
            row[j] = std::min({row[j] + 1, row[j - 1] + 1, diagonal + (a[i - 1] == b[j - 1] ? 0 : 1)});
            diagonal = above;
        }
    }
    return row[b.size()];
}

// "; did you mean "x"?" for the closest candidate within a third of the word's length, else "".
std::string didYouMean(const std::string& word, const std::vector<std::string>& candidates) {
    std::string best;
    std::size_t bestDistance = word.size() / 3 + 2;
    for (const std::string& c : candidates) {
        const std::size_t d = editDistance(word, c);
        if (d < bestDistance) bestDistance = d, best = c;
    }
    return best.empty() ? std::string() : "; did you mean \"" + best + "\"?";
}

std::vector<std::string> allSlugs() {
    std::vector<std::string> slugs;
    for (unsigned e = 0; e < flairize_effect_count(); ++e) slugs.push_back(flairize_effect_slug(e));
    return slugs;
}

unsigned effectIndex(const py::handle& effect) {
    if (py::isinstance<py::str>(effect)) {
        const std::string name = effect.cast<std::string>();
        unsigned index = 0;
        if (flairize_effect_find(name.c_str(), &index) != FLAIRIZE_OK)
            refuse("no effect named \"" + name + "\"" + didYouMean(name, allSlugs()));
        return index;
    }
    if (py::isinstance<py::int_>(effect) && !py::isinstance<py::bool_>(effect)) {
        const long long index = effect.cast<long long>();
        if (index < 0 || index >= static_cast<long long>(flairize_effect_count()))
            refuse("effect index " + std::to_string(index) + " is outside 0.." +
                   std::to_string(flairize_effect_count() - 1));
        return static_cast<unsigned>(index);
    }
    refuse("effect must be a name or an index, got " + std::string(py::str(py::type::of(effect).attr("__name__"))));
}

long long wholeNumber(const py::handle& value, const std::string& what, long long lo, long long hi) {
    if (!py::isinstance<py::int_>(value) || py::isinstance<py::bool_>(value))
        refuse(what + " must be a whole number, got " + std::string(py::repr(value)));
    long long v = 0;
    try {
        v = value.cast<long long>();
    } catch (const py::cast_error&) {
        refuse(what + "=" + std::string(py::repr(value)) + " is out of range " + std::to_string(lo) + ".." +
               std::to_string(hi));
    }
    if (v < lo || v > hi)
        refuse(what + "=" + std::to_string(v) + " is out of range " + std::to_string(lo) + ".." + std::to_string(hi));
    return v;
}

// "#rrggbb" (or "rrggbb", "#rgb") or an (r, g, b) sequence, as 0xRRGGBB.
std::uint32_t parseColour(const py::handle& colour) {
    if (py::isinstance<py::str>(colour)) {
        const std::string text = colour.cast<std::string>();
        const std::string hex = !text.empty() && text[0] == '#' ? text.substr(1) : text;
        bool ok = hex.size() == 6 || (hex.size() == 3 && text[0] == '#');
        for (const char c : hex) ok = ok && std::isxdigit(static_cast<unsigned char>(c));
        if (!ok) refuse("colour must be \"#rrggbb\" in hex or an (r, g, b) tuple, got \"" + text + "\"");
        std::uint32_t rgb = static_cast<std::uint32_t>(std::stoul(hex, nullptr, 16));
        if (hex.size() == 3) rgb = ((rgb >> 8) & 0xF) * 0x110000 + ((rgb >> 4) & 0xF) * 0x1100 + (rgb & 0xF) * 0x11;
        return rgb;
    }
    if (py::isinstance<py::sequence>(colour) && py::len(colour) == 3) {
        const py::sequence parts = py::reinterpret_borrow<py::sequence>(colour);
        std::uint32_t rgb = 0;
        const char* names[3] = {"red", "green", "blue"};
        for (std::size_t k = 0; k < 3; ++k)
            rgb = rgb << 8 | static_cast<std::uint32_t>(wholeNumber(parts[k], std::string("colour ") + names[k], 0, 255));
        return rgb;
    }
    refuse("colour must be \"#rrggbb\" in hex or an (r, g, b) tuple, got " + std::string(py::repr(colour)));
}

std::string hexColour(std::uint32_t rgb) {
    char text[8];
    std::snprintf(text, sizeof text, "#%06x", rgb & 0xFFFFFFu);
    return text;
}

// One renderer per thread count, kept for the module's life: renderers serve several renders at once.
const flairize_renderer* rendererFor(unsigned threads) {
    static std::mutex lock;
    static std::map<unsigned, std::unique_ptr<flairize_renderer, void (*)(flairize_renderer*)>> renderers;
    const std::lock_guard<std::mutex> guard(lock);
    auto found = renderers.find(threads);
    if (found != renderers.end()) return found->second.get();
    flairize_renderer* renderer = nullptr;
    const flairize_status status = flairize_renderer_new(threads, &renderer);
    if (status == FLAIRIZE_ERROR_OUT_OF_MEMORY) throw std::bad_alloc();
    if (status != FLAIRIZE_OK) refuse(std::string("threads: ") + flairize_status_text(status));
    renderers.emplace(threads, std::unique_ptr<flairize_renderer, void (*)(flairize_renderer*)>(
                                   renderer, flairize_renderer_free));
    return renderer;
}

// Whether the library can take the array as it lies: pixels of 3 or 4 packed bytes, rows at any nonzero distance.
bool libraryCanRead(const py::array& a) {
    const ssize_t channels = a.shape(2);
    return a.strides(2) == 1 && a.strides(1) == channels && a.strides(0) != 0 &&
           std::abs(a.strides(0)) >= a.shape(1) * channels;
}

// The first and one-past-last bytes an array's pixels occupy.
std::pair<const std::uint8_t*, const std::uint8_t*> byteSpan(const py::array& a) {
    const auto* first = static_cast<const std::uint8_t*>(a.data());
    const std::uint8_t* low = first;
    const std::uint8_t* high = first;
    for (ssize_t k = 0; k < a.ndim(); ++k) {
        const ssize_t reach = (a.shape(k) - 1) * a.strides(k);
        (reach < 0 ? low : high) += reach;
    }
    return {low, high + 1};
}

bool overlap(const py::array& a, const py::array& b) {
    const auto x = byteSpan(a), y = byteSpan(b);
    return x.first < y.second && y.first < x.second;
}

py::array checkedPixels(const py::handle& object, const char* what) {
    if (!py::isinstance<py::array>(object))
        refuse(std::string(what) + " must be a NumPy array of uint8, H x W x 3 or 4; got " +
               std::string(py::str(py::type::of(object).attr("__name__"))));
    py::array a = py::reinterpret_borrow<py::array>(object);
    if (!a.dtype().is(py::dtype::of<std::uint8_t>()))
        refuse(std::string(what) + " must have dtype uint8, got " + std::string(py::str(a.dtype())));
    if (a.ndim() != 3 || (a.shape(2) != 3 && a.shape(2) != 4)) {
        std::string shape = "(";
        for (ssize_t k = 0; k < a.ndim(); ++k) shape += (k ? ", " : "") + std::to_string(a.shape(k));
        refuse(std::string(what) + " must have shape (height, width, 3) or (height, width, 4), got " + shape +
               (a.ndim() == 1 ? ",)" : ")"));
    }
    if (a.shape(0) < 1 || a.shape(1) < 1 || a.shape(0) > 65535 || a.shape(1) > 65535)
        refuse(std::string(what) + ": height and width must be 1..65535, got " + std::to_string(a.shape(0)) + " x " +
               std::to_string(a.shape(1)));
    return a;
}

// Sliders from keyword arguments: the effect's own options ("amount") or p1, p2, p3.
void applySliders(unsigned effect, const py::kwargs& sliders, flairize_settings& settings) {
    std::vector<std::string> own;
    for (unsigned k = 0; k < 3; ++k)
        if (flairize_slider_shown(effect, k)) own.push_back(flairize_slider_option(effect, k));
    std::string ownText;
    for (const std::string& o : own) ownText += (ownText.empty() ? "" : ", ") + o;
    if (ownText.empty()) ownText = "none";
    std::vector<std::string> known = own;
    for (const char* p : {"p1", "p2", "p3"}) known.emplace_back(p);
    std::vector<std::string> everySlider;   // the options of all effects, to tell "not this effect's" from a typo
    for (unsigned e = 0; e < flairize_effect_count(); ++e)
        for (unsigned k = 0; k < 3; ++k)
            if (flairize_slider_shown(e, k)) everySlider.push_back(flairize_slider_option(e, k));

    std::string setBy[3];
    for (const auto& item : sliders) {
        const std::string name = item.first.cast<std::string>();
        int slider = -1;
        if (name.size() == 2 && name[0] == 'p' && name[1] >= '1' && name[1] <= '3') {
            slider = name[1] - '1';
        } else {
            for (unsigned k = 0; k < 3; ++k)
                if (flairize_slider_shown(effect, k) && name == flairize_slider_option(effect, k)) slider = int(k);
        }
        const std::string slug = flairize_effect_slug(effect);
        if (slider < 0) {
            if (std::find(everySlider.begin(), everySlider.end(), name) != everySlider.end())
                refuse(slug + " has no slider \"" + name + "\" (its sliders: " + ownText + ")");
            refuse("unknown keyword argument \"" + name + "\" (" + slug + "'s sliders: " + ownText + ")" +
                   didYouMean(name, known));
        }
        if (!setBy[slider].empty())
            refuse(setBy[slider] + " and " + name + " both set slider " + std::to_string(slider + 1));
        setBy[slider] = name;
        settings.sliders[slider] = static_cast<std::uint32_t>(wholeNumber(item.second, name, 0, 255));
    }
}

py::array render(const py::handle& pixelsObject, const py::handle& effectObject, double progress,
                 const py::object& position, const py::object& colour, long long threads, const std::string& order,
                 bool mix, const py::object& out, const py::kwargs& sliders) {
    py::array pixels = checkedPixels(pixelsObject, "pixels");
    const unsigned effect = effectIndex(effectObject);
    flairize_settings settings;
    flairize_settings_init(&settings, effect);
    applySliders(effect, sliders, settings);
    if (!position.is_none()) {
        if (progress != 1.0) refuse("give progress or position, not both");
        settings.progress = static_cast<std::uint32_t>(wholeNumber(position, "position", 0, kFullProgress));
    } else {
        if (!(progress >= 0.0 && progress <= 1.0)) refuse("progress=" + std::to_string(progress) + " is outside 0..1");
        settings.progress = static_cast<std::uint32_t>(std::floor(progress * 16384.0 + 0.5));
    }
    if (!colour.is_none()) settings.colour = parseColour(colour);
    settings.mix = mix ? FLAIRIZE_MIX_FULL : FLAIRIZE_MIX_FILTER;
    if (threads < 0 || threads > 1024) refuse("threads=" + std::to_string(threads) + " is outside 0..1024");
    std::string upper;
    for (const char c : order) upper.push_back(static_cast<char>(std::toupper(static_cast<unsigned char>(c))));
    flairize_channel_order channelOrder;
    if (upper == "RGB" || upper == "RGBA") channelOrder = FLAIRIZE_ORDER_RGB;
    else if (upper == "BGR" || upper == "BGRA") channelOrder = FLAIRIZE_ORDER_BGR;
    else refuse("order must be \"RGB\" or \"BGR\", got \"" + order + "\"");

    const ssize_t height = pixels.shape(0), width = pixels.shape(1), channels = pixels.shape(2);
    py::module_ numpy = py::module_::import("numpy");
    const bool intoOut = !out.is_none();
    py::array target = pixels;   // replaced by out when given
    if (intoOut) {
        target = checkedPixels(out, "out");
        if (target.shape(0) != height || target.shape(1) != width || target.shape(2) != channels)
            refuse("out must have the shape of pixels");
        if (!target.writeable()) refuse("out is read-only");
    }
    if (!libraryCanRead(pixels)) pixels = numpy.attr("ascontiguousarray")(pixels);
    // Rendered straight into out when the library can write it and it does not share bytes with the source.
    py::array output;
    if (intoOut && libraryCanRead(target) && !overlap(target, pixels)) output = target;
    else output = py::array(py::dtype::of<std::uint8_t>(), {height, width, channels});

    const flairize_renderer* renderer = threads == 1 ? nullptr : rendererFor(static_cast<unsigned>(threads));
    const void* source = pixels.data();
    void* destination = output.mutable_data();
    const ptrdiff_t sourceStride = pixels.strides(0), outputStride = output.strides(0);
    const char* message = nullptr;
    flairize_status status;
    {
        py::gil_scoped_release released;
        status = flairize_render(renderer, &settings, source, sourceStride, destination, outputStride,
                                 static_cast<std::uint32_t>(width), static_cast<std::uint32_t>(height),
                                 static_cast<std::uint32_t>(channels), channelOrder, &message);
    }
    if (status != FLAIRIZE_OK) {
        const std::string text = message && *message ? message : flairize_status_text(status);
        if (status == FLAIRIZE_ERROR_OUT_OF_MEMORY) throw std::bad_alloc();
        if (status == FLAIRIZE_ERROR_INTERNAL || status == FLAIRIZE_ERROR_REFUSED) throw std::runtime_error(text);
        refuse(text);
    }
    if (intoOut && !output.is(target)) numpy.attr("copyto")(target, output);
    return intoOut ? target : output;
}

// ---- the catalogue

struct Slider {
    int index;
    std::string option, label, unit, meaning;
    unsigned minimum, maximum, fallback;
};

struct Effect {
    unsigned index;
    std::string name, slug, description, category;
    bool offered, usesColour, fadesIn;
    std::vector<Slider> sliders;
};

std::vector<Effect> catalogue() {
    std::vector<Effect> effects;
    for (unsigned e = 0; e < flairize_effect_count(); ++e) {
        Effect effect{e,
                      flairize_effect_name(e),
                      flairize_effect_slug(e),
                      flairize_effect_description(e),
                      flairize_effect_category(e),
                      flairize_effect_offered(e) != 0,
                      flairize_effect_uses_colour(e) != 0,
                      flairize_effect_fades_in(e) != 0,
                      {}};
        for (unsigned k = 0; k < 3; ++k)
            if (flairize_slider_shown(e, k))
                effect.sliders.push_back(Slider{int(k), flairize_slider_option(e, k), flairize_slider_label(e, k),
                                                flairize_slider_unit(e, k), flairize_slider_meaning(e, k),
                                                flairize_slider_minimum(e, k), flairize_slider_maximum(e, k),
                                                flairize_slider_default(e, k)});
        effects.push_back(std::move(effect));
    }
    return effects;
}

// ---- the settings block

struct Settings {
    flairize_record record{};

    static Settings fromBytes(const py::bytes& block) {
        const std::string data = block;
        Settings s;
        if (flairize_record_read(data.data(), data.size(), &s.record) != FLAIRIZE_OK)
            refuse("a settings block is " + std::to_string(FLAIRIZE_BLOCK_SIZE) + " bytes, got " +
                   std::to_string(data.size()));
        return s;
    }
    py::bytes toBytes() const {
        char block[FLAIRIZE_BLOCK_SIZE];
        flairize_record_write(&record, block, sizeof block);
        return py::bytes(block, sizeof block);
    }
};

Settings newSettings(const py::handle& effect) {
    Settings s;
    flairize_record_init(&s.record, effectIndex(effect));
    return s;
}

[[noreturn]] void osError(const std::string& path) {
    PyErr_SetFromErrnoWithFilename(PyExc_OSError, path.c_str());
    throw py::error_already_set();
}

std::string fsPath(const py::object& path) {
    return py::module_::import("os").attr("fsdecode")(path).cast<std::string>();
}

std::string readFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) osError(path);
    return std::string(std::istreambuf_iterator<char>(file), {});
}

}  // namespace

PYBIND11_MODULE(_flairize, m) {
    m.doc() = "Flairize's picture effects for NumPy arrays, bit for bit as the flairize command renders them.";
    m.attr("__version__") = flairize_version();
    m.attr("FULL_PROGRESS") = kFullProgress;
    m.attr("BACKWARD") = FLAIRIZE_DIRECTION_BACKWARD;
    m.attr("CYCLE") = FLAIRIZE_DIRECTION_CYCLE;
    m.attr("FORWARD") = FLAIRIZE_DIRECTION_FORWARD;
    m.attr("REVERSE_CYCLE") = FLAIRIZE_DIRECTION_REVERSE_CYCLE;

    py::class_<Slider>(m, "Slider", "One slider of an effect, as the catalogue describes it.")
        .def_readonly("index", &Slider::index, "0, 1 or 2: the slider's place (p1, p2, p3)")
        .def_readonly("option", &Slider::option, "the keyword render() takes for it, as the command's option")
        .def_readonly("label", &Slider::label, "the label the editor shows")
        .def_readonly("minimum", &Slider::minimum, "the smallest value")
        .def_readonly("maximum", &Slider::maximum, "the largest value")
        .def_readonly("default", &Slider::fallback, "the value a new use of the effect starts with")
        .def_readonly("unit", &Slider::unit, "the unit in words, or \"\" for a plain number")
        .def_readonly("meaning", &Slider::meaning, "what the slider does in the effect's terms")
        .def("__repr__", [](const Slider& s) {
            return "<flairize.Slider " + s.option + " " + std::to_string(s.minimum) + ".." +
                   std::to_string(s.maximum) + " default " + std::to_string(s.fallback) + ">";
        });

    py::class_<Effect>(m, "Effect", "One effect of the catalogue.")
        .def_readonly("index", &Effect::index, "the effect's number (that of the settings block)")
        .def_readonly("name", &Effect::name, "the name as the catalogue holds it (\"Find Edges\")")
        .def_readonly("slug", &Effect::slug, "the name as the command takes it (\"find-edges\")")
        .def_readonly("description", &Effect::description, "one line on what the effect does")
        .def_readonly("category", &Effect::category, "Artistic, Blur, Distort, Stylize or Texture")
        .def_readonly("offered", &Effect::offered, "whether the editor offers the effect")
        .def_readonly("uses_colour", &Effect::usesColour, "whether the effect paints with the colour")
        .def_readonly("fades_in", &Effect::fadesIn, "whether the full render blends with the source by the progress")
        .def_readonly("sliders", &Effect::sliders, "the sliders the effect shows, in order")
        .def("__repr__", [](const Effect& e) {
            return "<flairize.Effect " + std::to_string(e.index) + " " + e.slug + ">";
        });

    m.def("effects", &catalogue,
          "effects() -> list[Effect]\n\n"
          "The catalogue: one Effect object per effect, offered or not, in the order of their numbers. Each has\n"
          "index, name, slug, description, category, offered, uses_colour, fades_in and sliders (Slider objects\n"
          "with index, option, label, minimum, maximum, default, unit and meaning).");

    m.def("render", &render, py::arg("pixels"), py::arg("effect"), py::kw_only(), py::arg("progress") = 1.0,
          py::arg("position") = py::none(), py::arg("colour") = py::none(), py::arg("threads") = 0,
          py::arg("order") = "RGB", py::arg("mix") = true, py::arg("out") = py::none(),
          "render(pixels, effect, *, progress=1.0, position=None, colour=None, threads=0, order='RGB', mix=True,\n"
          "       out=None, **sliders) -> numpy.ndarray\n\n"
          "Renders the effect on an H x W x 3 or H x W x 4 uint8 array, bit for bit as `flairize render` does.\n\n"
          "effect: a slug or name (\"find-edges\", \"Find Edges\") or an index.\n"
          "sliders: the effect's options as keywords (colors=5, amount=100) or p1, p2, p3; 0..255 each, the\n"
          "  others keep their defaults.\n"
          "progress: 0.0..1.0, taken as floor(progress * 16384 + 0.5) steps; position: the steps 0..16384 exactly.\n"
          "colour: \"#rrggbb\" or (r, g, b) for effects that paint with a colour (default black).\n"
          "threads: 0 for all cores, 1 for the calling thread alone, up to 1024; the result is the same for all.\n"
          "order: \"RGB\" (RGBA with 4 channels) or \"BGR\" (OpenCV's order); a fourth channel is the effect's mask.\n"
          "mix: False renders the effect's filter without the fade by the progress (`--filter-only`).\n"
          "out: an array of the same shape to render into, which is returned; else a new array is.\n\n"
          "The GIL is released while rendering. Bad arguments raise ValueError naming the problem.");

    m.def(
        "frame_progress",
        [](long long position, long long speed, long long direction) {
            const auto p = static_cast<std::uint32_t>(wholeNumber(py::int_(position), "position", 0, 0xFFFFFFFFLL));
            const auto d = static_cast<std::uint32_t>(wholeNumber(py::int_(direction), "direction", 0, 3));
            const int s = static_cast<int>(std::clamp<long long>(speed, -128, 127));
            return flairize_frame_progress(p, s, d);
        },
        py::arg("position"), py::arg("speed") = 0, py::arg("direction") = FLAIRIZE_DIRECTION_FORWARD,
        "frame_progress(position, speed=0, direction=FORWARD) -> int\n\n"
        "The progress (0..16384) at a sequence position (0..16384; more acts as 16384): bent by the speed curve\n"
        "(-128..127, clamped; positive speeds start slowly) and mapped through the direction (BACKWARD, CYCLE,\n"
        "FORWARD or REVERSE_CYCLE).");

    m.def(
        "sequence_position",
        [](long long frame, long long frames) {
            if (frames < 1) refuse("frames=" + std::to_string(frames) + ": a sequence has at least one frame");
            if (frame < 0 || frame >= frames)
                refuse("frame=" + std::to_string(frame) + " is outside 0.." + std::to_string(frames - 1));
            return flairize_sequence_position(static_cast<std::uint64_t>(frame), static_cast<std::uint64_t>(frames));
        },
        py::arg("frame"), py::arg("frames"),
        "sequence_position(frame, frames) -> int\n\n"
        "The position (0..16384) of frame 0..frames-1 in a sequence of `frames`: frame * 16384 // (frames - 1);\n"
        "a single frame sits at 16384.");

    py::class_<Settings>(m, "Settings",
                         "The 20-byte settings block of a .flr file: effect, sliders, colour, progress, direction.")
        .def(py::init(&newSettings), py::arg("effect"),
             "Settings(effect): a new use of the effect (name or index): its default sliders, progress 0, "
             "FORWARD, black.")
        .def_static("from_bytes", &Settings::fromBytes, py::arg("block"),
                    "The settings in a block's first 20 bytes (fields taken as they are).")
        .def("to_bytes", &Settings::toBytes, "The 20-byte block.")
        .def_static(
            "load", [](const py::object& path) { return Settings::fromBytes(py::bytes(readFile(fsPath(path)))); },
            py::arg("path"), "Reads a .flr file.")
        .def(
            "save",
            [](const Settings& s, const py::object& pathObject) {
                const std::string path = fsPath(pathObject);
                const std::string block = s.toBytes();
                std::ofstream file(path, std::ios::binary | std::ios::trunc);
                if (!file || !file.write(block.data(), std::streamsize(block.size())) || !file.flush()) osError(path);
            },
            py::arg("path"), "Writes the 20-byte block to a .flr file.")
        .def_property(
            "effect", [](const Settings& s) { return s.record.effect; },
            [](Settings& s, const py::handle& effect) { s.record.effect = static_cast<std::uint16_t>(effectIndex(effect)); },
            "The effect's index (set by name or index; the sliders are kept).")
        .def_property(
            "sliders",
            [](const Settings& s) { return py::make_tuple(s.record.param1, s.record.param2, s.record.param3); },
            [](Settings& s, const py::sequence& values) {
                if (py::len(values) != 3) refuse("sliders must be three numbers");
                s.record.param1 = static_cast<std::uint16_t>(wholeNumber(values[0], "p1", 0, 65535));
                s.record.param2 = static_cast<std::uint16_t>(wholeNumber(values[1], "p2", 0, 65535));
                s.record.param3 = static_cast<std::uint16_t>(wholeNumber(values[2], "p3", 0, 65535));
            },
            "The three slider values (p1, p2, p3).")
        .def_property(
            "colour", [](const Settings& s) { return hexColour(s.record.colour); },
            [](Settings& s, const py::handle& colour) {
                s.record.colour = (s.record.colour & 0xFF000000u) | parseColour(colour);
            },
            "The colour, \"#rrggbb\" (set as \"#rrggbb\" or (r, g, b)).")
        .def_property(
            "progress", [](const Settings& s) { return s.record.progress; },
            [](Settings& s, const py::handle& v) {
                s.record.progress = static_cast<std::uint32_t>(wholeNumber(v, "progress", 0, kFullProgress));
            },
            "The progress in steps, 0..16384.")
        .def_property(
            "direction", [](const Settings& s) { return s.record.direction; },
            [](Settings& s, const py::handle& v) {
                s.record.direction = static_cast<std::uint32_t>(wholeNumber(v, "direction", 0, 0xFFFFFFFFLL));
            },
            "The direction field; its low two bits are BACKWARD, CYCLE, FORWARD or REVERSE_CYCLE.")
        .def(
            "__eq__",
            [](const Settings& a, const Settings& b) { return std::string(a.toBytes()) == std::string(b.toBytes()); },
            py::is_operator())
        .def("__repr__", [](const Settings& s) {
            const std::string slug =
                s.record.effect < flairize_effect_count() ? flairize_effect_slug(s.record.effect) : "?";
            return "<flairize.Settings " + slug + " sliders " + std::to_string(s.record.param1) + " " +
                   std::to_string(s.record.param2) + " " + std::to_string(s.record.param3) + " colour " +
                   hexColour(s.record.colour) + " progress " + std::to_string(s.record.progress) + " direction " +
                   std::to_string(s.record.direction) + ">";
        });
}
