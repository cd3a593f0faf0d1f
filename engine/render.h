// Rendering one frame: publish the render values, run the effect's filter and
// mix its result with the source by the progress where the effect asks for it.
#pragma once

#include <cstdint>

#include "host/settings_record.h"
#include "platform/win_types.h"

namespace render {

// The preview's render (the editor's callback): the effect selected in the
// editor, its working parameters, and the record's colour and progress.
// Returns 1 with a new picture in *resultOut, 0 when the filter failed.
std::uint32_t preview(std::uint16_t effect, HGLOBAL source, const SettingsRecord& record,
                      std::uint16_t p1, std::uint16_t p2, std::uint16_t p3, HGLOBAL* resultOut,
                      HPALETTE* paletteOut);

// GenerateDIB's render without the final progress mix: the filter's own result.
HGLOBAL filterOnly(void* hostContext);

inline std::uint16_t clampParam(std::uint16_t p) { return p > 255 ? 255 : p; }
inline std::uint32_t clampProgress(std::uint32_t p) { return p > 16384 ? 16384 : p; }

}  // namespace render
