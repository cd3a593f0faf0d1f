// The conformance rows through the front ends other than the engine API.
#pragma once

#include <functional>
#include <string>

#include "engine/flairize.h"
#include "tests/conformance/cases.h"

namespace conformance {

std::string hashOf(HGLOBAL picture);   // of a result picture; "refused" for none
flairize::Settings settingsOf(const Case& c);

using SourceOf = std::function<HGLOBAL(Source, Size)>;
// A row's result from a front end: its name, the effect, the row's key, the hash.
using Report = std::function<void(const std::string& frontEnd, unsigned effect, const std::string& row,
                                  const std::string& hash)>;

// The plug-in's exports, the frei0r plug-ins, `flairize render`, the C library
// and the DLL under Wine, as far as each is built and configured; says what it
// skipped. The plug-in and the frei0r plug-ins take every `every`-th row of each
// effect (the rows the engine's check takes). Returns how many checks beside the
// rows failed (the Wine host's own).
long checkFrontEnds(const SourceOf& source, const Report& report, unsigned every = 1);

}  // namespace conformance
