// A contact sheet: pictures at half size in a grid, each under its caption.
#pragma once

#include <string>
#include <vector>

#include "platform/win_types.h"

namespace cli {

struct SheetTile {
    std::string caption;
    HGLOBAL picture;   // a packed DIB of any depth; the caller keeps it
};

// A new 24-bit picture, or null when its memory cannot be had.
HGLOBAL contactSheet(const std::vector<SheetTile>& tiles, int columns);

}  // namespace cli
