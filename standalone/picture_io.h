// Picture files for the stand-alone host: BMP, PNG, JPEG, WebP and TIFF in and
// out, through libpng, libjpeg-turbo, libwebp and libtiff.
#pragma once

#include <string>

#include "platform/win_types.h"

namespace pictures {

enum class Format { Unknown, Bmp, Png, Jpeg, WebP, Tiff };

// The format an output name asks for, by its extension (any case): .bmp, .png,
// .jpg/.jpeg, .webp, .tif/.tiff; "-" (standard output) is PNG.
Format formatOf(const std::string& path);
bool takesQuality(Format format);   // JPEG and WebP
extern const char* const kKnownExtensions;   // for messages: ".bmp, .png, ..."

struct WriteOptions {
    // 1..100 for JPEG and WebP; 0 is the default: JPEG quality 90, WebP lossless.
    int quality = 0;
};

// Reads a picture into a new packed DIB (8-bit with colour table, 24- or 32-bit,
// bottom-up, BI_RGB); the format is told by the file's first bytes. "-" reads
// standard input. Pictures with alpha become 32-bit, others 24-bit; palette
// PNG and TIFF files stay 8-bit with their colour table; 16-bit channels are
// rounded to 8 bits. On failure returns null and sets `error` to a short reason.
HGLOBAL read(const std::string& path, std::string& error);

// Writes a packed DIB in the format of formatOf(path); "-" writes standard
// output. A file is written beside its final place and renamed, so a failure
// leaves nothing (see output_file.h).
bool write(const std::string& path, HGLOBAL picture, std::string& error, const WriteOptions& options = {});

bool hasExtension(const std::string& path, const char* ext);   // case-insensitive

}  // namespace pictures
