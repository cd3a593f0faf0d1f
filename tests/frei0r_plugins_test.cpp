// The frei0r plug-ins, opened as a host opens them (dlopen), checked against the
// effect table and rendered against the engine's own render call on the same
// 32-bit picture (what `flairize render` does with it).
#include <gtest/gtest.h>

#ifndef FLAIRIZE_FREI0R_DIR

TEST(Frei0rPlugins, NotBuilt) {
    GTEST_SKIP() << "frei0r.h was not found when the build was configured (Debian package frei0r-plugins-dev): "
                    "no frei0r plug-ins were built";
}

#else

#include <dlfcn.h>

extern "C" {
#include <frei0r.h>
}

#include <atomic>
#include <cctype>
#include <cmath>
#include <cstring>
#include <iterator>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "tests/picture_support.h"

using namespace testpic;

namespace {

struct Offered {
    unsigned index;
    std::string name, slug;   // "Find Edges", "find-edges"
};
void PrintTo(const Offered& e, std::ostream* os) { *os << e.name; }

// The effects the editor offers.
std::vector<Offered> offeredEffects() {
    std::vector<Offered> all;
    for (unsigned i = 0; i < flairize::effectCount(); ++i)
        if (flairize::effectOffered(i)) all.push_back({i, flairize::effectName(i), flairize::effectSlug(i)});
    return all;
}

std::string pluginPath(const Offered& e) { return std::string(FLAIRIZE_FREI0R_DIR) + "/flairize-" + e.slug + ".so"; }

// A plug-in opened as a host opens it, its f0r_* functions under their own names
// less the prefix; kept open for the life of the test binary.
#define FLR_F0R_FUNCTIONS(X)                                                                           \
    X(init) X(get_plugin_info) X(get_param_info) X(construct) X(destruct) X(set_param_value) X(get_param_value) \
    X(update) X(update2)
struct Plugin {
    void* handle;
#define FLR_DECLARE(f) decltype(&f0r_##f) f = nullptr;
    FLR_F0R_FUNCTIONS(FLR_DECLARE)
    explicit Plugin(const std::string& path) : handle(dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL)) {
#define FLR_BIND(f) f = handle ? reinterpret_cast<decltype(&f0r_##f)>(dlsym(handle, "f0r_" #f)) : nullptr;
        FLR_F0R_FUNCTIONS(FLR_BIND)
    }
#define FLR_PRESENT(f) &&f
    bool complete() const { return handle FLR_F0R_FUNCTIONS(FLR_PRESENT); }
    int paramIndex(const std::string& name) const {
        f0r_plugin_info_t pi{};
        get_plugin_info(&pi);
        for (int k = 0; k < pi.num_params; ++k) {
            f0r_param_info_t p{};
            get_param_info(&p, k);
            if (p.name && name == p.name) return k;
        }
        return -1;
    }
};

Plugin& plugin(const Offered& e) {
    static std::map<unsigned, std::unique_ptr<Plugin>> opened;
    auto& p = opened[e.index];
    if (!p) p = std::make_unique<Plugin>(pluginPath(e));
    return *p;
}

// Frames: 4 bytes a pixel (blue, green, red, alpha), top row first, no padding.
using Frame = std::vector<std::uint8_t>;

// Varied colours and alphas (0 and 255 included), different for every `seed`,
// and different top and bottom so a wrong row order shows.
Frame patternFrame(unsigned w, unsigned h, unsigned seed) {
    Frame f(std::size_t(w) * h * 4);
    for (unsigned y = 0; y < h; ++y)
        for (unsigned x = 0; x < w; ++x) {
            std::uint8_t* p = &f[(std::size_t(y) * w + x) * 4];
            p[0] = std::uint8_t(x * 37 + y * 11 + seed * 5);
            p[1] = std::uint8_t(x * 5 + y * 71 + 19 + seed * 3);
            p[2] = std::uint8_t((x ^ y) * 23 + 101 + seed);
            const unsigned a = (x * 13 + y * 29 + seed * 7) % 300;
            p[3] = std::uint8_t(a > 255 ? (a > 280 ? 0 : 255) : a);
        }
    return f;
}

// The engine's render of a frame: the same pixels as a 32-bit picture, bottom row
// first, fully (or the filter alone), read back top row first.
Frame engineRender(const Frame& in, unsigned w, unsigned h, const flairize::Settings& settings, bool filterOnly) {
    Owned source(make(int(w), int(h), 32, [&](int x, int y) {
        const std::uint8_t* p = &in[(std::size_t(h - 1 - unsigned(y)) * w + unsigned(x)) * 4];
        return Bgra{p[0], p[1], p[2], p[3]};
    }));
    Owned result(flairize::render(hostops::services(), source, settings,
                                  filterOnly ? flairize::Mix::None : flairize::Mix::Always).picture);
    if (!result.h) return {};
    View v(result);
    Frame out(in.size());
    for (unsigned r = 0; r < h; ++r) std::memcpy(&out[std::size_t(r) * w * 4], v.row(int(h - 1 - r)), std::size_t(w) * 4);
    return out;
}

Frame pluginRender(const Plugin& p, f0r_instance_t instance, const Frame& in) {
    Frame out(in.size());
    p.update(instance, 0.0, reinterpret_cast<const std::uint32_t*>(in.data()), reinterpret_cast<std::uint32_t*>(out.data()));
    return out;
}

// One set of parameter values, as a host sets them, and the render values they stand for.
struct Setting {
    const char* what;
    bool setAny;                       // false: the values f0r_construct gives
    double slider[3];
    std::uint16_t sliderSteps[3];      // 0..255
    double progress;
    std::uint32_t progressSteps;       // 0..16384
    f0r_param_color_t colour;
    std::uint32_t colourRef;           // red in the lowest byte
    bool mix;
};

const Setting kSettings[] = {
    {"defaults", false, {}, {}, 1.0, 16384, {0, 0, 0}, 0, true},
    {"halves round up", true, {0.5, 0.3749, 0.0627}, {128, 96, 16}, 0.5, 8192, {0.2f, 0.6f, 1.0f}, 0xFF9933, true},
    {"mix off", true, {100 / 255.0, 0.999, 0.002}, {100, 255, 1}, 0.1, 1638, {1.0f, 0.5f, 0.0f}, 0x0080FF, false},
    {"out of range clamps", true, {-0.5, 1.5, std::nan("")}, {0, 255, 0}, 1.7, 16384, {-1.0f, 2.0f, 0.5f}, 0x80FF00, true},
    {"progress rounds to nearest", true, {0.2, 0.8, 0.6}, {51, 204, 153}, 0.99996, 16383, {0.0f, 0.0f, 0.0f}, 0, true},
    {"progress third", true, {0.0, 1.0, 0.5}, {0, 255, 128}, 1.0 / 3, 5461, {0.5f, 0.5f, 0.5f}, 0x808080, true},
    {"progress zero", true, {0.75, 0.25, 0.1}, {191, 64, 26}, 0.0, 0, {0.1f, 0.9f, 0.3f}, 0x4DE51A, true},  // 0.9f lies just below 229.5 / 255,
};

// Sets `s` on an instance of effect `e` through the plug-in's own parameter list.
void apply(const Plugin& p, f0r_instance_t instance, unsigned e, const Setting& s) {
    if (!s.setAny) return;
    for (int k = 0; k < 3; ++k) {
        double v = s.slider[k];
        if (flairize::sliderLabelId(e, k)) p.set_param_value(instance, &v, p.paramIndex(flairize::sliderLabel(e, k)));
    }
    double progress = s.progress, mix = s.mix ? 1.0 : 0.0;
    f0r_param_color_t c = s.colour;
    p.set_param_value(instance, &progress, p.paramIndex("Progress"));
    if (flairize::effectUsesColour(e)) p.set_param_value(instance, &c, p.paramIndex("Color"));
    if (flairize::effectFadesIn(e)) p.set_param_value(instance, &mix, p.paramIndex("Mix"));
}

// The settings `flairize render` would render with for the same values.
flairize::Settings settingsFor(unsigned e, const Setting& s) {
    flairize::Settings r;
    r.effect = std::uint16_t(e);
    r.progress = s.progressSteps;
    for (int k = 0; k < 3; ++k)
        r.sliders[k] = s.setAny && flairize::sliderLabelId(e, k) ? s.sliderSteps[k] : flairize::sliderDefault(e, k);
    r.colour = flairize::effectUsesColour(e) ? s.colourRef : 0;
    return r;
}

class Frei0rEffect : public testing::TestWithParam<Offered> {
protected:
    const Offered& effect() const { return GetParam(); }
    unsigned index() const { return effect().index; }
    Plugin& loaded() {
        Plugin& p = plugin(effect());
        EXPECT_TRUE(p.complete()) << pluginPath(effect()) << ": " << (p.handle ? "missing f0r_* functions" : dlerror());
        EXPECT_EQ(p.init(), 1);
        return p;
    }
};

// Info from the effect table; parameters: the shown sliders by label (defaults
// the effect's / 255), Progress (1), Color for colour effects (black), Mix for
// effects that fade in (on); the engine inside stays private, so plug-ins
// loaded together cannot clash.
TEST_P(Frei0rEffect, InfoParametersAndPrivateEngine) {
    Plugin& p = loaded();
    ASSERT_TRUE(p.complete());
    f0r_plugin_info_t info{};
    p.get_plugin_info(&info);
    EXPECT_EQ(std::make_tuple(std::string(info.name), std::string(info.author), info.plugin_type, info.color_model,
                              info.frei0r_version, info.major_version, info.minor_version),
              std::make_tuple(effect().name, std::string("Flairize"), int(F0R_PLUGIN_TYPE_FILTER),
                              int(F0R_COLOR_MODEL_BGRA8888), int(FREI0R_MAJOR_VERSION), FLAIRIZE_VERSION_MAJOR,
                              FLAIRIZE_VERSION_MINOR));
    ASSERT_NE(info.explanation, nullptr);
    EXPECT_NE(std::string(info.explanation).find(effect().name), std::string::npos) << info.explanation;

    struct Expected { std::string name; int type; double value; };
    std::vector<Expected> params;
    for (int k = 0; k < 3; ++k)
        if (flairize::sliderLabelId(index(), k))
            params.push_back({flairize::sliderLabel(index(), k), F0R_PARAM_DOUBLE, flairize::sliderDefault(index(), k) / 255.0});
    params.push_back({"Progress", F0R_PARAM_DOUBLE, 1.0});
    if (flairize::effectUsesColour(index())) params.push_back({"Color", F0R_PARAM_COLOR, 0.0});
    if (flairize::effectFadesIn(index())) params.push_back({"Mix", F0R_PARAM_BOOL, 1.0});
    ASSERT_EQ(info.num_params, int(params.size()));
    f0r_instance_t instance = p.construct(16, 8);
    ASSERT_NE(instance, nullptr);
    for (int k = 0; k < info.num_params; ++k) {
        f0r_param_info_t pi{};
        p.get_param_info(&pi, k);
        ASSERT_TRUE(pi.name && pi.explanation) << k;
        const Expected& want = params[std::size_t(k)];
        EXPECT_EQ(std::make_tuple(std::string(pi.name), pi.type), std::make_tuple(want.name, want.type));
        EXPECT_GT(std::strlen(pi.explanation), 20u) << pi.name;
        f0r_param_color_t colour{1, 1, 1};
        double number = -1;
        p.get_param_value(instance, pi.type == F0R_PARAM_COLOR ? static_cast<void*>(&colour) : &number, k);
        const double got = pi.type == F0R_PARAM_COLOR ? double(colour.r + colour.g + colour.b) : number;
        EXPECT_DOUBLE_EQ(got, want.value) << pi.name;
    }
    double half = 0.5, progress = -1;   // values read back as they were set
    p.set_param_value(instance, &half, p.paramIndex("Progress"));
    p.get_param_value(instance, &progress, p.paramIndex("Progress"));
    EXPECT_EQ(progress, 0.5);
    p.destruct(instance);
    for (auto size : {std::pair<unsigned, unsigned>{0, 5}, {5, 0}, {65536, 1}, {1, 65536}})
        EXPECT_EQ(p.construct(size.first, size.second), nullptr) << size.first << "x" << size.second;
    for (const char* hidden : {"GenerateDIB", "FLR_LineFilter", "_Z13SolarizeLine2RK5FrameR5CarrytPh",
                               "kEffectTable", "_ZN8flairize6renderERKNS_12HostServicesEP11GlobalBlockRKNS_8SettingsENS_3MixE"})
        EXPECT_EQ(dlsym(p.handle, hidden), nullptr) << hidden;
}

// Every setting (the parameters' rounding and clamping) on sizes the
// conformance table does not reach, through f0r_update, in place and through
// f0r_update2, equals the engine's render of the same frame.
TEST_P(Frei0rEffect, FramesMatchTheEngineByteForByte) {
    Plugin& p = loaded();
    ASSERT_TRUE(p.complete());
    for (auto size : {std::pair<unsigned, unsigned>{97, 61}, {3, 130}, {65535, 1}}) {
        const unsigned w = size.first, h = size.second;
        f0r_instance_t instance = p.construct(w, h);
        ASSERT_NE(instance, nullptr) << w << "x" << h;
        unsigned seed = 0;
        for (const Setting& s : kSettings) {
            SCOPED_TRACE(std::to_string(w) + "x" + std::to_string(h) + ", " + s.what);
            apply(p, instance, index(), s);
            const Frame in = patternFrame(w, h, seed++);
            const bool filterOnly = flairize::effectFadesIn(index()) && !s.mix;
            const Frame expected = engineRender(in, w, h, settingsFor(index(), s), filterOnly);
            ASSERT_EQ(expected.size(), in.size()) << "the engine refused the picture";
            EXPECT_TRUE(pluginRender(p, instance, in) == expected);
            Frame inPlace = in, second(in.size());
            p.update(instance, 1.0, reinterpret_cast<const std::uint32_t*>(inPlace.data()),
                     reinterpret_cast<std::uint32_t*>(inPlace.data()));
            EXPECT_TRUE(inPlace == expected) << "in place";
            p.update2(instance, 2.0, reinterpret_cast<const std::uint32_t*>(in.data()), nullptr, nullptr,
                      reinterpret_cast<std::uint32_t*>(second.data()));
            EXPECT_TRUE(second == expected) << "f0r_update2";
            if (s.progressSteps == 0 && flairize::effectFadesIn(index())) {
                EXPECT_TRUE(expected == in) << "effects that fade in show the source at progress 0";
            }
        }
        p.destruct(instance);
    }
}

INSTANTIATE_TEST_SUITE_P(Offered, Frei0rEffect, testing::ValuesIn(offeredEffects()),
                         [](const testing::TestParamInfo<Offered>& param) {
                             std::string name = param.param.slug;
                             for (char& c : name)
                                 if (c == '-') c = '_';
                             return name;
                         });

// Several threads, each with its own instances of every offered effect, render
// frames at once while changing parameters between frames; every result must
// equal the same frame rendered alone on one thread from a fresh instance.
TEST(Frei0rPlugins, ManyInstancesOnManyThreadsMatchOneThread) {
    constexpr unsigned kThreads = 4, kFrames = 24;
    const auto offered = offeredEffects();
    ASSERT_EQ(offered.size(), flairize::offeredCount());
    // Frame k of effect e on thread t: a size per thread, an input and a setting per frame.
    auto width = [](unsigned t) { return 41 + 2 * t; };
    auto input = [&](unsigned t, unsigned k) { return patternFrame(width(t), 23 + t, k * 7 + t); };
    auto setting = [](unsigned t, unsigned k) { return kSettings[1 + (k + t) % unsigned(std::size(kSettings) - 1)]; };
    auto slot = [&](unsigned t, std::size_t e, unsigned k) { return (t * offered.size() + e) * kFrames + k; };
    std::vector<Frame> expected(kThreads * offered.size() * kFrames), results(expected.size());
    std::vector<const Plugin*> plugins;
    for (const Offered& e : offered) plugins.push_back(&plugin(e));
    for (unsigned t = 0; t < kThreads; ++t)
        for (std::size_t e = 0; e < offered.size(); ++e) {
            const Plugin& p = *plugins[e];
            ASSERT_TRUE(p.complete()) << pluginPath(offered[e]);
            for (unsigned k = 0; k < kFrames; ++k) {
                f0r_instance_t instance = p.construct(width(t), 23 + t);
                ASSERT_NE(instance, nullptr);
                apply(p, instance, offered[e].index, setting(t, k));
                expected[slot(t, e, k)] = pluginRender(p, instance, input(t, k));
                p.destruct(instance);
            }
        }
    std::atomic<unsigned> ready{0};
    std::vector<std::thread> threads;
    for (unsigned t = 0; t < kThreads; ++t)
        threads.emplace_back([&, t] {
            std::vector<f0r_instance_t> instances;
            for (const Plugin* p : plugins) instances.push_back(p->construct(width(t), 23 + t));
            ++ready;
            while (ready.load() < kThreads) std::this_thread::yield();
            for (unsigned k = 0; k < kFrames; ++k)   // frame k of every effect, in turn
                for (std::size_t e = 0; e < offered.size(); ++e) {
                    if (!instances[e]) continue;
                    apply(*plugins[e], instances[e], offered[e].index, setting(t, k));
                    results[slot(t, e, k)] = pluginRender(*plugins[e], instances[e], input(t, k));
                }
            for (std::size_t e = 0; e < offered.size(); ++e)
                if (instances[e]) plugins[e]->destruct(instances[e]);
        });
    for (auto& th : threads) th.join();
    for (unsigned t = 0; t < kThreads; ++t)
        for (std::size_t e = 0; e < offered.size(); ++e)
            for (unsigned k = 0; k < kFrames; ++k)
                EXPECT_TRUE(results[slot(t, e, k)] == expected[slot(t, e, k)])
                    << offered[e].name << ", thread " << t << ", frame " << k;
}

}  // namespace

#endif  // FLAIRIZE_FREI0R_DIR
