// What the engine asks of the host that runs it, as a table of functions the
// host hands to every render. The plug-in forwards them to the host's libraries
// (host/plugin_services.cpp); the Linux front ends use hostops/host_ops.h.
#pragma once

#include <cstdint>

#include "platform/win_types.h"

namespace dib {
struct View;
}

namespace flairize {

// The host's colour operations by name, for a chain of them.
enum class ColourOp : std::uint8_t { Smooth, Simplify, Soften };

struct HostServices {
    void* user = nullptr;   // handed back to every function
    // Byte size of the colour table that follows a picture header (BASEKIT 401).
    std::uint16_t (*colourTableSize)(void* user, const BITMAPINFOHEADER* header) = nullptr;
    // Once before every row, or band of marks, of a render (BASEKIT 702); may be null.
    void (*rowTick)(void* user) = nullptr;
    // A new picture blending two of equal size, weight 0..16384 the share of the
    // second (BASEKIT 409); null when it fails. Neither input is changed.
    HGLOBAL (*mix)(void* user, HGLOBAL first, HGLOBAL second, std::uint32_t weight) = nullptr;
    // The same blend for one row, in place: row = (first * (16384 - weight) +
    // row * weight) >> 14 per byte over `width` pixels of `bytesPerPixel`
    // bytes (3 or 4); a first row of 1-byte pixels is read through colourTable.
    // Null: the engine blends whole pictures with `mix`.
    void (*mixRow)(void* user, const std::uint8_t* first, unsigned firstBytesPerPixel,
                   const std::uint8_t* colourTable, std::uint8_t* row, unsigned width, unsigned bytesPerPixel,
                   std::uint32_t weight) = nullptr;
    // Whole-picture colour operations (HUEKIT 22, 17, 21): a new picture of the
    // same size, or null; the input is left as it is.
    HGLOBAL (*smooth)(void* user, HGLOBAL picture) = nullptr;
    HGLOBAL (*simplify)(void* user, HGLOBAL picture) = nullptr;
    HGLOBAL (*soften)(void* user, HGLOBAL picture) = nullptr;
    // The same operations chained from view to view: ops[0] reads `source`,
    // each further one the result of the one before, and the last writes
    // `output` (the source's size; 24 bits, or 32 with the source's alpha).
    // The chain gives what the picture forms one after another would give.
    // False when working memory cannot be had. Null: the engine chains the
    // picture forms.
    bool (*colourChain)(void* user, const ColourOp* ops, unsigned count, const dib::View& source,
                        const dib::View& output) = nullptr;
    // Runs body(context, begin, end) over bands that cover rows 0 .. count - 1
    // once each, possibly on several threads at once (rowTick may then be
    // called from them too). Null: the engine runs the rows in order itself.
    void (*parallel)(void* user, unsigned count, void (*body)(void* context, unsigned begin, unsigned end),
                     void* context) = nullptr;
    // How many bands `parallel` runs at once at most; 0 where it does not say.
    unsigned threads = 0;
};

}  // namespace flairize
