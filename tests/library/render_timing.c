/* Times flairize_render on a 1920 x 1080 picture of 4 bytes a pixel, in BGRA
   and in RGBA order, alternating, and prints the fastest and the median of
   each: what the channel swap of RGB pictures costs.
     render_timing [EFFECT [THREADS [RUNS]]]   (default: posterize, all cores, 15) */
#define _POSIX_C_SOURCE 199309L /* clock_gettime */

#include <flairize/flairize.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

enum { kWidth = 1920, kHeight = 1080, kMaxRuns = 200 };

static double now(void) {
    struct timespec t;
    clock_gettime(CLOCK_MONOTONIC, &t);
    return (double)t.tv_sec * 1e3 + (double)t.tv_nsec / 1e6;
}

static int byTime(const void* a, const void* b) {
    const double x = *(const double*)a, y = *(const double*)b;
    return x < y ? -1 : x > y;
}

int main(int argc, char** argv) {
    const char* name = argc > 1 ? argv[1] : "posterize";
    const unsigned threads = argc > 2 ? (unsigned)atoi(argv[2]) : 0;
    int runs = argc > 3 ? atoi(argv[3]) : 15, order, i;
    const size_t stride = (size_t)kWidth * 4, size = stride * kHeight;
    unsigned char* source = malloc(size);
    unsigned char* output = malloc(size);
    double times[2][kMaxRuns];
    flairize_renderer* renderer = NULL;
    flairize_settings settings;
    unsigned effect;
    if (runs < 1 || runs > kMaxRuns) runs = 15;
    if (!source || !output || flairize_effect_find(name, &effect) != FLAIRIZE_OK ||
        flairize_renderer_new(threads, &renderer) != FLAIRIZE_OK) {
        fprintf(stderr, "render_timing: cannot set up %s\n", name);
        return 1;
    }
    for (i = 0; i < (int)size; ++i) source[i] = (unsigned char)((i * 7) ^ (i >> 11));
    flairize_settings_init(&settings, effect);
    for (i = -1; i < runs; ++i) /* the first round warms the threads and caches up */
        for (order = 0; order < 2; ++order) {
            const double start = now();
            if (flairize_render(renderer, &settings, source, (ptrdiff_t)stride, output, (ptrdiff_t)stride, kWidth,
                                kHeight, 4, order ? FLAIRIZE_ORDER_RGB : FLAIRIZE_ORDER_BGR, NULL) != FLAIRIZE_OK) {
                fprintf(stderr, "render_timing: the render failed\n");
                return 1;
            }
            if (i >= 0) times[order][i] = now() - start;
        }
    printf("%s, %d x %d, 4 bytes a pixel, %u threads, %d runs each:\n", name, kWidth, kHeight,
           flairize_renderer_threads(renderer), runs);
    for (order = 0; order < 2; ++order) {
        qsort(times[order], (size_t)runs, sizeof(double), byTime);
        printf("  %s order: fastest %.2f ms, median %.2f ms\n", order ? "RGBA" : "BGRA", times[order][0],
               times[order][runs / 2]);
    }
    printf("  the swap costs %.2f ms at the median (%.0f%%)\n", times[1][runs / 2] - times[0][runs / 2],
           100.0 * (times[1][runs / 2] - times[0][runs / 2]) / times[0][runs / 2]);
    flairize_renderer_free(renderer);
    free(source);
    free(output);
    return 0;
}
