// Picture files for the stand-alone host: BMP and PNG in, BMP and PNG out.
#pragma once

#include <string>

#include "platform/win_types.h"

namespace pictures {

// Reads a picture into a new packed DIB (8-bit with colour table, 24- or 32-bit,
// bottom-up, BI_RGB). On failure returns null and sets `error` to a short reason.
HGLOBAL read(const std::string& path, std::string& error);

// Writes a packed DIB; the format follows the extension (.bmp or .png). The file
// is written beside its final place and renamed, so a failure leaves nothing.
bool write(const std::string& path, HGLOBAL picture, std::string& error);

bool hasExtension(const std::string& path, const char* ext);   // case-insensitive

}  // namespace pictures
