// Writes Kdenlive's description of every offered effect's frei0r plug-in, one
// file frei0r_flairize-<effect>.xml each, from the catalogue: the effect's name
// and what it does, each shown slider with its label and explanation, shown as
// its 0..255 steps and sent to the plug-in as 0..1 (Kdenlive's factor="255"),
// Progress as a keyframable percentage, and the colour for effects that paint
// with one. Other frei0r_flairize-*.xml files in the folder are removed.
//   make_descriptions DIR
#include <cctype>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <system_error>

#include "engine/flairize.h"

namespace fs = std::filesystem;

namespace {

std::string escaped(const std::string& text) {
    std::string out;
    for (const char c : text) {
        if (c == '&')
            out += "&amp;";
        else if (c == '<')
            out += "&lt;";
        else if (c == '>')
            out += "&gt;";
        else if (c == '"')
            out += "&quot;";
        else
            out += c;
    }
    return out;
}

std::string capitalised(std::string text) {
    if (!text.empty()) text[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(text[0])));
    return text;
}

// A default as the plug-in takes it (steps / 255), with digits enough to come back to the same step.
std::string fraction(unsigned steps, unsigned top) {
    char text[32];
    std::snprintf(text, sizeof text, "%.6g", double(steps) / top);
    return text;
}

std::string description(unsigned e) {
    const std::string plugin = "frei0r.flairize-" + flairize::effectSlug(e);
    const bool fades = flairize::effectFadesIn(e);
    std::ostringstream xml;
    xml << "<?xml version=\"1.0\"?>\n<!DOCTYPE kpartgui>\n"
        << "<effect tag=\"" << plugin << "\" id=\"" << plugin << "\" type=\"video\">\n"
        << "    <name>" << escaped(flairize::effectName(e)) << " (Flairize)</name>\n"
        << "    <description>" << escaped(flairize::effectDescription(e)) << "</description>\n"
        << "    <author>Flairize</author>\n";
    for (int k = 0; k < 3; ++k) {
        if (!flairize::sliderLabelId(e, k)) continue;
        const std::string label = flairize::sliderLabel(e, k), unit = flairize::sliderUnit(e, k);
        const unsigned top = flairize::sliderMaximum(e, k);
        xml << "    <parameter type=\"animated\" name=\"" << escaped(label) << "\" default=\""
            << fraction(flairize::sliderDefault(e, k), top) << "\" min=\"" << flairize::sliderMinimum(e, k)
            << "\" max=\"" << top << "\" factor=\"" << top << "\">\n"
            << "        <name>" << escaped(label) << "</name>\n"
            << "        <comment>" << escaped(capitalised(flairize::sliderMeaning(e, k)))
            << (unit.empty() ? "" : "; one step is " + escaped(unit)) << ".</comment>\n"
            << "    </parameter>\n";
    }
    xml << "    <parameter type=\"animated\" name=\"Progress\" default=\"1\" min=\"0\" max=\"100\" factor=\"100\""
           " suffix=\"%\">\n"
        << "        <name>Progress</name>\n"
        << "        <comment>"
        << (fades ? "How far the effect has faded in: 0% shows the clip, 100% the full effect. Add keyframes to "
                    "fade it in."
                  : "How far the effect has advanced: 100% is the full effect. Add keyframes to animate it.")
        << "</comment>\n"
        << "    </parameter>\n";
    if (flairize::effectUsesColour(e))
        xml << "    <parameter type=\"color\" name=\"Color\" default=\"0x000000ff\">\n"
            << "        <name>Color</name>\n"
            << "        <comment>The colour the effect paints with.</comment>\n"
            << "    </parameter>\n";
    xml << "</effect>\n";
    return xml.str();
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: make_descriptions DIR\n");
        return 2;
    }
    const fs::path dir = argv[1];
    std::error_code error;
    fs::create_directories(dir, error);
    std::set<std::string> names;
    for (unsigned e = 0; e < flairize::effectCount(); ++e) {
        if (!flairize::effectOffered(e)) continue;
        const std::string name = "frei0r_flairize-" + flairize::effectSlug(e) + ".xml";
        names.insert(name);
        const fs::path temporary = dir / (name + ".new");
        std::ofstream out(temporary, std::ios::binary | std::ios::trunc);
        out << description(e);
        out.close();
        if (!out) {
            std::fprintf(stderr, "make_descriptions: cannot write %s\n", temporary.c_str());
            return 1;
        }
        fs::rename(temporary, dir / name, error);
        if (error) break;
    }
    for (const auto& entry : fs::directory_iterator(dir, error)) {
        const std::string name = entry.path().filename().string();
        if (name.rfind("frei0r_flairize-", 0) == 0 && !names.count(name)) fs::remove(entry.path(), error);
    }
    if (error) {
        std::fprintf(stderr, "make_descriptions: %s\n", error.message().c_str());
        return 1;
    }
    std::printf("%zu Kdenlive effect descriptions in %s\n", names.size(), dir.c_str());
    return 0;
}
