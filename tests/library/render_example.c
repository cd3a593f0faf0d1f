/* Renders a binary PPM picture (P6, 8 bits a channel) with one of the Flairize
   effects through libflairize and writes the result as PPM:

     render_example IN.ppm OUT.ppm EFFECT [PROGRESS [RRGGBB [P1 P2 P3]]]

   EFFECT is a name as `flairize list` shows it ("posterize"); PROGRESS is
   0..16384 (default: the full effect); RRGGBB the colour in hex; P1..P3 the
   sliders (default: the effect's own). The pixels are rendered in RGB order,
   as the file holds them, on all cores. */
#include <flairize/flairize.h>
#include <stdio.h>
#include <stdlib.h>

static unsigned char* readPpm(const char* path, unsigned* width, unsigned* height) {
    FILE* file = fopen(path, "rb");
    unsigned maxval = 0;
    unsigned char* pixels = NULL;
    if (file && fscanf(file, "P6 %u %u %u", width, height, &maxval) == 3 && maxval == 255 && fgetc(file) != EOF &&
        *width > 0 && *height > 0 && *width <= 65535 && *height <= 65535) {
        const size_t size = (size_t)*width * *height * 3;
        pixels = malloc(size);
        if (pixels && fread(pixels, 1, size, file) != size) {
            free(pixels);
            pixels = NULL;
        }
    }
    if (file) fclose(file);
    return pixels;
}

static int writePpm(const char* path, const unsigned char* pixels, unsigned width, unsigned height) {
    FILE* file = fopen(path, "wb");
    const size_t size = (size_t)width * height * 3;
    int ok = file && fprintf(file, "P6\n%u %u\n255\n", width, height) > 0 && fwrite(pixels, 1, size, file) == size;
    if (file && fclose(file) != 0) ok = 0;
    return ok;
}

int main(int argc, char** argv) {
    flairize_settings settings;
    flairize_renderer* renderer = NULL;
    flairize_status status;
    const char* message = "";
    unsigned effect, width, height, k;
    unsigned char *source, *output;
    if (argc < 4 || argc > 9 || argc == 7 || argc == 8) {
        fprintf(stderr, "usage: render_example IN.ppm OUT.ppm EFFECT [PROGRESS [RRGGBB [P1 P2 P3]]]\n");
        return 2;
    }
    if (flairize_effect_find(argv[3], &effect) != FLAIRIZE_OK) {
        fprintf(stderr, "render_example: no effect is named %s\n", argv[3]);
        return 2;
    }
    flairize_settings_init(&settings, effect); /* the effect's defaults, full progress, black */
    if (argc > 4) settings.progress = (uint32_t)strtoul(argv[4], NULL, 10);
    if (argc > 5) settings.colour = (uint32_t)strtoul(argv[5], NULL, 16);
    for (k = 0; argc > 6 && k < 3; ++k) settings.sliders[k] = (uint32_t)strtoul(argv[6 + k], NULL, 10);

    source = readPpm(argv[1], &width, &height);
    if (!source) {
        fprintf(stderr, "render_example: %s is not a binary PPM of 8-bit channels\n", argv[1]);
        return 1;
    }
    output = malloc((size_t)width * height * 3);
    status = output ? flairize_renderer_new(0, &renderer) : FLAIRIZE_ERROR_OUT_OF_MEMORY;
    if (status == FLAIRIZE_OK)
        status = flairize_render(renderer, &settings, source, (ptrdiff_t)width * 3, output, (ptrdiff_t)width * 3, width,
                                 height, 3, FLAIRIZE_ORDER_RGB, &message);
    flairize_renderer_free(renderer);
    if (status != FLAIRIZE_OK) {
        fprintf(stderr, "render_example: %s (%s)\n", flairize_status_text(status), message);
    } else if (!writePpm(argv[2], output, width, height)) {
        fprintf(stderr, "render_example: cannot write %s\n", argv[2]);
        status = FLAIRIZE_ERROR_ARGUMENT;
    }
    free(source);
    free(output);
    return status == FLAIRIZE_OK ? 0 : 1;
}
