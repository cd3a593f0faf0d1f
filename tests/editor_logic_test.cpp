#include <gtest/gtest.h>

#include "editor/editor_logic.h"
#include "engine/flairize.h"

#include <cctype>

using namespace editor;

// The offered effects, sorted without regard to case, from "Bricks" to "Weave";
// each item names its effect.
TEST(EditorLogic, EffectListHoldsTheOfferedEffectsSorted) {
    const auto items = effectList();
    ASSERT_EQ(items.size(), flairize::offeredCount());
    EXPECT_EQ(items.front().name, "Bricks");
    EXPECT_EQ(items.back().name, "Weave");
    auto lower = [](std::string s) {
        for (char& c : s) c = char(std::tolower(static_cast<unsigned char>(c)));
        return s;
    };
    for (std::size_t i = 0; i < items.size(); ++i) {
        EXPECT_TRUE(flairize::effectOffered(items[i].effect));
        EXPECT_EQ(flairize::effectName(items[i].effect), items[i].name);
        if (i > 0) {
            EXPECT_LT(lower(items[i - 1].name), lower(items[i].name));
        }
    }
}

TEST(EditorLogic, SlidersColourButtonAndDefaults) {
    struct Case { std::uint16_t effect; const char* labels[3]; };
    const Case cases[] = {
        {15, {"", "", ""}},  {14, {"Angle", "Amount", ""}},          {20, {"Angle", "", ""}},
        {22, {"", "", ""}},  {10, {"Number", "Randomness", ""}},     {34, {"Size", "", ""}},
        {32, {"Colors", "", ""}}, {36, {"Number", "Randomness", ""}},
    };
    for (const Case& c : cases) {
        const SliderView v = sliders(c.effect);
        for (int k = 0; k < 3; ++k) {
            EXPECT_EQ(v.label[std::size_t(k)], c.labels[k]) << c.effect;
            EXPECT_EQ(v.visible(k), c.labels[k][0] != '\0');
        }
    }
    std::vector<std::string> coloured;
    for (const auto& item : effectList())
        if (colourButtonEnabled(item.effect)) coloured.push_back(item.name);
    EXPECT_EQ(coloured, (std::vector<std::string>{"Contours", "Crosshair", "Find Edges", "Pointillize", "Rain",
                                                  "Sampler", "Smudge", "Stamp", "Triangles"}));

    // A new selection loads all three defaults, hidden sliders' zeros included.
    SettingsRecord r{};
    r.param1 = 9, r.param2 = 8, r.param3 = 7;
    WorkingParameters w = WorkingParameters::from(r);
    EXPECT_EQ(w.p, (std::array<std::uint16_t, 3>{9, 8, 7}));
    w.loadDefaults(34);
    EXPECT_EQ(w.p, (std::array<std::uint16_t, 3>{255, 0, 0}));
    w.loadDefaults(14);
    EXPECT_EQ(w.p, (std::array<std::uint16_t, 3>{0, 128, 0}));
}

TEST(EditorLogic, OkCancelAndDirection) {
    SettingsRecord r{};
    r.effect = 8;
    r.param1 = 11, r.param2 = 22, r.param3 = 33;
    r.direction = 0xF0000002;
    r.colour = 0x123456;
    // Cancel after a direction and colour change: those stay, effect and parameters do not move.
    applyDirection(r, 1);
    r.colour = 0x00FF00;
    EXPECT_EQ(std::uint32_t(r.direction), 0xF0000001u);
    EXPECT_EQ(r.effect, 8);
    // OK on a record naming an unlisted effect stores the list's first effect with the working values.
    const WorkingParameters w = WorkingParameters::from(r);
    commit(r, effectList()[0].effect, w);
    EXPECT_EQ(r.effect, 15);
    EXPECT_EQ(r.param1, 11);
    EXPECT_EQ(r.param3, 33);
    EXPECT_EQ(std::uint32_t(r.colour), 0x00FF00u);
    applyDirection(r, 7);   // only two bits reach the record
    EXPECT_EQ(std::uint32_t(r.direction), 0xF0000003u);
}
