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
#include <sys/stat.h>

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
#include <vector>

#include "engine/effect_table.h"
#include "engine/filters.h"
#include "engine/render.h"
#include "host/exports.h"
#include "standalone/host_context.h"
#include "tests/picture_support.h"

using namespace testpic;

namespace {

struct Offered {
    unsigned index;
    std::string name;
    std::string slug;   // "find-edges"
};

void PrintTo(const Offered& e, std::ostream* os) { *os << e.name; }

std::vector<Offered> offeredEffects() {
    std::vector<Offered> all;
    for (unsigned i = 0; i < kEffectCount; ++i) {
        const std::string name = plat::loadString(g_effectTable[i].nameId);
        if (name.empty() || name[0] == '*') continue;
        std::string slug;
        for (char c : name) slug.push_back(c == ' ' ? '-' : char(std::tolower(static_cast<unsigned char>(c))));
        all.push_back({i, name, slug});
    }
    return all;
}

// The effect exists in this build: a filter, and for a row effect both row functions.
bool inThisBuild(const EffectRecord& e) {
    return e.filter && (e.filter != FLR_LineFilter || (e.line1 && e.line2));
}

std::string pluginPath(const Offered& e) { return std::string(FLAIRIZE_FREI0R_DIR) + "/flairize-" + e.slug + ".so"; }

// A plug-in opened as a host opens it; kept open for the life of the test binary.
struct Plugin {
    void* handle = nullptr;
    decltype(&f0r_init) init = nullptr;
    decltype(&f0r_get_plugin_info) info = nullptr;
    decltype(&f0r_get_param_info) paramInfo = nullptr;
    decltype(&f0r_construct) construct = nullptr;
    decltype(&f0r_destruct) destruct = nullptr;
    decltype(&f0r_set_param_value) set = nullptr;
    decltype(&f0r_get_param_value) get = nullptr;
    decltype(&f0r_update) update = nullptr;
    decltype(&f0r_update2) update2 = nullptr;

    template <typename F>
    void bind(F& f, const char* name) {
        f = reinterpret_cast<F>(dlsym(handle, name));
    }
    explicit Plugin(const std::string& path) : handle(dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL)) {
        if (!handle) return;
        bind(init, "f0r_init");
        bind(info, "f0r_get_plugin_info");
        bind(paramInfo, "f0r_get_param_info");
        bind(construct, "f0r_construct");
        bind(destruct, "f0r_destruct");
        bind(set, "f0r_set_param_value");
        bind(get, "f0r_get_param_value");
        bind(update, "f0r_update");
        bind(update2, "f0r_update2");
    }
    bool complete() const {
        return handle && init && info && paramInfo && construct && destruct && set && get && update && update2;
    }
    int paramIndex(const std::string& name) const {
        f0r_plugin_info_t pi{};
        info(&pi);
        for (int k = 0; k < pi.num_params; ++k) {
            f0r_param_info_t p{};
            paramInfo(&p, k);
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

struct ExpectedParam {
    std::string name;
    int type;
};
// Shown sliders by label, then Progress, Color for colour effects, Mix for effects that fade in.
std::vector<ExpectedParam> expectedParams(const EffectRecord& e) {
    std::vector<ExpectedParam> params;
    for (auto id : e.labelIds)
        if (id) params.push_back({plat::loadString(id), F0R_PARAM_DOUBLE});
    params.push_back({"Progress", F0R_PARAM_DOUBLE});
    if (e.flags & kFlagColour) params.push_back({"Color", F0R_PARAM_COLOR});
    if (e.flags & kFlagMix) params.push_back({"Mix", F0R_PARAM_BOOL});
    return params;
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
// first, through GenerateDIB (or the filter alone), read back top row first.
Frame engineRender(const Frame& in, unsigned w, unsigned h, SettingsRecord record, bool filterOnly) {
    Owned source(make(int(w), int(h), 32, [&](int x, int y) {
        const std::uint8_t* p = &in[(std::size_t(h - 1 - unsigned(y)) * w + unsigned(x)) * 4];
        return Bgra{p[0], p[1], p[2], p[3]};
    }));
    standalone::Context context(&record, source);
    HGLOBAL result = nullptr;
    if (filterOnly)
        result = render::filterOnly(context.engineView());
    else if (!GenerateDIB(context.engineView(), &result, 0))
        result = nullptr;
    Owned owned(result);
    if (!result) return {};
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

// Sets `s` on an instance through the plug-in's own parameter list.
void apply(const Plugin& p, f0r_instance_t instance, const EffectRecord& e, const Setting& s) {
    if (!s.setAny) return;
    for (unsigned k = 0; k < 3; ++k) {
        if (!e.labelIds[k]) continue;
        double v = s.slider[k];
        p.set(instance, &v, p.paramIndex(plat::loadString(e.labelIds[k])));
    }
    double progress = s.progress;
    p.set(instance, &progress, p.paramIndex("Progress"));
    if (e.flags & kFlagColour) {
        f0r_param_color_t c = s.colour;
        p.set(instance, &c, p.paramIndex("Color"));
    }
    if (e.flags & kFlagMix) {
        double mix = s.mix ? 1.0 : 0.0;
        p.set(instance, &mix, p.paramIndex("Mix"));
    }
}

// The settings record `flairize render` would build for the same values.
SettingsRecord recordFor(unsigned index, const EffectRecord& e, const Setting& s) {
    SettingsRecord r{};
    r.effect = std::uint16_t(index);
    r.progress = s.progressSteps;
    std::uint16_t* params[3] = {&r.param1, &r.param2, &r.param3};
    for (unsigned k = 0; k < 3; ++k) *params[k] = s.setAny && e.labelIds[k] ? s.sliderSteps[k] : e.defaults[k];
    r.colour = (e.flags & kFlagColour) ? s.colourRef : 0;
    r.direction = kDirectionForward;
    return r;
}
bool filterOnlyFor(const EffectRecord& e, const Setting& s) { return (e.flags & kFlagMix) && !s.mix; }

class Frei0rEffect : public testing::TestWithParam<Offered> {
protected:
    const Offered& effect() const { return GetParam(); }
    const EffectRecord& record() const { return g_effectTable[effect().index]; }
    Plugin& loaded() {
        Plugin& p = plugin(effect());
        EXPECT_TRUE(p.complete()) << pluginPath(effect()) << ": " << (p.handle ? "missing f0r_* functions" : dlerror());
        return p;
    }
    // True when the effect is not in this build, after checking that the plug-in refuses it.
    bool refusedAsNotInThisBuild(Plugin& p) {
        EXPECT_EQ(p.init() == 1, inThisBuild(record()));
        if (inThisBuild(record())) return false;
        EXPECT_EQ(p.construct(97, 61), nullptr) << "a plug-in without its effect must not make instances";
        return true;
    }
};

TEST_P(Frei0rEffect, InfoAndParametersFollowTheEffectTable) {
    Plugin& p = loaded();
    ASSERT_TRUE(p.complete());
    f0r_plugin_info_t info{};
    p.info(&info);
    EXPECT_STREQ(info.name, effect().name.c_str());
    EXPECT_STREQ(info.author, "Flairize");
    ASSERT_NE(info.explanation, nullptr);
    EXPECT_NE(std::string(info.explanation).find(effect().name), std::string::npos) << info.explanation;
    EXPECT_EQ(info.plugin_type, F0R_PLUGIN_TYPE_FILTER);
    EXPECT_EQ(info.color_model, F0R_COLOR_MODEL_BGRA8888);
    EXPECT_EQ(info.frei0r_version, FREI0R_MAJOR_VERSION);
    EXPECT_EQ(info.major_version, FLAIRIZE_VERSION_MAJOR);
    EXPECT_EQ(info.minor_version, FLAIRIZE_VERSION_MINOR);

    const auto expected = expectedParams(record());
    ASSERT_EQ(info.num_params, int(expected.size()));
    for (int k = 0; k < info.num_params; ++k) {
        f0r_param_info_t pi{};
        p.paramInfo(&pi, k);
        ASSERT_NE(pi.name, nullptr) << k;
        EXPECT_EQ(pi.name, expected[std::size_t(k)].name) << k;
        EXPECT_EQ(pi.type, expected[std::size_t(k)].type) << pi.name;
        ASSERT_NE(pi.explanation, nullptr) << pi.name;
        EXPECT_GT(std::strlen(pi.explanation), 20u) << pi.name;
    }

    if (refusedAsNotInThisBuild(p)) return;   // its info is all it gives
    for (auto size : {std::pair<unsigned, unsigned>{0, 5}, {5, 0}, {65536, 1}, {1, 65536}})
        EXPECT_EQ(p.construct(size.first, size.second), nullptr) << size.first << "x" << size.second;
    // Defaults: sliders at the effect's defaults / 255, the full effect, black, mixed.
    f0r_instance_t instance = p.construct(16, 8);
    ASSERT_NE(instance, nullptr);
    for (unsigned k = 0; k < 3; ++k) {
        if (!record().labelIds[k]) continue;
        double v = -1;
        p.get(instance, &v, p.paramIndex(plat::loadString(record().labelIds[k])));
        EXPECT_DOUBLE_EQ(v, record().defaults[k] / 255.0);
    }
    double progress = -1;
    p.get(instance, &progress, p.paramIndex("Progress"));
    EXPECT_EQ(progress, 1.0);
    if (record().flags & kFlagColour) {
        f0r_param_color_t c{1, 1, 1};
        p.get(instance, &c, p.paramIndex("Color"));
        EXPECT_EQ(c.r + c.g + c.b, 0.0f);
    }
    if (record().flags & kFlagMix) {
        double mix = 0;
        p.get(instance, &mix, p.paramIndex("Mix"));
        EXPECT_EQ(mix, 1.0);
    }
    // Values read back as they were set.
    double half = 0.5;
    p.set(instance, &half, p.paramIndex("Progress"));
    p.get(instance, &progress, p.paramIndex("Progress"));
    EXPECT_EQ(progress, 0.5);
    p.destruct(instance);
}

TEST_P(Frei0rEffect, FramesMatchTheEngineByteForByte) {
    Plugin& p = loaded();
    ASSERT_TRUE(p.complete());
    if (refusedAsNotInThisBuild(p))
        GTEST_SKIP() << effect().name << " is not in this build: its plug-in refuses to start (f0r_init 0)";
    struct Size { unsigned w, h; };
    const Size sizes[] = {{97, 61}, {1, 1}, {1, 9}, {9, 1}, {16, 8}, {3, 130}, {65535, 1}};
    for (const Size& size : sizes) {
        f0r_instance_t instance = p.construct(size.w, size.h);
        ASSERT_NE(instance, nullptr) << size.w << "x" << size.h;
        unsigned seed = 0;
        for (const Setting& s : kSettings) {
            SCOPED_TRACE(std::to_string(size.w) + "x" + std::to_string(size.h) + ", " + s.what);
            apply(p, instance, record(), s);
            const Frame in = patternFrame(size.w, size.h, seed++);
            const Frame expected = engineRender(in, size.w, size.h, recordFor(effect().index, record(), s),
                                                filterOnlyFor(record(), s));
            ASSERT_EQ(expected.size(), in.size()) << "the engine refused the picture";
            EXPECT_TRUE(pluginRender(p, instance, in) == expected);
            // In place (the same buffer in and out), and through f0r_update2.
            Frame inPlace = in;
            p.update(instance, 1.0, reinterpret_cast<const std::uint32_t*>(inPlace.data()),
                     reinterpret_cast<std::uint32_t*>(inPlace.data()));
            EXPECT_TRUE(inPlace == expected) << "in place";
            Frame second(in.size());
            p.update2(instance, 2.0, reinterpret_cast<const std::uint32_t*>(in.data()), nullptr, nullptr,
                      reinterpret_cast<std::uint32_t*>(second.data()));
            EXPECT_TRUE(second == expected) << "f0r_update2";
            // Effects that fade in show the source unchanged at progress 0.
            if (s.progressSteps == 0 && (record().flags & kFlagMix)) {
                EXPECT_TRUE(expected == in);
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

TEST(Frei0rPlugins, OnePerOfferedEffectShowingOnlyTheFrei0rFunctions) {
    const auto offered = offeredEffects();
    ASSERT_EQ(offered.size(), 30u);
    for (const Offered& e : offered) {
        SCOPED_TRACE(pluginPath(e));
        struct stat st {};
        ASSERT_EQ(stat(pluginPath(e).c_str(), &st), 0) << "not built";
        Plugin& p = plugin(e);
        ASSERT_TRUE(p.complete());
        // The engine inside stays private, so plug-ins loaded together cannot clash.
        for (const char* hidden : {"GenerateDIB", "FLR_LineFilter", "SolarizeLine2", "AnimKit_SourcePicture",
                                   "BaseKit_MixPictures", "InitData", "g_effectTable", "_Z11renderStatev"})
            EXPECT_EQ(dlsym(p.handle, hidden), nullptr) << hidden;
    }
}

// Several threads, each with its own instances of every effect in this build,
// render frames at once while changing parameters between frames; every result
// must equal the same frame rendered alone on one thread.
TEST(Frei0rPlugins, ManyInstancesOnManyThreadsMatchOneThread) {
    struct Job {
        const Plugin* plugin;
        const EffectRecord* effect;
        unsigned w, h;
        std::vector<Frame> inputs, expected, results;
        std::vector<unsigned> settings;
    };
    constexpr unsigned kThreads = 4, kFrames = 24;
    std::vector<std::vector<Job>> perThread(kThreads);
    unsigned covered = 0;
    for (const Offered& e : offeredEffects()) {
        const EffectRecord& record = g_effectTable[e.index];
        if (!inThisBuild(record)) continue;
        ++covered;
        Plugin& p = plugin(e);
        ASSERT_TRUE(p.complete());
        for (unsigned t = 0; t < kThreads; ++t) {
            Job job{&p, &record, 41 + 2 * t, 23 + t, {}, {}, {}, {}};
            for (unsigned k = 0; k < kFrames; ++k) {
                job.inputs.push_back(patternFrame(job.w, job.h, k * 7 + t));
                job.settings.push_back(1 + (k + t) % unsigned(std::size(kSettings) - 1));
            }
            perThread[t].push_back(std::move(job));
        }
    }
    if (covered == 0) GTEST_SKIP() << "no offered effect is in this build yet";

    // Single-threaded results first, each from a fresh instance.
    for (auto& jobs : perThread)
        for (Job& job : jobs)
            for (unsigned k = 0; k < kFrames; ++k) {
                f0r_instance_t instance = job.plugin->construct(job.w, job.h);
                ASSERT_NE(instance, nullptr);
                apply(*job.plugin, instance, *job.effect, kSettings[job.settings[k]]);
                job.expected.push_back(pluginRender(*job.plugin, instance, job.inputs[k]));
                job.plugin->destruct(instance);
            }

    std::atomic<unsigned> ready{0};
    std::vector<std::thread> threads;
    for (unsigned t = 0; t < kThreads; ++t)
        threads.emplace_back([&, t] {
            std::vector<f0r_instance_t> instances;
            for (Job& job : perThread[t]) instances.push_back(job.plugin->construct(job.w, job.h));
            ++ready;
            while (ready.load() < kThreads) std::this_thread::yield();
            for (unsigned k = 0; k < kFrames; ++k)   // frame k of every effect, in turn
                for (std::size_t j = 0; j < instances.size(); ++j) {
                    Job& job = perThread[t][j];
                    if (!instances[j]) continue;
                    apply(*job.plugin, instances[j], *job.effect, kSettings[job.settings[k]]);
                    job.results.push_back(pluginRender(*job.plugin, instances[j], job.inputs[k]));
                }
            for (std::size_t j = 0; j < instances.size(); ++j)
                if (instances[j]) perThread[t][j].plugin->destruct(instances[j]);
        });
    for (auto& th : threads) th.join();

    for (unsigned t = 0; t < kThreads; ++t)
        for (const Job& job : perThread[t]) {
            ASSERT_EQ(job.results.size(), std::size_t(kFrames)) << "an instance could not be made";
            for (unsigned k = 0; k < kFrames; ++k)
                EXPECT_TRUE(job.results[k] == job.expected[k])
                    << plat::loadString(job.effect->nameId) << ", thread " << t << ", frame " << k;
        }
}

}  // namespace

#endif  // FLAIRIZE_FREI0R_DIR
