/* The public header as a C99 program sees it (compiled with -std=c99
   -pedantic-errors -Werror): types, constants and calls of every kind. */
#include <flairize/flairize.h>

int flairize_header_check_c(void);

int flairize_header_check_c(void) {
    flairize_settings settings;
    flairize_record record;
    flairize_renderer* renderer = NULL;
    unsigned char block[FLAIRIZE_BLOCK_SIZE];
    unsigned char source[2 * 3] = {1, 2, 3, 4, 5, 6}, output[2 * 3];
    const char* message = NULL;
    unsigned effect = 0;
    if (flairize_effect_find("posterize", &effect) != FLAIRIZE_OK) return 1;
    if (flairize_settings_init(&settings, effect) != FLAIRIZE_OK) return 2;
    if (flairize_renderer_new(1, &renderer) != FLAIRIZE_OK) return 3;
    if (flairize_render(renderer, &settings, source, 3, output, 3, 2, 1, 3, FLAIRIZE_ORDER_RGB, &message) !=
        FLAIRIZE_OK)
        return 4;
    flairize_renderer_free(renderer);
    if (flairize_record_init(&record, effect) != FLAIRIZE_OK) return 5;
    record.progress = flairize_frame_progress(flairize_sequence_position(1, 3), 0, FLAIRIZE_DIRECTION_FORWARD);
    if (flairize_record_write(&record, block, sizeof block) != FLAIRIZE_OK) return 6;
    if (block[2] != 0x00 || block[3] != 0x20) return 7; /* progress 8192, little-endian */
    return message && *message == '\0' && flairize_abi_version() == FLAIRIZE_ABI_VERSION ? 0 : 8;
}
