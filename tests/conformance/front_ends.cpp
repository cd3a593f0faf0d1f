#include "tests/conformance/front_ends.h"

#include <cstdio>

#ifndef FLAIRIZE_FRONT_ENDS

long conformance::checkFrontEnds(const SourceOf&, const Report&, unsigned) {
    std::printf("only the engine is built here: no other front end checked\n");
    return 0;
}

#else

#include <dlfcn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cctype>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <utility>
#include <sstream>
#include <vector>

#include "effects/catalogue.h"
#include "effects/effects.h"
#include "engine/dib.h"
#include "host/exports.h"
#include "platform/global_memory.h"
#include "standalone/picture_io.h"
#include "tests/conformance/sha256.h"
#include "tests/standin_host.h"

#ifdef FLAIRIZE_FREI0R_DIR
#include "frei0r/plugin_loader.h"
#endif
#ifdef FLAIRIZE_LIBRARY
#include <flairize/flairize.h>
#endif

namespace conformance {
namespace {

std::string env(const char* name) {
    const char* v = std::getenv(name);
    return v ? v : "";
}

std::string readAll(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// The plug-in export that runs an effect's filter alone; null where its filter is not exported.
using FilterExport = HGLOBAL(FLR_STDCALL*)(std::uint16_t, HGLOBAL, std::uint32_t, std::uint16_t, std::uint16_t,
                                            std::uint16_t);
struct NamedExport {
    FilterFunction filter;
    FilterExport function;
    const char* name;
};
const NamedExport kExports[] = {{rowDriver, FLR_LineFilter, "FLR_LineFilter"},
                                {meanMapFilter, FLR_MeanMapFilter, "FLR_MeanMapFilter"},
                                {textureFilter, FLR_TextureFilter, "FLR_TextureFilter"},
                                {waterColorFilter, FLR_WaterColor, "FLR_WaterColor"},
                                {glassFilter, FLR_Glass, "FLR_Glass"}};
const NamedExport* exportFor(unsigned effect) {
    for (const NamedExport& e : kExports)
        if (kEffectTable.records[effect].filter == e.filter) return &e;
    return nullptr;
}

// Rows 0, every, 2 every, ... of `cases`.
std::vector<Case> sampleOf(const std::vector<Case>& cases, unsigned every) {
    std::vector<Case> sample;
    for (std::size_t i = 0; i < cases.size(); i += every) sample.push_back(cases[i]);
    return sample;
}

SettingsRecord recordOf(const flairize::Settings& s) {
    SettingsRecord r = flairize::newSettingsRecord();
    r.effect = s.effect;
    r.param1 = s.sliders[0], r.param2 = s.sliders[1], r.param3 = s.sliders[2];
    r.colour = s.colour;
    r.progress = s.progress;
    return r;
}

std::string takeHash(HGLOBAL picture) {
    const std::string h = hashOf(picture);
    plat::globalFree(picture);
    return h;
}

// GenerateDIB and the preview for full renders, the exported filters for the filter alone.
void checkPlugin(const SourceOf& source, const Report& report, unsigned every) {
    long notExported = 0;
    for (unsigned effect = 0; effect < flairize::effectCount(); ++effect)
        for (const Case& c : sampleOf(casesOf(effect), every)) {
            const flairize::Settings s = settingsOf(c);
            SettingsRecord record = recordOf(s);
            HGLOBAL src = source(c.source, c.size);
            if (!c.filterOnly) {
                TestHostContext context(&record, src);
                HGLOBAL out = nullptr;
                report("plug-in GenerateDIB", effect, key(c), GenerateDIB(&context, &out, 0) ? takeHash(out) : "refused");
                HGLOBAL preview = nullptr;
                HPALETTE palette = nullptr;
                const bool shown = plugin::previewRender(s.effect, src, record, s.sliders, &preview, &palette);
                report("plug-in preview", effect, key(c), shown ? takeHash(preview) : "refused");
                continue;
            }
            const NamedExport* e = exportFor(effect);
            if (!e) {
                ++notExported;
                continue;
            }
            // The values a render of the host published before it called the filter.
            for (int k = 0; k < 3; ++k) plugin::published().sliders[k] = s.sliders[k];
            plugin::published().colour = s.colour;
            report("plug-in filters", effect, key(c),
                   takeHash(e->function(s.effect, src, s.progress, s.sliders[0], s.sliders[1], s.sliders[2])));
        }
    std::printf("plug-in filters: %ld rows skipped, their effects' filters are not exported\n", notExported);
}

#ifdef FLAIRIZE_FREI0R_DIR
// The frei0r plug-ins in-process, on the rows of 32-bit sources: frames top row
// first, the result put back into a picture for its hash. Every other row is
// rendered in place; the others into a frame that holds stale bytes.
void checkFrei0r(const SourceOf& source, const Report& report, unsigned every) {
    std::size_t rendered = 0;
    for (unsigned effect = 0; effect < flairize::effectCount(); ++effect) {
        if (!flairize::effectOffered(effect)) continue;
        const Frei0rPlugin& p = frei0rPlugin(effect);
        if (!p.complete()) {
            report("frei0r plug-ins", effect, "(plug-in " + p.path + " does not load)", "missing");
            continue;
        }
        for (const Case& c : sampleOf(casesOf(effect), every)) {
            if (sourceBits(c.source) != 32) continue;
            const flairize::Settings s = settingsOf(c);
            const unsigned w = unsigned(c.size.width), h = unsigned(c.size.height);
            f0r_instance_t instance = p.construct(w, h);
            for (int k = 0; k < 3; ++k)
                if (flairize::sliderLabelId(effect, k))
                    p.set(instance, flairize::sliderLabel(effect, k), (s.sliders[k] > 255 ? 255 : s.sliders[k]) / 255.0);
            p.set(instance, "Progress", s.progress / 16384.0);
            p.set(instance, "Mix", c.filterOnly ? 0.0 : 1.0);
            p.set(instance, "Color", f0r_param_color_t{float(s.colour & 0xFF) / 255.0f, float((s.colour >> 8) & 0xFF) / 255.0f,
                                                       float((s.colour >> 16) & 0xFF) / 255.0f});

            // Frames top row first; the result goes into the output picture the engine would make.
            dib::Source src(source(c.source, c.size));
            std::vector<std::uint32_t> in(std::size_t(w) * h), out(in.size(), 0xA5A5A5A5u);
            for (unsigned r = 0; r < h; ++r) std::memcpy(&in[std::size_t(r) * w], src.row(h - 1 - r), std::size_t(w) * 4);
            if (rendered++ % 2) {
                out = in;
                p.update(instance, 0.0, out.data(), out.data());
            } else {
                p.update(instance, 0.0, in.data(), out.data());
            }
            p.destruct(instance);
            dib::Output picture(src);
            for (unsigned r = 0; r < h; ++r) std::memcpy(picture.row(r), &out[std::size_t(h - 1 - r) * w], std::size_t(w) * 4);
            report("frei0r plug-ins", effect, key(c), takeHash(picture.release()));
        }
    }
}
#endif

#ifdef FLAIRIZE_LIBRARY
// The first and third byte of every pixel of a row exchanged: BGR(A) to RGB(A) and back.
void exchangeRedBlue(std::uint8_t* row, unsigned width, unsigned bytesPerPixel) {
    for (unsigned x = 0; x < width; ++x, row += bytesPerPixel) std::swap(row[0], row[2]);
}

// libflairize's C interface on the rows of 24- and 32-bit sources, in both
// channel orders: in BGR order on the caller's thread; in RGB order, with the
// source's red and blue exchanged before and the output's after, on a renderer
// of three threads. The buffers have padded rows, every other one stored bottom
// row first (a negative stride), and the output starts with stale bytes.
void checkLibrary(const SourceOf& source, const Report& report) {
    flairize_renderer* threaded = nullptr;
    if (flairize_renderer_new(3, &threaded) != FLAIRIZE_OK) {
        report("C library", 0, "(no renderer)", "refused");
        return;
    }
    long paletteRows = 0, rendered = 0;
    for (unsigned effect = 0; effect < flairize::effectCount(); ++effect)
        for (const Case& c : casesOf(effect)) {
            if (sourceBits(c.source) == 8) {
                ++paletteRows;
                continue;
            }
            const flairize::Settings s = settingsOf(c);
            flairize_settings settings;
            settings.effect = s.effect;
            for (int k = 0; k < 3; ++k) settings.sliders[k] = s.sliders[k];
            settings.colour = (s.colour & 0xFFu) << 16 | (s.colour & 0xFF00u) | (s.colour >> 16 & 0xFFu);
            settings.progress = s.progress;
            settings.mix = c.filterOnly ? FLAIRIZE_MIX_FILTER : FLAIRIZE_MIX_FULL;

            dib::Source src(source(c.source, c.size));
            const unsigned w = src.layout().width, h = src.layout().height, bytes = src.layout().bytesPerPixel;
            const std::size_t rowBytes = std::size_t(w) * bytes, stride = rowBytes + 5;
            const bool bottomFirst = rendered++ % 2;
            // Row r (0 = top) of a buffer of `stride`-byte rows, stored either way up.
            auto rowOf = [&](std::vector<std::uint8_t>& buffer, unsigned r) {
                return &buffer[(bottomFirst ? h - 1 - r : r) * stride];
            };
            const std::ptrdiff_t step = bottomFirst ? -std::ptrdiff_t(stride) : std::ptrdiff_t(stride);
            for (flairize_channel_order order : {FLAIRIZE_ORDER_BGR, FLAIRIZE_ORDER_RGB}) {
                std::vector<std::uint8_t> in(stride * h, 0x5A), out(in.size(), 0xA5);
                for (unsigned r = 0; r < h; ++r) {
                    std::memcpy(rowOf(in, r), src.row(h - 1 - r), rowBytes);
                    if (order == FLAIRIZE_ORDER_RGB) exchangeRedBlue(rowOf(in, r), w, bytes);
                }
                const flairize_status status =
                    flairize_render(order == FLAIRIZE_ORDER_RGB ? threaded : nullptr, &settings, rowOf(in, 0), step,
                                    rowOf(out, 0), step, w, h, bytes, order, nullptr);
                const char* frontEnd = order == FLAIRIZE_ORDER_RGB ? "C library, RGB order" : "C library, BGR order";
                if (status != FLAIRIZE_OK) {
                    report(frontEnd, effect, key(c), "refused");
                    continue;
                }
                dib::Output picture(src);
                for (unsigned r = 0; r < h; ++r) {
                    if (order == FLAIRIZE_ORDER_RGB) exchangeRedBlue(rowOf(out, r), w, bytes);
                    std::memcpy(picture.row(h - 1 - r), rowOf(out, r), rowBytes);
                }
                // The bytes between the rows are the caller's: the render leaves them as they were.
                bool paddingKept = true;
                for (unsigned r = 0; r < h; ++r)
                    for (std::size_t i = rowBytes; i < stride; ++i) paddingKept = paddingKept && rowOf(out, r)[i] == 0xA5;
                report(frontEnd, effect, key(c), paddingKept ? takeHash(picture.release()) : "padding written");
            }
        }
    flairize_renderer_free(threaded);
    std::printf("C library: the %ld rows of 8-bit palette sources are left to the other front ends\n", paletteRows);
}
#endif

// A program's exit status, or -1; the arguments are paths and numbers, quoted whole.
int run(const std::vector<std::string>& args) {
    std::string command;
    for (const std::string& a : args) command += "'" + a + "' ";
    const int status = std::system(command.c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// A sample of the rows (every 400th, a different one for each effect) through
// `flairize render` with BMP files in and out.
void checkCommand(const SourceOf& source, const Report& report, const std::string& work) {
    for (unsigned effect = 0; effect < flairize::effectCount(); ++effect) {
        const std::vector<Case> cases = casesOf(effect);
        for (std::size_t i = (effect * 97) % 400; i < cases.size(); i += 400) {
            const Case& c = cases[i];
            const flairize::Settings s = settingsOf(c);
            const std::string in = work + "/" + sourceName(c.source) + "-" + std::to_string(c.size.width) + "x" +
                                   std::to_string(c.size.height) + ".bmp";
            std::string error;
            if (access(in.c_str(), F_OK) != 0 && !pictures::write(in, source(c.source, c.size), error))
                report("flairize render", effect, key(c), "cannot write " + in + ": " + error);
            const std::string out = work + "/out.bmp";
            char colour[8];
            std::snprintf(colour, sizeof colour, "%02x%02x%02x", s.colour & 0xFF, (s.colour >> 8) & 0xFF,
                          (s.colour >> 16) & 0xFF);
            std::vector<std::string> args = {FLAIRIZE_BIN, "render", in, out, "--effect", std::to_string(effect),
                                             "--progress", std::to_string(s.progress), "--colour", colour};
            for (int k = 0; k < 3; ++k) {   // the command takes 0..255; larger values act as 255 anyway
                args.push_back("--p" + std::to_string(k + 1));
                args.push_back(std::to_string(s.sliders[k] > 255 ? 255 : s.sliders[k]));
            }
            if (c.filterOnly) args.push_back("--filter-only");
            std::remove(out.c_str());
            const std::string file = run(args) == 0 ? readAll(out) : "";
            const auto* dib = reinterpret_cast<const std::uint8_t*>(file.data()) + 14;
            const bool whole = file.size() > 54 && resultBytes(dib) <= file.size() - 14;
            report("flairize render", effect, key(c), whole ? sha256Hex(dib, resultBytes(dib)) : "refused");
        }
    }
}

// FLAIR.dll under Wine, in one run of the Wine test host: its checks of the
// exports, records and (under a virtual display) the editor print "PASS name"
// or "FAIL name: detail"; SetupFrame for every speed and position goes to a
// file, compared with the engine's frame timing; and every row of the effects
// effects.txt lists comes back as "effect row hash".
long checkWine(const Report& report, const std::string& work) {
    const std::string build = env("FLAIRIZE_WINDOWS_BUILD"), wine = env("FLAIRIZE_WINE");
    if (build.empty() || wine.empty()) {
        std::printf("DLL under Wine: skipped, FLAIRIZE_WINDOWS_BUILD and FLAIRIZE_WINE are not set "
                    "(scripts/test.sh sets them where Wine and mingw-w64 are installed)\n");
        return 0;
    }
    std::ofstream list(work + "/effects.txt");
    for (unsigned effect = 0; effect < flairize::effectCount(); ++effect) {
        const NamedExport* e = exportFor(effect);
        list << effect << " " << flairize::sliderDefault(effect, 0) << " " << flairize::sliderDefault(effect, 1) << " "
             << flairize::sliderDefault(effect, 2) << " " << (e ? e->name : "-") << " " << flairize::effectOffered(effect)
             << "\n";
    }
    list.close();
    std::string error;
    HGLOBAL sample = pictures::read(std::string(FLAIRIZE_SOURCE_DIR) + "/samples/sample.png", error);
    pictures::write(work + "/sample.bmp", sample, error);   // the picture the editor previews
    plat::globalFree(sample);
    const bool editor = env("FLAIRIZE_WINDOWS_EDITOR") == "1";
    const std::string command = "cd '" + build + "' && WINEDEBUG=-all WINEDLLOVERRIDES='mscoree,mshtml=' WINEPREFIX='" +
                                build + "/wineprefix' timeout 1800 " +
                                (editor ? "xvfb-run -a -s '-screen 0 1024x768x24' " : "") + wine + " wine_host.exe 'Z:" +
                                work + "'" + (editor ? " --editor" : "") + " > '" + work + "/wine-out.txt' 2> '" + work +
                                "/wine-stderr.txt'";
    const int status = std::system(command.c_str());
    long failures = 0, passed = 0, rows = 0;
    auto fail = [&](const std::string& what) {
        std::printf("FAIL DLL under Wine: %s\n", what.c_str());
        ++failures;
    };
    std::istringstream lines(readAll(work + "/wine-out.txt"));
    for (std::string line; std::getline(lines, line);) {
        if (!line.empty() && line.back() == '\r') line.pop_back();   // Windows line ends
        if (line.rfind("PASS", 0) == 0) ++passed;
        if (line.rfind("FAIL", 0) == 0) fail(line.substr(5));
        const std::size_t first = line.find(' '), last = line.rfind(' ');
        if (line.empty() || !std::isdigit(static_cast<unsigned char>(line[0])) || last <= first) continue;
        report("DLL under Wine", unsigned(std::atoi(line.c_str())), line.substr(first + 1, last - first - 1),
               line.substr(last + 1));
        ++rows;
    }
    if (status != 0 || rows == 0 || passed < (editor ? 26 : 4))
        fail("the Wine host ended with status " + std::to_string(status) + " after " + std::to_string(passed) +
             " checks: " + readAll(work + "/wine-stderr.txt").substr(0, 300));
    const std::string timing = readAll(work + "/timing.bin");
    long differences = timing.size() == 252u * 16385u * 4u ? 0 : 1;
    for (std::size_t i = 0; !differences && i < 252u * 16385u; ++i) {
        std::uint32_t windows;
        std::memcpy(&windows, timing.data() + 4 * i, 4);
        differences += windows != flairize::speedCurve(std::uint32_t(i % 16385), std::int8_t(int(i / 16385) - 124));
    }
    if (differences) fail("SetupFrame differs from the engine's frame timing");
    std::printf("DLL under Wine: %ld host checks passed, SetupFrame compared for every speed -124..127 and "
                "position 0..16384\n", passed);
    if (editor) {   // the editor's screenshot, for the README
        HGLOBAL shot = pictures::read(work + "/editor.bmp", error);
        if (!shot || !pictures::write(build + "/editor-screenshot.png", shot, error)) fail("no editor screenshot: " + error);
        plat::globalFree(shot);
    }
    return failures;
}

}  // namespace

long checkFrontEnds(const SourceOf& source, const Report& report, unsigned every) {
    char pattern[] = "/tmp/flairize-conformance-XXXXXX";
    const std::string work = mkdtemp(pattern);
    checkPlugin(source, report, every);
#ifdef FLAIRIZE_FREI0R_DIR
    checkFrei0r(source, report, every);
#else
    std::printf("frei0r plug-ins: skipped, frei0r.h was not found when the build was configured\n");
#endif
    checkCommand(source, report, work);
#ifdef FLAIRIZE_LIBRARY
    checkLibrary(source, report);
#else
    std::printf("C library: skipped, libflairize is not built\n");
#endif
    const long failures = checkWine(report, work);
    std::filesystem::remove_all(work);
    return failures;
}

}  // namespace conformance

#endif
