// The frei0r plug-ins as a host uses them: information and parameters from the
// effect table, parameter values rounded and clamped into the engine's steps,
// frames in place and through f0r_update2, and many instances on many threads.
// (The conformance check renders every row of 32-bit sources through them.)
#include <gtest/gtest.h>

#ifndef FLAIRIZE_FREI0R_DIR

TEST(Frei0rPlugins, NotBuilt) {
    GTEST_SKIP() << "frei0r.h was not found when the build was configured (Debian package frei0r-plugins-dev): "
                    "no frei0r plug-ins were built";
}

#else

#include <atomic>
#include <cmath>
#include <cstring>
#include <thread>

#include "frei0r/plugin_loader.h"


namespace {

std::vector<unsigned> offeredEffects() {
    std::vector<unsigned> all;
    for (unsigned i = 0; i < flairize::effectCount(); ++i)
        if (flairize::effectOffered(i)) all.push_back(i);
    return all;
}

// Frames: 4 bytes a pixel (blue, green, red, alpha), top row first, no padding.
using Frame = std::vector<std::uint8_t>;

// Varied colours and alphas (0 and 255 included), different for every seed and
// different top and bottom, so a wrong row order shows.
Frame patternFrame(unsigned w, unsigned h, unsigned seed) {
    Frame f(std::size_t(w) * h * 4);
    for (std::size_t i = 0; i < f.size(); i += 4) {
        const unsigned x = unsigned(i / 4 % w), y = unsigned(i / 4 / w), a = (x * 13 + y * 29 + seed * 7) % 300;
        f[i] = std::uint8_t(x * 37 + y * 11 + seed * 5);
        f[i + 1] = std::uint8_t(x * 5 + y * 71 + 19 + seed * 3);
        f[i + 2] = std::uint8_t((x ^ y) * 23 + 101 + seed);
        f[i + 3] = std::uint8_t(a > 255 ? (a > 280 ? 0 : 255) : a);
    }
    return f;
}

Frame pluginRender(const Frei0rPlugin& p, f0r_instance_t instance, const Frame& in) {
    Frame out(in.size());
    p.update(instance, 0.0, reinterpret_cast<const std::uint32_t*>(in.data()), reinterpret_cast<std::uint32_t*>(out.data()));
    return out;
}

// Parameter values as a host may set them, and exact steps (k / 255 for a
// slider, k / 16384 for the progress) that must render the same: values round
// to the nearest step and clamp into range. (The conformance check ties exact
// steps to the engine's render.)
struct Setting {
    const char* what;
    double slider[3], progress;
    f0r_param_color_t colour;
    bool mix;
    double exactSlider[3], exactProgress;
    f0r_param_color_t exactColour;
};
const Setting kSettings[] = {
    {"halves round up", {0.5, 0.3749, 0.0627}, 0.5, {0.2f, 0.6f, 1.0f}, true,
     {128 / 255.0, 96 / 255.0, 16 / 255.0}, 0.5, {0.2f, 0.6f, 1.0f}},
    {"mix off", {100 / 255.0, 0.999, 0.002}, 0.1, {1.0f, 0.5f, 0.0f}, false,
     {100 / 255.0, 1.0, 1 / 255.0}, 1638 / 16384.0, {1.0f, 128 / 255.0f, 0.0f}},
    {"out of range clamps", {-0.5, 1.5, std::nan("")}, 1.7, {-1.0f, 2.0f, 0.5f}, true,
     {0.0, 1.0, 0.0}, 1.0, {0.0f, 1.0f, 0.5f}},
    {"progress rounds to nearest", {0.2, 0.8, 0.6}, 0.99996, {0, 0, 0}, true,
     {51 / 255.0, 204 / 255.0, 153 / 255.0}, 16383 / 16384.0, {0, 0, 0}},
};

void apply(const Frei0rPlugin& p, f0r_instance_t instance, unsigned e, const Setting& s, bool exact = false) {
    for (int k = 0; k < 3; ++k)
        if (flairize::sliderLabelId(e, k)) p.set(instance, flairize::sliderLabel(e, k), exact ? s.exactSlider[k] : s.slider[k]);
    p.set(instance, "Progress", exact ? s.exactProgress : s.progress);
    p.set(instance, "Color", exact ? s.exactColour : s.colour);
    p.set(instance, "Mix", s.mix ? 1.0 : 0.0);
}

class Frei0rEffect : public testing::TestWithParam<unsigned> {};

// A frame size the engine cannot serve is refused; the engine inside stays private.
TEST_P(Frei0rEffect, RefusesBadSizesAndHidesTheEngine) {
    const Frei0rPlugin& p = frei0rPlugin(GetParam());
    ASSERT_TRUE(p.complete()) << p.path << ": " << dlerror();
    for (auto size : {std::pair<unsigned, unsigned>{0, 5}, {5, 0}, {65536, 1}, {1, 65536}})
        EXPECT_EQ(p.construct(size.first, size.second), nullptr) << size.first << "x" << size.second;
    for (const char* hidden : {"GenerateDIB", "FLR_LineFilter", "_Z13SolarizeLine2RK5FrameR5CarrytPh", "kEffectTable"})
        EXPECT_EQ(dlsym(p.handle, hidden), nullptr) << hidden;
}

// Every setting renders as its exact steps do, through f0r_update, in place
// and through f0r_update2, also on the widest frame.
TEST_P(Frei0rEffect, ParameterStepsAndFrameForms) {
    const unsigned e = GetParam();
    const Frei0rPlugin& p = frei0rPlugin(e);
    ASSERT_TRUE(p.complete()) << p.path;
    for (auto size : {std::pair<unsigned, unsigned>{97, 61}, {65535, 1}}) {
        const unsigned w = size.first, h = size.second;
        f0r_instance_t instance = p.construct(w, h), exact = p.construct(w, h);
        unsigned seed = 0;
        for (const Setting& s : kSettings) {
            SCOPED_TRACE(std::to_string(w) + "x" + std::to_string(h) + ", " + s.what);
            apply(p, instance, e, s);
            apply(p, exact, e, s, true);
            const Frame in = patternFrame(w, h, seed++), expected = pluginRender(p, exact, in);
            EXPECT_TRUE(pluginRender(p, instance, in) == expected);
            Frame inPlace = in, second(in.size());
            p.update(instance, 1.0, reinterpret_cast<const std::uint32_t*>(inPlace.data()),
                     reinterpret_cast<std::uint32_t*>(inPlace.data()));
            EXPECT_TRUE(inPlace == expected) << "in place";
            p.update2(instance, 2.0, reinterpret_cast<const std::uint32_t*>(in.data()), nullptr, nullptr,
                      reinterpret_cast<std::uint32_t*>(second.data()));
            EXPECT_TRUE(second == expected) << "f0r_update2";
        }
        p.destruct(instance);
        p.destruct(exact);
    }
}

INSTANTIATE_TEST_SUITE_P(Offered, Frei0rEffect, testing::ValuesIn(offeredEffects()),
                         [](const testing::TestParamInfo<unsigned>& param) {
                             std::string name = flairize::effectSlug(param.param);
                             for (char& c : name) c = c == '-' ? '_' : c;
                             return name;
                         });

// Several threads, each with its own instances of every offered effect, render
// frames at once while changing parameters between frames; every result must
// equal the same frame rendered alone on one thread from a fresh instance.
TEST(Frei0rPlugins, ManyInstancesOnManyThreadsMatchOneThread) {
    constexpr unsigned kThreads = 4, kFrames = 12;
    const auto offered = offeredEffects();
    auto width = [](unsigned t) { return 41 + 2 * t; };
    auto input = [&](unsigned t, unsigned k) { return patternFrame(width(t), 23 + t, k * 7 + t); };
    auto setting = [](unsigned t, unsigned k) { return kSettings[(k + t) % std::size(kSettings)]; };
    auto slot = [&](unsigned t, std::size_t e, unsigned k) { return (t * offered.size() + e) * kFrames + k; };
    std::vector<Frame> expected(kThreads * offered.size() * kFrames), results(expected.size());
    for (unsigned t = 0; t < kThreads; ++t)
        for (std::size_t e = 0; e < offered.size(); ++e) {
            const Frei0rPlugin& p = frei0rPlugin(offered[e]);
            ASSERT_TRUE(p.complete()) << p.path;
            for (unsigned k = 0; k < kFrames; ++k) {
                f0r_instance_t instance = p.construct(width(t), 23 + t);
                apply(p, instance, offered[e], setting(t, k));
                expected[slot(t, e, k)] = pluginRender(p, instance, input(t, k));
                p.destruct(instance);
            }
        }
    std::vector<const Frei0rPlugin*> plugins;
    for (unsigned e : offered) plugins.push_back(&frei0rPlugin(e));
    std::atomic<unsigned> ready{0};
    std::vector<std::thread> threads;
    for (unsigned t = 0; t < kThreads; ++t)
        threads.emplace_back([&, t] {
            std::vector<f0r_instance_t> instances;
            for (const Frei0rPlugin* p : plugins) instances.push_back(p->construct(width(t), 23 + t));
            ++ready;
            while (ready.load() < kThreads) std::this_thread::yield();
            for (unsigned k = 0; k < kFrames; ++k)   // frame k of every effect, in turn
                for (std::size_t e = 0; e < offered.size(); ++e) {
                    apply(*plugins[e], instances[e], offered[e], setting(t, k));
                    results[slot(t, e, k)] = pluginRender(*plugins[e], instances[e], input(t, k));
                }
            for (std::size_t e = 0; e < offered.size(); ++e) plugins[e]->destruct(instances[e]);
        });
    for (auto& th : threads) th.join();
    for (std::size_t i = 0; i < results.size(); ++i)
        EXPECT_TRUE(results[i] == expected[i]) << flairize::effectName(offered[i / kFrames % offered.size()]) << ", slot " << i;
}

}  // namespace

#endif  // FLAIRIZE_FREI0R_DIR
