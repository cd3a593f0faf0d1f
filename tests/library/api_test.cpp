// libflairize's C interface at its edge, through nothing but its header and
// the shared library: arguments it refuses (with the documented status, the
// output untouched), what it does without memory, and the catalogue, settings
// block and timing functions' answers for values outside their ranges. The
// rendered pixels themselves are the conformance check's (its C library rows).
#include <flairize/flairize.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <functional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define FLAIRIZE_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer) || __has_feature(memory_sanitizer)
#define FLAIRIZE_SANITIZED 1
#endif
#endif

extern "C" int flairize_header_check_c(void);  // header_check.c: the header compiled as C99

namespace {

unsigned effectNamed(const char* slug) {
    unsigned effect = ~0u;
    EXPECT_EQ(flairize_effect_find(slug, &effect), FLAIRIZE_OK) << slug;
    return effect;
}

// A small picture with every byte different from its neighbours.
std::vector<std::uint8_t> patternBytes(std::size_t size) {
    std::vector<std::uint8_t> bytes(size);
    for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<std::uint8_t>(i * 37 + (i >> 5));
    return bytes;
}

// A render call with all of its arguments, valid until a case changes one.
struct RenderCall {
    std::vector<std::uint8_t> buffer = std::vector<std::uint8_t>(4096, 0xA5);
    flairize_settings settings{};
    const flairize_settings* settingsArg = &settings;
    const void* source;
    void* output;
    std::ptrdiff_t sourceStride = 16, outputStride = 16;
    std::uint32_t width = 4, height = 3, bytesPerPixel = 3;
    flairize_channel_order order = FLAIRIZE_ORDER_BGR;

    RenderCall() {
        flairize_settings_init(&settings, effectNamed("posterize"));
        const std::vector<std::uint8_t> pattern = patternBytes(1024);
        std::memcpy(buffer.data(), pattern.data(), pattern.size());
        source = buffer.data();
        output = buffer.data() + 2048;
    }
    flairize_status run(const char** message) {
        return flairize_render(nullptr, settingsArg, source, sourceStride, output, outputStride, width, height,
                               bytesPerPixel, order, message);
    }
};

#if !FLAIRIZE_SANITIZED
// Renders a 1600 x 1600 picture with 2 MiB of address space to spare and ends
// the process with the render's status.
[[noreturn]] void renderWithoutMemory(unsigned effect, flairize_channel_order order, unsigned threads) {
    const std::uint32_t side = 1600;
    const std::size_t size = std::size_t(side) * side * 4;
    std::vector<std::uint8_t> source = patternBytes(size), output(size);
    flairize_settings settings;
    flairize_settings_init(&settings, effect);
    settings.progress = 8000;
    std::ifstream statm("/proc/self/statm");
    unsigned long pages = 0;
    statm >> pages;
    const rlimit limit{pages * static_cast<unsigned long>(sysconf(_SC_PAGESIZE)) + (2ul << 20), RLIM_INFINITY};
    if (setrlimit(RLIMIT_AS, &limit) != 0) std::_Exit(100);
    flairize_renderer* renderer = nullptr;
    flairize_status status = threads > 1 ? flairize_renderer_new(threads, &renderer) : FLAIRIZE_OK;
    const char* message = nullptr;
    if (status == FLAIRIZE_OK)
        status = flairize_render(renderer, &settings, source.data(), side * 4, output.data(), side * 4, side, side, 4,
                                 order, &message);
    if (message) std::fprintf(stderr, "message: %s\n", message);
    flairize_renderer_free(renderer);
    std::_Exit(status);
}
#endif

}  // namespace

TEST(LibraryRender, RefusesBadArgumentsBeforeTouchingAPixel) {
    const unsigned count = flairize_effect_count();
    struct Case {
        const char* what;
        std::function<void(RenderCall&)> change;
        flairize_status expected;
    };
    const Case cases[] = {
        {"null settings", [](RenderCall& c) { c.settingsArg = nullptr; }, FLAIRIZE_ERROR_NULL},
        {"null source", [](RenderCall& c) { c.source = nullptr; }, FLAIRIZE_ERROR_NULL},
        {"null output", [](RenderCall& c) { c.output = nullptr; }, FLAIRIZE_ERROR_NULL},
        {"width 0", [](RenderCall& c) { c.width = 0; }, FLAIRIZE_ERROR_SIZE},
        {"height 0", [](RenderCall& c) { c.height = 0; }, FLAIRIZE_ERROR_SIZE},
        {"width 65536", [](RenderCall& c) { c.width = 65536; }, FLAIRIZE_ERROR_SIZE},
        {"height 65536", [](RenderCall& c) { c.height = 65536; }, FLAIRIZE_ERROR_SIZE},
        {"2 bytes a pixel", [](RenderCall& c) { c.bytesPerPixel = 2; }, FLAIRIZE_ERROR_FORMAT},
        {"0 bytes a pixel", [](RenderCall& c) { c.bytesPerPixel = 0; }, FLAIRIZE_ERROR_FORMAT},
        {"5 bytes a pixel", [](RenderCall& c) { c.bytesPerPixel = 5; }, FLAIRIZE_ERROR_FORMAT},
        {"unknown channel order", [](RenderCall& c) { c.order = static_cast<flairize_channel_order>(2); },
         FLAIRIZE_ERROR_FORMAT},
        {"source stride a byte short", [](RenderCall& c) { c.sourceStride = 11; }, FLAIRIZE_ERROR_STRIDE},
        {"output stride a byte short, upwards", [](RenderCall& c) { c.outputStride = -11; }, FLAIRIZE_ERROR_STRIDE},
        {"stride 0", [](RenderCall& c) { c.sourceStride = 0; }, FLAIRIZE_ERROR_STRIDE},
        {"stride short for 4 bytes a pixel", [](RenderCall& c) { c.bytesPerPixel = 4, c.outputStride = 15; },
         FLAIRIZE_ERROR_STRIDE},
        {"effect past the catalogue", [count](RenderCall& c) { c.settings.effect = count; }, FLAIRIZE_ERROR_EFFECT},
        {"effect 2^32 - 1", [](RenderCall& c) { c.settings.effect = 0xFFFFFFFFu; }, FLAIRIZE_ERROR_EFFECT},
        {"unknown mix", [](RenderCall& c) { c.settings.mix = 2; }, FLAIRIZE_ERROR_ARGUMENT},
        {"output is the source", [](RenderCall& c) { c.output = c.buffer.data(); }, FLAIRIZE_ERROR_ARGUMENT},
        {"output starts in the source's last row", [](RenderCall& c) { c.output = c.buffer.data() + 2 * 16 + 6; },
         FLAIRIZE_ERROR_ARGUMENT},
        {"source's rows, stored upwards, reach back into the output",
         [](RenderCall& c) {
             c.source = c.buffer.data() + 2048 + 16;
             c.sourceStride = -16;
         },
         FLAIRIZE_ERROR_ARGUMENT},
        {"rows past the end of the address space", [](RenderCall& c) { c.sourceStride = PTRDIFF_MAX; },
         FLAIRIZE_ERROR_ARGUMENT},
        {"rows before the start of the address space", [](RenderCall& c) { c.outputStride = PTRDIFF_MIN + 1; },
         FLAIRIZE_ERROR_ARGUMENT},
    };
    for (const Case& c : cases) {
        for (flairize_channel_order order : {FLAIRIZE_ORDER_BGR, FLAIRIZE_ORDER_RGB}) {
            RenderCall call;
            call.order = order;
            c.change(call);
            const std::vector<std::uint8_t> before = call.buffer;
            const char* message = nullptr;
            EXPECT_EQ(call.run(&message), c.expected) << c.what;
            ASSERT_NE(message, nullptr) << c.what;
            EXPECT_GT(std::strlen(message), 0u) << c.what;
            EXPECT_TRUE(call.buffer == before) << c.what << ": a refused render changed the buffers";
            EXPECT_EQ(call.run(nullptr), c.expected) << c.what << " without a message";
        }
    }
    // The unchanged call renders: the output is written and the message is empty.
    RenderCall call;
    const std::vector<std::uint8_t> before = call.buffer;
    const char* message = "stale";
    EXPECT_EQ(call.run(&message), FLAIRIZE_OK);
    EXPECT_STREQ(message, "");
    EXPECT_FALSE(call.buffer == before);
}

// With too little address space for its working memory, every kind of render
// reports FLAIRIZE_ERROR_OUT_OF_MEMORY (in a child process, whose limit ends with it).
TEST(LibraryRender, ReportsMemoryItCannotHave) {
#if FLAIRIZE_SANITIZED
    GTEST_SKIP() << "the sanitizers reserve address space of their own";
#else
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    struct Case {
        const char* effect;
        flairize_channel_order order;
        unsigned threads;
    };
    // The BGR copy of an RGB source; the working picture of an effect that
    // needs one (Glass's scatter, which Soften reads), on the caller's thread
    // and on a renderer's; threads that cannot start (std::bad_alloc inside,
    // caught at the edge). WaterColor needs a few rows only and is not here.
    const Case cases[] = {{"posterize", FLAIRIZE_ORDER_RGB, 1},
                          {"glass", FLAIRIZE_ORDER_BGR, 1},
                          {"glass", FLAIRIZE_ORDER_BGR, 4},
                          {"find-edges", FLAIRIZE_ORDER_BGR, 4}};
    for (const Case& c : cases)
        EXPECT_EXIT(renderWithoutMemory(effectNamed(c.effect), c.order, c.threads),
                    testing::ExitedWithCode(FLAIRIZE_ERROR_OUT_OF_MEMORY), "")
            << c.effect;
#endif
}

// One renderer serves renders from several threads at once, and every render
// equals the one the caller's thread makes alone.
TEST(LibraryRenderer, SharedByThreadsAtOnce) {
    const std::uint32_t width = 97, height = 61;
    const std::vector<std::uint8_t> source = patternBytes(std::size_t(width) * height * 4);
    const char* const effects[] = {"find-edges", "motion-blur", "pointillize", "watercolor", "tiles", "kaleidoscope"};
    struct Job {
        flairize_settings settings;
        flairize_channel_order order;
        std::uint32_t bytes;
        std::vector<std::uint8_t> alone, shared;
    };
    std::vector<Job> jobs;
    for (const char* name : effects)
        for (flairize_channel_order order : {FLAIRIZE_ORDER_BGR, FLAIRIZE_ORDER_RGB})
            for (std::uint32_t bytes : {3u, 4u}) {
                Job job{{}, order, bytes, std::vector<std::uint8_t>(source.size()), {}};
                flairize_settings_init(&job.settings, effectNamed(name));
                job.settings.progress = 9000;
                job.settings.colour = 0x30A0E0;
                job.shared = job.alone;
                const std::ptrdiff_t stride = std::ptrdiff_t(width) * bytes;
                ASSERT_EQ(flairize_render(nullptr, &job.settings, source.data(), stride, job.alone.data(), stride,
                                          width, height, bytes, order, nullptr),
                          FLAIRIZE_OK)
                    << name;
                jobs.push_back(std::move(job));
            }
    flairize_renderer* renderer = nullptr;
    ASSERT_EQ(flairize_renderer_new(3, &renderer), FLAIRIZE_OK);
    std::vector<std::thread> threads;
    std::vector<flairize_status> statuses(jobs.size(), FLAIRIZE_ERROR_INTERNAL);
    for (std::size_t t = 0; t < 4; ++t)
        threads.emplace_back([&, t] {
            for (std::size_t i = t; i < jobs.size(); i += 4) {
                const std::ptrdiff_t stride = std::ptrdiff_t(width) * jobs[i].bytes;
                statuses[i] = flairize_render(renderer, &jobs[i].settings, source.data(), stride, jobs[i].shared.data(),
                                              stride, width, height, jobs[i].bytes, jobs[i].order, nullptr);
            }
        });
    for (std::thread& t : threads) t.join();
    flairize_renderer_free(renderer);
    for (std::size_t i = 0; i < jobs.size(); ++i) {
        EXPECT_EQ(statuses[i], FLAIRIZE_OK) << i;
        EXPECT_TRUE(jobs[i].shared == jobs[i].alone) << flairize_effect_slug(jobs[i].settings.effect) << ", "
                                                     << jobs[i].bytes << " bytes, order " << jobs[i].order;
    }
}

TEST(LibraryRenderer, ThreadCounts) {
    flairize_renderer* renderer = nullptr;
    EXPECT_EQ(flairize_renderer_new(2, nullptr), FLAIRIZE_ERROR_NULL);
    EXPECT_EQ(flairize_renderer_new(1025, &renderer), FLAIRIZE_ERROR_ARGUMENT);
    EXPECT_EQ(renderer, nullptr);
    ASSERT_EQ(flairize_renderer_new(0, &renderer), FLAIRIZE_OK);
    EXPECT_GE(flairize_renderer_threads(renderer), 1u);
    flairize_renderer_free(renderer);
    ASSERT_EQ(flairize_renderer_new(5, &renderer), FLAIRIZE_OK);
    EXPECT_EQ(flairize_renderer_threads(renderer), 5u);
    flairize_renderer_free(renderer);
    EXPECT_EQ(flairize_renderer_threads(nullptr), 1u);
    flairize_renderer_free(nullptr);
}

// Effect numbers and slider numbers outside the catalogue give "" and 0; every
// effect is described, and found again by its slug and by its name in any case.
TEST(LibraryCatalogue, AnswersOutsideTheCatalogueAndFindsEveryEffect) {
    const unsigned count = flairize_effect_count();
    ASSERT_GT(count, 0u);
    for (unsigned effect : {count, count + 1, 0xFFFFFFFFu}) {
        for (const char* text : {flairize_effect_name(effect), flairize_effect_slug(effect),
                                 flairize_effect_description(effect), flairize_effect_category(effect)})
            EXPECT_STREQ(text, "") << effect;
        EXPECT_EQ(
            flairize_effect_offered(effect) + flairize_effect_fades_in(effect) + flairize_effect_uses_colour(effect),
            0);
        for (unsigned slider = 0; slider < 3; ++slider) EXPECT_EQ(flairize_slider_shown(effect, slider), 0);
    }
    const std::set<std::string> categories = {"Artistic", "Blur", "Distort", "Stylize", "Texture"};
    std::set<std::string> slugs;
    for (unsigned effect = 0; effect < count; ++effect) {
        for (unsigned slider : {3u, 4u, 0xFFFFFFFFu}) {
            EXPECT_EQ(flairize_slider_shown(effect, slider), 0);
            for (const char* text : {flairize_slider_label(effect, slider), flairize_slider_option(effect, slider),
                                     flairize_slider_meaning(effect, slider), flairize_slider_unit(effect, slider)})
                EXPECT_STREQ(text, "");
            EXPECT_EQ(flairize_slider_default(effect, slider) + flairize_slider_minimum(effect, slider) +
                          flairize_slider_maximum(effect, slider),
                      0u);
        }
        // Every effect says what it does and where it belongs; a shown slider
        // has its texts and a range holding its default, a hidden one none.
        EXPECT_GT(std::strlen(flairize_effect_description(effect)), 10u) << effect;
        EXPECT_EQ(categories.count(flairize_effect_category(effect)), 1u)
            << effect << ": " << flairize_effect_category(effect);
        for (unsigned slider = 0; slider < 3; ++slider) {
            const bool shown = flairize_slider_shown(effect, slider);
            for (const char* text : {flairize_slider_label(effect, slider), flairize_slider_option(effect, slider),
                                     flairize_slider_meaning(effect, slider)})
                EXPECT_EQ(std::strlen(text) > 0, shown) << effect << " slider " << slider << ": " << text;
            if (!shown) {
                EXPECT_STREQ(flairize_slider_unit(effect, slider), "");
                EXPECT_EQ(flairize_slider_maximum(effect, slider), 0u);
                continue;
            }
            EXPECT_LT(flairize_slider_minimum(effect, slider), flairize_slider_maximum(effect, slider));
            EXPECT_GE(flairize_slider_default(effect, slider), flairize_slider_minimum(effect, slider));
            EXPECT_LE(flairize_slider_default(effect, slider), flairize_slider_maximum(effect, slider));
        }
        const std::string slug = flairize_effect_slug(effect), name = flairize_effect_name(effect);
        ASSERT_FALSE(slug.empty()) << effect;
        EXPECT_TRUE(slugs.insert(slug).second) << "two effects are named " << slug;
        std::string upper = slug;
        for (char& ch : upper) ch = static_cast<char>(std::toupper(static_cast<unsigned char>(ch)));
        for (const std::string& asked : {slug, name, upper}) {
            unsigned found = ~0u;
            EXPECT_EQ(flairize_effect_find(asked.c_str(), &found), FLAIRIZE_OK) << asked;
            EXPECT_EQ(found, effect) << asked;
        }
    }
    unsigned found = 7;
    EXPECT_EQ(flairize_effect_find("no-such-effect", &found), FLAIRIZE_ERROR_EFFECT);
    EXPECT_EQ(flairize_effect_find("", &found), FLAIRIZE_ERROR_EFFECT);
    EXPECT_EQ(found, 7u);
    EXPECT_EQ(flairize_effect_find(nullptr, &found), FLAIRIZE_ERROR_NULL);
    EXPECT_EQ(flairize_effect_find("posterize", nullptr), FLAIRIZE_ERROR_NULL);
}

// The block's fields at their places, little-endian, the colour turned from the
// block's red-lowest order into 0xRRGGBB and back without losing a bit.
TEST(LibraryRecords, ReadWriteAndRefuse) {
    const std::uint8_t block[FLAIRIZE_BLOCK_SIZE] = {0x20, 0x00, 0x01, 0x20, 0x00, 0x00, 0x80, 0x00, 0x2C, 0x01,
                                                     0xFF, 0xFF, 0x03, 0x00, 0x00, 0x00, 0x11, 0x22, 0x33, 0x44};
    flairize_record record;
    ASSERT_EQ(flairize_record_read(block, sizeof block, &record), FLAIRIZE_OK);
    EXPECT_EQ(record.effect, 0x20);
    EXPECT_EQ(record.progress, 0x2001u);
    EXPECT_EQ(record.param1, 0x80);
    EXPECT_EQ(record.param2, 0x12C);
    EXPECT_EQ(record.param3, 0xFFFF);
    EXPECT_EQ(record.direction, FLAIRIZE_DIRECTION_REVERSE_CYCLE);
    EXPECT_EQ(record.colour, 0x44112233u);
    std::uint8_t written[FLAIRIZE_BLOCK_SIZE + 1];
    written[FLAIRIZE_BLOCK_SIZE] = 0x77;
    ASSERT_EQ(flairize_record_write(&record, written, sizeof written), FLAIRIZE_OK);
    EXPECT_EQ(std::memcmp(written, block, sizeof block), 0);
    EXPECT_EQ(written[FLAIRIZE_BLOCK_SIZE], 0x77) << "a byte past the block was written";

    // The record's settings for a render: sliders as they are (a render reads
    // 255 for the larger ones), the colour, the progress, the full render.
    flairize_settings settings;
    ASSERT_EQ(flairize_record_settings(&record, &settings), FLAIRIZE_OK);
    EXPECT_EQ(settings.effect, 0x20u);
    EXPECT_EQ(settings.sliders[0], 0x80u);
    EXPECT_EQ(settings.sliders[1], 0x12Cu);
    EXPECT_EQ(settings.sliders[2], 0xFFFFu);
    EXPECT_EQ(settings.colour & 0xFFFFFFu, 0x112233u);
    EXPECT_EQ(settings.progress, 0x2001u);
    EXPECT_EQ(settings.mix, unsigned(FLAIRIZE_MIX_FULL));

    // Refusals leave everything as it was.
    flairize_record kept = record;
    EXPECT_EQ(flairize_record_read(block, FLAIRIZE_BLOCK_SIZE - 1, &record), FLAIRIZE_ERROR_ARGUMENT);
    EXPECT_EQ(flairize_record_read(nullptr, FLAIRIZE_BLOCK_SIZE, &record), FLAIRIZE_ERROR_NULL);
    EXPECT_EQ(flairize_record_read(block, FLAIRIZE_BLOCK_SIZE, nullptr), FLAIRIZE_ERROR_NULL);
    EXPECT_EQ(std::memcmp(&kept, &record, sizeof record), 0);
    std::uint8_t untouched[FLAIRIZE_BLOCK_SIZE] = {};
    EXPECT_EQ(flairize_record_write(&record, untouched, FLAIRIZE_BLOCK_SIZE - 1), FLAIRIZE_ERROR_ARGUMENT);
    EXPECT_EQ(flairize_record_write(nullptr, untouched, FLAIRIZE_BLOCK_SIZE), FLAIRIZE_ERROR_NULL);
    EXPECT_EQ(flairize_record_write(&record, nullptr, FLAIRIZE_BLOCK_SIZE), FLAIRIZE_ERROR_NULL);
    for (std::uint8_t b : untouched) EXPECT_EQ(b, 0);

    record.effect = static_cast<std::uint16_t>(flairize_effect_count());
    const flairize_settings before = settings;
    EXPECT_EQ(flairize_record_settings(&record, &settings), FLAIRIZE_ERROR_EFFECT);
    EXPECT_EQ(std::memcmp(&before, &settings, sizeof settings), 0);
    EXPECT_EQ(flairize_record_settings(nullptr, &settings), FLAIRIZE_ERROR_NULL);
    EXPECT_EQ(flairize_record_init(&record, flairize_effect_count()), FLAIRIZE_ERROR_EFFECT);
    EXPECT_EQ(flairize_record_init(nullptr, 0), FLAIRIZE_ERROR_NULL);
    EXPECT_EQ(flairize_settings_init(&settings, flairize_effect_count()), FLAIRIZE_ERROR_EFFECT);
    EXPECT_EQ(flairize_settings_init(nullptr, 0), FLAIRIZE_ERROR_NULL);
}

// A new record and new settings start from the effect's own defaults.
TEST(LibraryRecords, NewRecordsAndSettingsTakeTheEffectsDefaults) {
    for (unsigned effect = 0; effect < flairize_effect_count(); ++effect) {
        flairize_record record;
        flairize_settings settings, fromRecord;
        ASSERT_EQ(flairize_record_init(&record, effect), FLAIRIZE_OK);
        ASSERT_EQ(flairize_settings_init(&settings, effect), FLAIRIZE_OK);
        EXPECT_EQ(record.effect, effect);
        EXPECT_EQ(record.direction, FLAIRIZE_DIRECTION_FORWARD);
        EXPECT_EQ(record.colour, 0u);
        ASSERT_EQ(flairize_record_settings(&record, &fromRecord), FLAIRIZE_OK);
        for (unsigned k = 0; k < 3; ++k) {
            EXPECT_EQ(fromRecord.sliders[k], settings.sliders[k]) << effect << " slider " << k;
            if (flairize_slider_shown(effect, k)) {
                EXPECT_EQ(settings.sliders[k], flairize_slider_default(effect, k)) << effect << " slider " << k;
            }
        }
        EXPECT_EQ(settings.progress, 16384u);
        EXPECT_EQ(settings.mix, unsigned(FLAIRIZE_MIX_FULL));
    }
}

TEST(LibraryTiming, OutOfRangeValuesActAsTheirLimits) {
    for (std::uint32_t direction = 0; direction < 8; ++direction)
        for (int speed : {-124, -1, 0, 60, 127}) {
            EXPECT_EQ(flairize_frame_progress(16385, speed, direction),
                      flairize_frame_progress(16384, speed, direction));
            EXPECT_EQ(flairize_frame_progress(0xFFFFFFFFu, speed, direction),
                      flairize_frame_progress(16384, speed, direction));
            EXPECT_EQ(flairize_frame_progress(4000, speed, direction),
                      flairize_frame_progress(4000, speed, direction + 4))
                << "only the direction's low two bits count";
        }
    for (std::uint32_t position : {0u, 1u, 5000u, 16384u}) {
        EXPECT_EQ(flairize_frame_progress(position, 1000, FLAIRIZE_DIRECTION_FORWARD),
                  flairize_frame_progress(position, 127, FLAIRIZE_DIRECTION_FORWARD));
        EXPECT_EQ(flairize_frame_progress(position, -1000, FLAIRIZE_DIRECTION_CYCLE),
                  flairize_frame_progress(position, -128, FLAIRIZE_DIRECTION_CYCLE));
        // Speed 0 leaves the position as it is; Backward turns it around.
        EXPECT_EQ(flairize_frame_progress(position, 0, FLAIRIZE_DIRECTION_FORWARD), position);
        EXPECT_EQ(flairize_frame_progress(position, 0, FLAIRIZE_DIRECTION_BACKWARD), 16384 - position);
    }
    EXPECT_EQ(flairize_sequence_position(0, 0), 16384u);
    EXPECT_EQ(flairize_sequence_position(0, 1), 16384u);
    EXPECT_EQ(flairize_sequence_position(0, 5), 0u);
    EXPECT_EQ(flairize_sequence_position(1, 5), 4096u);
    EXPECT_EQ(flairize_sequence_position(4, 5), 16384u);
    EXPECT_EQ(flairize_sequence_position(999999999999ull, 1000000000000ull), 16384u);
}

TEST(LibraryStatus, EveryStatusHasItsOwnText) {
    std::set<std::string> texts;
    for (int s = FLAIRIZE_OK; s <= FLAIRIZE_ERROR_INTERNAL; ++s) {
        const std::string text = flairize_status_text(static_cast<flairize_status>(s));
        EXPECT_NE(text, "unknown status") << s;
        EXPECT_TRUE(texts.insert(text).second) << text;
    }
    EXPECT_STREQ(flairize_status_text(static_cast<flairize_status>(FLAIRIZE_ERROR_INTERNAL + 1)), "unknown status");
    EXPECT_STREQ(flairize_status_text(FLAIRIZE_STATUS_MAX_ENUM), "unknown status");
}

TEST(LibraryVersion, ReleaseAndAbi) {
    unsigned major = 0, minor = 0;
    char rest = 0;
    EXPECT_EQ(std::sscanf(flairize_version(), "%u.%u%c", &major, &minor, &rest), 2) << flairize_version();
    EXPECT_GE(major, 3u);
    EXPECT_EQ(flairize_abi_version(), unsigned(FLAIRIZE_ABI_VERSION));
    EXPECT_EQ(flairize_header_check_c(), 0);
}
