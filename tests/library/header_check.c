/* The public header as a C99 program sees it (compiled with -std=c99
   -pedantic-errors -Werror): types, constants and calls of every kind, and
   enumeration arguments outside their values, as C may pass them. */
#include <flairize/flairize.h>
#include <string.h>

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
    if (flairize_render(renderer, &settings, source, 6, output, 6, 2, 1, 3, FLAIRIZE_ORDER_RGB, &message) !=
        FLAIRIZE_OK)
        return 4;
    flairize_renderer_free(renderer);
    if (flairize_record_init(&record, effect) != FLAIRIZE_OK) return 5;
    record.progress = flairize_frame_progress(flairize_sequence_position(1, 3), 0, FLAIRIZE_DIRECTION_FORWARD);
    if (flairize_record_write(&record, block, sizeof block) != FLAIRIZE_OK) return 6;
    if (block[2] != 0x00 || block[3] != 0x20) return 7; /* progress 8192, little-endian */
    if (!message || *message != '\0' || flairize_abi_version() != FLAIRIZE_ABI_VERSION) return 8;
    /* C passes any int where an enumeration is asked for: those out of range are refused. */
    if (flairize_render(NULL, &settings, source, 6, output, 6, 2, 1, 3, (flairize_channel_order)-1, NULL) !=
        FLAIRIZE_ERROR_FORMAT)
        return 9;
    settings.mix = (uint32_t)-1;
    if (flairize_render(NULL, &settings, source, 6, output, 6, 2, 1, 3, FLAIRIZE_ORDER_BGR, NULL) !=
        FLAIRIZE_ERROR_ARGUMENT)
        return 10;
    return strcmp(flairize_status_text((flairize_status)-1), "unknown status") == 0 ? 0 : 11;
}
