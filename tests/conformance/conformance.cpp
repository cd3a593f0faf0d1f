// The conformance table: the SHA-256 of the output picture for every effect on
// every source, size, slider set, progress and colour, rendered fully and as
// the filter alone.
//   conformance --write TABLEDIR     renders every row and writes the table
//   conformance TABLEDIR             checks every row against the table
#include <cstdio>
#include <cstring>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "engine/effect_table.h"
#include "engine/render.h"
#include "host/exports.h"
#include "platform/global_memory.h"
#include "standalone/host_context.h"
#include "tests/conformance/cases.h"
#include "tests/conformance/sha256.h"

using namespace conformance;

namespace {

std::string tableFile(const std::string& dir, unsigned effect) {
    char name[32];
    std::snprintf(name, sizeof name, "/effect-%02u.txt", effect);
    return dir + name;
}

HGLOBAL toBlock(const std::vector<std::uint8_t>& dib) {
    HGLOBAL h = plat::globalAlloc(dib.size());
    std::memcpy(plat::globalLock(h), dib.data(), dib.size());
    plat::globalUnlock(h);
    return h;
}

// The hash of a result picture, or "refused" when there is none.
std::string hashOf(HGLOBAL picture) {
    if (!picture) return "refused";
    const auto* block = static_cast<const std::uint8_t*>(plat::globalLock(picture));
    const std::size_t size = resultBytes(block);
    const std::string h = size <= plat::globalSize(picture) ? sha256Hex(block, size) : "short";
    plat::globalUnlock(picture);
    return h;
}

std::string renderRow(const Case& c, HGLOBAL source) {
    const EffectRecord& e = g_effectTable[c.effect];
    SettingsRecord r{};
    r.effect = std::uint16_t(c.effect);
    r.progress = c.progress;
    std::uint16_t p[3];
    sliders(c.params, e.defaults, p);
    r.param1 = p[0], r.param2 = p[1], r.param3 = p[2];
    r.colour = kColours[c.colour];
    r.direction = 2;
    standalone::Context ctx(&r, source);
    HGLOBAL out = nullptr;
    if (c.filterOnly)
        out = render::filterOnly(ctx.engineView());
    else if (!GenerateDIB(ctx.engineView(), &out, 0))
        out = nullptr;
    const std::string h = hashOf(out);
    plat::globalFree(out);
    return h;
}

// The sources, made once.
struct Sources {
    std::map<std::pair<int, int>, HGLOBAL> blocks;
    HGLOBAL get(Source s, Size z) {
        HGLOBAL& h = blocks[{int(s), z.width * 100000 + z.height}];
        if (!h) h = toBlock(sourcePicture(s, z));
        return h;
    }
    ~Sources() {
        for (auto& b : blocks) plat::globalFree(b.second);
    }
};

}  // namespace

int main(int argc, char** argv) {
    const bool write = argc == 3 && std::strcmp(argv[1], "--write") == 0;
    if (!write && argc != 2) {
        std::fprintf(stderr, "usage: conformance [--write] TABLEDIR\n");
        return 2;
    }
    const std::string dir = argv[argc - 1];
    Sources sources;
    long rows = 0, mismatches = 0;
    for (unsigned effect = 0; effect < kEffectCount; ++effect) {
        const std::vector<Case> cases = casesOf(effect);
        if (write) {
            std::ofstream out(tableFile(dir, effect));
            out << "# effect " << effect << ": source size sliders progress colour mode sha256\n";
            for (const Case& c : cases) out << key(c) << " " << renderRow(c, sources.get(c.source, c.size)) << "\n";
            rows += long(cases.size());
            continue;
        }
        std::ifstream in(tableFile(dir, effect));
        std::map<std::string, std::string> expected;
        for (std::string line; std::getline(in, line);) {
            if (line.empty() || line[0] == '#') continue;
            const std::size_t space = line.rfind(' ');
            expected[line.substr(0, space)] = line.substr(space + 1);
        }
        for (const Case& c : cases) {
            const std::string got = renderRow(c, sources.get(c.source, c.size));
            ++rows;
            auto it = expected.find(key(c));
            if (it == expected.end() || it->second != got) {
                if (++mismatches <= 20)
                    std::printf("MISMATCH effect %u %s: table %s, rendered %s\n", effect, key(c).c_str(),
                                it == expected.end() ? "(no row)" : it->second.c_str(), got.c_str());
            }
        }
    }
    std::printf("%s %ld rows, %ld mismatches\n", write ? "wrote" : "checked", rows, mismatches);
    return mismatches ? 1 : 0;
}
