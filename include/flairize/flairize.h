/* libflairize: the Flairize picture effects for C and every language that
   calls C (C++, Python's ctypes, Rust through bindgen).

   The library renders one of the effects from a picture buffer into another,
   bit for bit as the flairize command renders it, and tells what the effects
   are: their names, sliders and what those do. It also reads and writes the
   20-byte settings block and turns a sequence position into an effect's
   progress.

   Conventions:
   - Functions that can fail return a flairize_status; FLAIRIZE_OK is 0. On a
     failure nothing the caller passed in is changed, except a render's output
     buffer, whose contents are then unspecified.
   - The library keeps no settings between calls and never prints. A renderer
     (flairize_renderer) holds what a render needs beside its arguments.
   - Texts returned as `const char*` are UTF-8, have static storage (valid for
     as long as the library is loaded) and belong to the library.
   - Colours are 0xRRGGBB: red in bits 16..23, green in 8..15, blue in 0..7;
     the top byte is ignored by renders.
   - Every function may be called from several threads at once; a renderer
     must outlive the renders that use it. */
#ifndef FLAIRIZE_FLAIRIZE_H
#define FLAIRIZE_FLAIRIZE_H

#include <stddef.h>
#include <stdint.h>

#if defined(_WIN32)
#define FLAIRIZE_API
#elif defined(__GNUC__)
#define FLAIRIZE_API __attribute__((visibility("default")))
#else
#define FLAIRIZE_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* The ABI this header describes: the library file is libflairize.so.0. Within
   ABI 0 functions and constants are only ever added, never changed. */
#define FLAIRIZE_ABI_VERSION 0

/* ---- status */

typedef enum flairize_status {
    FLAIRIZE_OK = 0,
    FLAIRIZE_ERROR_NULL = 1,              /* a pointer that must be given is null */
    FLAIRIZE_ERROR_SIZE = 2,              /* width or height is 0 or more than 65535 */
    FLAIRIZE_ERROR_STRIDE = 3,            /* a stride is smaller than a row's bytes (width x bytes per pixel) */
    FLAIRIZE_ERROR_FORMAT = 4,            /* bytes per pixel is not 3 or 4, or the channel order is unknown */
    FLAIRIZE_ERROR_EFFECT = 5,            /* an effect index outside the catalogue, or a name it does not hold */
    FLAIRIZE_ERROR_ARGUMENT = 6,          /* another argument out of range: the mix, a thread count, a block
                                             that is too short, buffers that overlap */
    FLAIRIZE_ERROR_OUT_OF_MEMORY = 7,     /* memory for the render could not be had */
    FLAIRIZE_ERROR_REFUSED = 8,           /* the engine refused the render */
    FLAIRIZE_ERROR_INTERNAL = 9,          /* an unexpected failure inside the library */
    FLAIRIZE_STATUS_MAX_ENUM = 0x7FFFFFFF /* not a status: keeps the type as wide as an int */
} flairize_status;

/* The status in words ("out of memory"); an unknown value gives "unknown status". */
FLAIRIZE_API const char* flairize_status_text(flairize_status status);

/* ---- version */

/* The Flairize release the library belongs to, "MAJOR.MINOR" (as `flairize --version` shows it). */
FLAIRIZE_API const char* flairize_version(void);

/* The ABI the library was built with: FLAIRIZE_ABI_VERSION of its own header. */
FLAIRIZE_API unsigned flairize_abi_version(void);

/* ---- the catalogue of effects

   Effects are numbered 0 .. flairize_effect_count() - 1; the numbers are those of
   the settings block and of `flairize list`. An effect number outside that range
   gives "" from the text functions and 0 from the others. Sliders are numbered
   0..2; a slider the effect does not show gives "" and 0 alike. */

/* The number of effects, offered or not. */
FLAIRIZE_API unsigned flairize_effect_count(void);

/* The effect's name as the catalogue holds it: "Find Edges"; effects that are
   not offered start with "*" ("*Bubbles [24]"). */
FLAIRIZE_API const char* flairize_effect_name(unsigned effect);

/* The name in lower case with dashes, as the flairize command takes it: "find-edges". */
FLAIRIZE_API const char* flairize_effect_slug(unsigned effect);

/* One line on what the effect does. */
FLAIRIZE_API const char* flairize_effect_description(unsigned effect);

/* "Artistic", "Blur", "Distort", "Stylize" or "Texture". */
FLAIRIZE_API const char* flairize_effect_category(unsigned effect);

/* 1 when the editor offers the effect, 0 for effects kept in the catalogue only. */
FLAIRIZE_API int flairize_effect_offered(unsigned effect);

/* 1 when the effect's full render (FLAIRIZE_MIX_FULL) blends its result with the
   source by the progress, so that it fades in over a sequence; 0 when the
   progress drives the effect itself. */
FLAIRIZE_API int flairize_effect_fades_in(unsigned effect);

/* 1 when the effect paints with the settings' colour. */
FLAIRIZE_API int flairize_effect_uses_colour(unsigned effect);

/* The effect whose slug or name (as above, any case) is `name`, into *effect.
   FLAIRIZE_ERROR_NULL for a null pointer, FLAIRIZE_ERROR_EFFECT when no effect
   has that name. */
FLAIRIZE_API flairize_status flairize_effect_find(const char* name, unsigned* effect);

/* 1 when the effect shows slider 0..2 and reads its value, else 0. */
FLAIRIZE_API int flairize_slider_shown(unsigned effect, unsigned slider);

/* The slider's label: "Colors", "Amount", "Angle", "Number", "Randomness" or "Size". */
FLAIRIZE_API const char* flairize_slider_label(unsigned effect, unsigned slider);

/* The flairize command's option for the slider, without dashes: "colors", "amount", ... */
FLAIRIZE_API const char* flairize_slider_option(unsigned effect, unsigned slider);

/* What the slider does in the effect's own terms. */
FLAIRIZE_API const char* flairize_slider_meaning(unsigned effect, unsigned slider);

/* The slider's unit in words ("1/256 turn" for angles), or "" for a plain number. */
FLAIRIZE_API const char* flairize_slider_unit(unsigned effect, unsigned slider);

/* The slider's default value, and the range it takes (0 and 255 for a shown
   slider; larger values act as the maximum). */
FLAIRIZE_API unsigned flairize_slider_default(unsigned effect, unsigned slider);
FLAIRIZE_API unsigned flairize_slider_minimum(unsigned effect, unsigned slider);
FLAIRIZE_API unsigned flairize_slider_maximum(unsigned effect, unsigned slider);

/* ---- render settings */

typedef enum flairize_mix {
    FLAIRIZE_MIX_FULL = 0,   /* the full render: effects that fade in are blended with the source by the progress */
    FLAIRIZE_MIX_FILTER = 1, /* the effect's filter alone, without that blend */
    FLAIRIZE_MIX_MAX_ENUM = 0x7FFFFFFF
} flairize_mix;

/* What a render does. Fields are fixed-width so that the layout is the same
   from every language. */
typedef struct flairize_settings {
    uint32_t effect;     /* 0 .. flairize_effect_count() - 1 */
    uint32_t sliders[3]; /* 0..255 each; larger values act as 255 (flairize_settings_init sets
                            the defaults, also of sliders the effect does not show) */
    uint32_t colour;     /* 0xRRGGBB, for effects that paint with a colour */
    uint32_t progress;   /* 0..16384, how far the effect has advanced; larger values act as 16384 */
    uint32_t mix;        /* a flairize_mix */
} flairize_settings;

/* Fills *settings with the effect's default sliders, full progress (16384),
   black and FLAIRIZE_MIX_FULL. FLAIRIZE_ERROR_NULL, FLAIRIZE_ERROR_EFFECT. */
FLAIRIZE_API flairize_status flairize_settings_init(flairize_settings* settings, unsigned effect);

/* ---- rendering */

/* The order of a pixel's colour bytes in memory. With 4 bytes a pixel the
   fourth byte follows the three colours in both orders (BGRA, RGBA); the
   engine takes it as the effect's mask, as it does for every 32-bit picture.
   It is not premultiplied alpha. The engine works in BGR; an RGB picture is converted
   inside the library, with a working copy of the source. */
typedef enum flairize_channel_order {
    FLAIRIZE_ORDER_BGR = 0, /* blue, green, red (, alpha): Windows DIBs, frei0r's BGRA8888 */
    FLAIRIZE_ORDER_RGB = 1, /* red, green, blue (, alpha): PNG, Python's imaging, GEGL, the browser */
    FLAIRIZE_ORDER_MAX_ENUM = 0x7FFFFFFF
} flairize_channel_order;

/* What renders need beside their arguments: the threads to render on. A
   renderer may serve several renders at once, from any threads, until it is
   freed. */
typedef struct flairize_renderer flairize_renderer;

/* A new renderer into *renderer, rendering on `threads` threads: 0 for all
   cores, 1 for none but the caller's, up to 1024. The result is the same for
   every count. FLAIRIZE_ERROR_NULL, FLAIRIZE_ERROR_ARGUMENT (threads > 1024),
   FLAIRIZE_ERROR_OUT_OF_MEMORY. Free it with flairize_renderer_free. */
FLAIRIZE_API flairize_status flairize_renderer_new(unsigned threads, flairize_renderer** renderer);

/* Frees a renderer that no render is using any more; null is allowed. */
FLAIRIZE_API void flairize_renderer_free(flairize_renderer* renderer);

/* The number of threads the renderer renders on (0 given: the cores counted); 1 for null. */
FLAIRIZE_API unsigned flairize_renderer_threads(const flairize_renderer* renderer);

/* Renders the effect that `settings` names from `source` into `output`.

   Both buffers hold width x height pixels of bytes_per_pixel bytes (3 or 4) in
   the given channel order; the pointer is the first byte of the top row, and
   a stride is the distance in bytes from a row to the row below it (negative
   for a picture stored bottom row first; its size at least width x
   bytes_per_pixel). The output is the same size and depth as the source; the
   two must not overlap. The source is only read. Bytes between the rows (a
   stride's padding) are neither read nor written.

   renderer: null renders on the caller's thread alone.
   message: when not null, *message is set to a text on the outcome ("" for
   FLAIRIZE_OK), more precise than flairize_status_text.

   Returns FLAIRIZE_OK, or: FLAIRIZE_ERROR_NULL (source, output or settings),
   FLAIRIZE_ERROR_SIZE, FLAIRIZE_ERROR_STRIDE, FLAIRIZE_ERROR_FORMAT,
   FLAIRIZE_ERROR_EFFECT, FLAIRIZE_ERROR_ARGUMENT (an unknown mix, overlapping
   buffers), FLAIRIZE_ERROR_OUT_OF_MEMORY, FLAIRIZE_ERROR_REFUSED,
   FLAIRIZE_ERROR_INTERNAL. The arguments are checked before any pixel is
   touched; after a failure past that point the output's contents are
   unspecified. */
FLAIRIZE_API flairize_status flairize_render(const flairize_renderer* renderer, const flairize_settings* settings,
                                             const void* source, ptrdiff_t source_stride, void* output,
                                             ptrdiff_t output_stride, uint32_t width, uint32_t height,
                                             uint32_t bytes_per_pixel, flairize_channel_order order,
                                             const char** message);

/* ---- frame timing

   A sequence runs positions 0..16384 from its first frame to its last. */

/* The progress (0..16384) of a sequence position: bent by the speed curve
   (speed -128..127, values beyond are clamped; positive speeds start slowly,
   negative ones quickly; below -124 the curve saturates), then mapped through
   the direction's low two bits (FLAIRIZE_DIRECTION_*). Positions above 16384
   act as 16384. */
FLAIRIZE_API uint32_t flairize_frame_progress(uint32_t position, int speed, uint32_t direction);

#define FLAIRIZE_DIRECTION_BACKWARD 0u
#define FLAIRIZE_DIRECTION_CYCLE 1u
#define FLAIRIZE_DIRECTION_FORWARD 2u
#define FLAIRIZE_DIRECTION_REVERSE_CYCLE 3u

/* The position of frame `frame` (0 .. frames - 1) of a sequence of `frames`:
   frame x 16384 / (frames - 1); a single frame (or none) sits at 16384. */
FLAIRIZE_API uint32_t flairize_sequence_position(uint64_t frame, uint64_t frames);

/* ---- the settings block

   The 20 bytes kept for every use of the effect (a .flr file, a project's
   settings): effect, progress, the three sliders, direction and colour,
   little-endian, 2 or 4 bytes each, no padding. */

#define FLAIRIZE_BLOCK_SIZE 20

typedef struct flairize_record {
    uint16_t effect;
    uint32_t progress; /* 0..16384 */
    uint16_t param1;   /* the sliders */
    uint16_t param2;
    uint16_t param3;
    uint32_t direction; /* low two bits: FLAIRIZE_DIRECTION_* */
    uint32_t colour;    /* 0xRRGGBB; the block stores red in its lowest byte. The
                           top byte is carried through as the block has it. */
} flairize_record;

/* A new record for the effect: its default sliders, progress 0, Forward, black.
   FLAIRIZE_ERROR_NULL, FLAIRIZE_ERROR_EFFECT. */
FLAIRIZE_API flairize_status flairize_record_init(flairize_record* record, unsigned effect);

/* Reads the record from the first FLAIRIZE_BLOCK_SIZE bytes of block (size:
   the bytes there). The fields are taken as they are, unchecked: a block from
   a file may name an effect outside the catalogue (flairize_record_settings
   says so). FLAIRIZE_ERROR_NULL, FLAIRIZE_ERROR_ARGUMENT (size < 20). */
FLAIRIZE_API flairize_status flairize_record_read(const void* block, size_t size, flairize_record* record);

/* Writes the record into the first FLAIRIZE_BLOCK_SIZE bytes of block (size:
   the bytes there). FLAIRIZE_ERROR_NULL, FLAIRIZE_ERROR_ARGUMENT (size < 20). */
FLAIRIZE_API flairize_status flairize_record_write(const flairize_record* record, void* block, size_t size);

/* The render settings a record gives: its effect, sliders, colour and progress,
   with FLAIRIZE_MIX_FULL. FLAIRIZE_ERROR_NULL, FLAIRIZE_ERROR_EFFECT (the
   record's effect is outside the catalogue; *settings is left as it was). */
FLAIRIZE_API flairize_status flairize_record_settings(const flairize_record* record, flairize_settings* settings);

#ifdef __cplusplus
}
#endif

#endif /* FLAIRIZE_FLAIRIZE_H */
