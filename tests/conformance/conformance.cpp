// The conformance table: the SHA-256 of the output picture for every effect on
// every source, size, slider set, progress and colour, rendered fully and as
// the filter alone. The check runs every row through every front end built
// and prints how many rows each checked.
//   conformance --write TABLEDIR   renders every row through the engine and writes the table
//   conformance TABLEDIR           checks the engine and the plain forms
//   conformance --all TABLEDIR     also the plug-in's exports, the frei0r plug-ins, a sample
//                                  through `flairize render`, the C library and, under Wine, the DLL
//   --threads N,... and --every K before these: see main()
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <map>
#include <string>
#include <vector>


#include "effects/effects.h"
#include "effects/plain/plain_forms.h"
#include "hostops/colour_ops_plain.h"
#include "platform/global_memory.h"
#include "hostops/host_ops.h"
#ifdef FLAIRIZE_FRONT_ENDS
#include "hostops/threads.h"
#endif
#include "tests/conformance/cases.h"
#include "tests/conformance/sha256.h"

#include "tests/conformance/front_ends.h"

using namespace conformance;

namespace conformance {

std::string hashOf(HGLOBAL picture) {
    if (!picture) return "refused";
    const auto* block = static_cast<const std::uint8_t*>(plat::globalLock(picture));
    const std::size_t size = resultBytes(block);
    const std::string h = size <= plat::globalSize(picture) ? sha256Hex(block, size) : "short";
    plat::globalUnlock(picture);
    return h;
}

flairize::Settings settingsOf(const Case& c) {
    flairize::Settings s;
    s.effect = std::uint16_t(c.effect);
    const std::uint16_t defaults[3] = {flairize::sliderDefault(c.effect, 0), flairize::sliderDefault(c.effect, 1),
                                       flairize::sliderDefault(c.effect, 2)};
    sliders(c.params, defaults, s.sliders);
    s.colour = kColours[c.colour];
    s.progress = c.progress;
    return s;
}

}  // namespace conformance

namespace {

std::string tableFile(const std::string& dir, unsigned effect) {
    char name[32];
    std::snprintf(name, sizeof name, "/effect-%02u.txt", effect);
    return dir + name;
}

// The sources, each made once.
class Sources {
public:
    HGLOBAL get(Source s, Size z) {
        HGLOBAL& h = blocks_[{int(s), z.width * 100000 + z.height}];
        if (!h) {
            const std::vector<std::uint8_t> dib = sourcePicture(s, z);
            h = plat::globalAlloc(dib.size());
            std::memcpy(plat::globalLock(h), dib.data(), dib.size());
            plat::globalUnlock(h);
        }
        return h;
    }
    ~Sources() {
        for (auto& b : blocks_) plat::globalFree(b.second);
    }

private:
    std::map<std::pair<int, int>, HGLOBAL> blocks_;
};

// The frame timing: the progress of every position 0..16384 at every speed
// -124..127 through every direction, as little-endian 32-bit values, hashed.
std::string timingHash() {
    std::vector<std::uint8_t> bytes;
    bytes.reserve(4u * 252u * 16385u * 4u);
    for (int speed = -124; speed <= 127; ++speed)
        for (std::uint32_t position = 0; position <= 16384; ++position) {
            const std::uint32_t curved = flairize::speedCurve(position, std::int8_t(speed));
            for (std::uint32_t direction = 0; direction < 4; ++direction) {
                const std::uint32_t v = flairize::applyDirection(curved, direction);
                for (int b = 0; b < 4; ++b) bytes.push_back(std::uint8_t(v >> (8 * b)));
            }
        }
    return sha256Hex(bytes.data(), bytes.size());
}

std::string renderThrough(const EffectTable& table, const Case& c, HGLOBAL source,
                          const flairize::HostServices& host = hostops::services()) {
    const flairize::Result r = flairize::renderWith(table, host, source, settingsOf(c),
                                                    c.filterOnly ? flairize::Mix::None : flairize::Mix::Always);
    const std::string h = r.status == flairize::Status::Ok ? hashOf(r.picture) : "refused";
    plat::globalFree(r.picture);
    return h;
}

// The same through views (24- and 32-bit sources): the source stored top row
// first, the output into a frame of stale bytes; the result is put back into
// the picture render() would make, for its hash.
std::string renderThroughViews(const Case& c, HGLOBAL source, const flairize::HostServices& host) {
    dib::Source src(source);
    if (!src.ok() || src.layout().bitCount == 8) return renderThrough(kEffectTable, c, source, host);
    const dib::Layout& l = src.layout();
    const std::size_t rowBytes = std::size_t(l.width) * l.bytesPerPixel;
    std::vector<std::uint8_t> in(rowBytes * l.height), out(in.size(), 0xA5);
    for (unsigned r = 0; r < l.height; ++r) std::memcpy(&in[r * rowBytes], src.row(l.height - 1 - r), rowBytes);
    const auto view = [&](std::vector<std::uint8_t>& v) {
        return flairize::PictureView{v.data(), std::ptrdiff_t(rowBytes), l.width, l.height,
                                     std::uint8_t(l.bytesPerPixel)};
    };
    const flairize::Result result = flairize::renderInto(
        host, view(in), settingsOf(c), c.filterOnly ? flairize::Mix::None : flairize::Mix::Always, view(out));
    if (result.status != flairize::Status::Ok) return "refused";
    dib::Output picture(src);
    for (unsigned r = 0; r < l.height; ++r) std::memcpy(picture.row(r), &out[(l.height - 1 - r) * rowBytes], rowBytes);
    HGLOBAL h = picture.release();
    const std::string hash = hashOf(h);
    plat::globalFree(h);
    return hash;
}

struct Tally {
    long checked = 0, mismatches = 0;
    void compare(const std::string& frontEnd, unsigned effect, const std::string& row, const std::string& expected,
                 const std::string& got) {
        ++checked;
        if (got != expected && ++mismatches <= 10)
            std::printf("MISMATCH %s: effect %u %s: table %s, rendered %s\n", frontEnd.c_str(), effect, row.c_str(),
                        expected.c_str(), got.c_str());
    }
};

}  // namespace

int main(int argc, char** argv) {
    // --threads N,N,...: the engine's rows also through slice threads of each
    // count, rendered from view to view. --every K: only every K-th row of each
    // effect, for the engine, the plug-in and the frei0r plug-ins (the sanitizer
    // builds, where a row costs many times more).
    std::vector<unsigned> threadCounts;
    unsigned every = 1;
    while (argc >= 3 && (std::strcmp(argv[1], "--threads") == 0 || std::strcmp(argv[1], "--every") == 0)) {
        if (argv[1][2] == 'e') {
            every = unsigned(std::strtoul(argv[2], nullptr, 10));
            if (every == 0) every = 1;
        } else {
            for (char* p = argv[2];;) {
                threadCounts.push_back(unsigned(std::strtoul(p, &p, 10)));
                if (*p++ != ',') break;
            }
#ifndef FLAIRIZE_FRONT_ENDS
            std::fprintf(stderr, "conformance: --threads needs the slice threads, which only the full build has\n");
            return 2;
#endif
        }
        argc -= 2;
        argv += 2;
    }
    const bool write = argc == 3 && std::strcmp(argv[1], "--write") == 0;
    const bool all = argc == 3 && std::strcmp(argv[1], "--all") == 0;
    if (argc != 2 && !write && !all) {
        std::fprintf(stderr, "usage: conformance [--threads N,...] [--every K] [--write | --all] TABLEDIR\n");
        return 2;
    }
    const std::string dir = argv[argc - 1];
    Sources sources;
    const unsigned effects = flairize::effectCount();
    if (write) {
        for (unsigned effect = 0; effect < effects; ++effect) {
            std::ofstream out(tableFile(dir, effect));
            out << "# effect " << effect << ": source size sliders progress colour mode sha256\n";
            for (const Case& c : casesOf(effect))
                out << key(c) << " " << renderThrough(kEffectTable, c, sources.get(c.source, c.size)) << "\n";
            if (!out) {
                std::fprintf(stderr, "conformance: cannot write %s\n", tableFile(dir, effect).c_str());
                return 1;
            }
        }
        std::ofstream(dir + "/timing.txt") << "# the frame timing of every speed, position and direction: sha256\n"
                                            << timingHash() << "\n";
        std::printf("wrote the table of %u effects and the frame timing\n", effects);
        return 0;
    }

    // The table, row by row.
    std::vector<std::map<std::string, std::string>> expected(effects);
    for (unsigned effect = 0; effect < effects; ++effect) {
        std::ifstream in(tableFile(dir, effect));
        for (std::string line; std::getline(in, line);)
            if (!line.empty() && line[0] != '#') expected[effect][line.substr(0, line.rfind(' '))] = line.substr(line.rfind(' ') + 1);
    }
    std::map<std::string, Tally> tallies;
    const Report report = [&](const std::string& frontEnd, unsigned effect, const std::string& row, const std::string& got) {
        auto it = effect < effects ? expected[effect].find(row) : expected[0].end();
        const bool found = effect < effects && it != expected[effect].end();
        tallies[frontEnd].compare(frontEnd, effect, row, found ? it->second : "(no row)", got);
    };
    {
        std::ifstream in(dir + "/timing.txt");
        std::string line;
        while (std::getline(in, line) && !line.empty() && line[0] == '#') {}
        tallies["frame timing"].compare("frame timing", 0, "every speed, position and direction", line, timingHash());
    }
    const EffectTable& plain = plainEffectTable();
    const flairize::HostServices plainHost = hostops::plainServices();
    std::vector<std::pair<unsigned, flairize::HostServices>> threaded;
#ifdef FLAIRIZE_FRONT_ENDS
    for (unsigned n : threadCounts) threaded.emplace_back(n, hostops::threadedServices(n));
#endif
    for (unsigned effect = 0; effect < effects; ++effect) {
        // Effects with a plain form of their own, running one (Color Pencil runs
        // Charcoal) or using the colour operations (WaterColor, Glass).
        auto differs = [&](unsigned e) {
            return plain.records[e].line1 != kEffectTable.records[e].line1 ||
                   plain.records[e].line2 != kEffectTable.records[e].line2;
        };
        const EffectRecord& record = kEffectTable.records[effect];
        const bool colourOps = record.filter == waterColorFilter || record.filter == glassFilter;
        const bool hasPlainForm = differs(effect) || colourOps ||
                                  (record.filter == colorPencilFilter &&
                                   differs(static_cast<const InnerEffect*>(record.data)->effect));
        const std::vector<Case> cases = casesOf(effect);
        for (std::size_t i = 0; i < cases.size(); i += every) {
            const Case& c = cases[i];
            HGLOBAL source = sources.get(c.source, c.size);
            report("engine", effect, key(c), renderThrough(kEffectTable, c, source));
            for (const auto& t : threaded)
                report("engine, views, " + std::to_string(t.first) + " threads", effect, key(c),
                       renderThroughViews(c, source, t.second));
            if (hasPlainForm) report("plain forms", effect, key(c), renderThrough(plain, c, source, plainHost));
        }
    }
    long mismatches = all ? checkFrontEnds([&](Source s, Size z) { return sources.get(s, z); }, report, every) : 0;
    for (const auto& t : tallies) {
        std::printf("%-26s %7ld rows checked, %ld mismatches\n", t.first.c_str(), t.second.checked, t.second.mismatches);
        mismatches += t.second.mismatches;
    }
    return mismatches ? 1 : 0;
}
