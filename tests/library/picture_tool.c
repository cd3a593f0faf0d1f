/* Pictures for the library's install test, with no library of their own:
     picture_tool make WIDTH HEIGHT OUT.ppm OUT.bmp   the same seeded picture as PPM and as 24-bit BMP
     picture_tool ppm BMP OUT.ppm                      a 24-bit BMP's pixels as PPM */
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static void put32(unsigned char* at, uint32_t v) {
    at[0] = (unsigned char)v, at[1] = (unsigned char)(v >> 8), at[2] = (unsigned char)(v >> 16),
    at[3] = (unsigned char)(v >> 24);
}

static uint32_t get32(const unsigned char* at) {
    return (uint32_t)at[0] | (uint32_t)at[1] << 8 | (uint32_t)at[2] << 16 | (uint32_t)at[3] << 24;
}

static int writePpm(const char* path, const unsigned char* rgb, unsigned width, unsigned height) {
    FILE* f = fopen(path, "wb");
    const size_t size = (size_t)width * height * 3;
    int ok = f && fprintf(f, "P6\n%u %u\n255\n", width, height) > 0 && fwrite(rgb, 1, size, f) == size;
    if (f && fclose(f) != 0) ok = 0;
    return ok;
}

/* Smooth gradients, flat blocks and noise, so that effects meet all three. */
static void colourAt(unsigned x, unsigned y, unsigned char rgb[3]) {
    uint32_t h = (x / 7u) * 2654435761u ^ (y / 5u) * 2246822519u;
    h ^= h >> 13;
    h *= 3266489917u;
    h ^= h >> 16;
    switch ((x / 16u + y / 16u) % 3u) {
        case 0:
            rgb[0] = (unsigned char)(x * 3u), rgb[1] = (unsigned char)(y * 2u), rgb[2] = (unsigned char)(x + y);
            break;
        case 1:
            rgb[0] = (unsigned char)h, rgb[1] = (unsigned char)(h >> 8), rgb[2] = (unsigned char)(h >> 16);
            break;
        default:
            h = (x * 2654435761u) ^ (y * 40503u);
            h ^= h >> 15;
            h *= 2246822519u;
            rgb[0] = (unsigned char)(h >> 3), rgb[1] = (unsigned char)(h >> 11), rgb[2] = (unsigned char)(h >> 19);
    }
}

static int make(unsigned width, unsigned height, const char* ppmPath, const char* bmpPath) {
    const size_t stride = ((size_t)width * 3 + 3) & ~(size_t)3, image = stride * height;
    unsigned char* rgb = malloc((size_t)width * height * 3);
    unsigned char* bmp = calloc(1, 54 + image);
    unsigned x, y;
    FILE* f;
    int ok;
    if (!rgb || !bmp) return 0;
    bmp[0] = 'B', bmp[1] = 'M';
    put32(bmp + 2, (uint32_t)(54 + image));
    put32(bmp + 10, 54);
    put32(bmp + 14, 40);
    put32(bmp + 18, width);
    put32(bmp + 22, height); /* positive: bottom row first */
    bmp[26] = 1, bmp[28] = 24;
    put32(bmp + 34, (uint32_t)image);
    for (y = 0; y < height; ++y)
        for (x = 0; x < width; ++x) {
            unsigned char* p = rgb + ((size_t)y * width + x) * 3;
            unsigned char* b = bmp + 54 + (size_t)(height - 1 - y) * stride + (size_t)x * 3;
            colourAt(x, y, p);
            b[0] = p[2], b[1] = p[1], b[2] = p[0];
        }
    f = fopen(bmpPath, "wb");
    ok = f && fwrite(bmp, 1, 54 + image, f) == 54 + image;
    if (f && fclose(f) != 0) ok = 0;
    ok = ok && writePpm(ppmPath, rgb, width, height);
    free(rgb);
    free(bmp);
    return ok;
}

/* An uncompressed 24-bit BMP, either way up, to PPM. */
static int toPpm(const char* bmpPath, const char* ppmPath) {
    FILE* f = fopen(bmpPath, "rb");
    unsigned char* file = NULL;
    unsigned char* rgb = NULL;
    long size = 0;
    int ok = 0;
    if (f && fseek(f, 0, SEEK_END) == 0 && (size = ftell(f)) > 54 && fseek(f, 0, SEEK_SET) == 0 &&
        (file = malloc((size_t)size)) != NULL && fread(file, 1, (size_t)size, f) == (size_t)size && file[0] == 'B' &&
        file[1] == 'M' && file[28] == 24 && get32(file + 30) == 0) {
        const uint32_t offset = get32(file + 10), width = get32(file + 18);
        const int32_t rawHeight = (int32_t)get32(file + 22);
        const uint32_t height = rawHeight < 0 ? (uint32_t)-rawHeight : (uint32_t)rawHeight;
        const size_t stride = ((size_t)width * 3 + 3) & ~(size_t)3;
        if (width && height && width <= 65535 && height <= 65535 && offset + stride * height <= (size_t)size &&
            (rgb = malloc((size_t)width * height * 3)) != NULL) {
            uint32_t x, y;
            for (y = 0; y < height; ++y) {
                const unsigned char* row = file + offset + stride * (rawHeight < 0 ? y : height - 1 - y);
                for (x = 0; x < width; ++x) {
                    unsigned char* p = rgb + ((size_t)y * width + x) * 3;
                    p[0] = row[3 * x + 2], p[1] = row[3 * x + 1], p[2] = row[3 * x];
                }
            }
            ok = writePpm(ppmPath, rgb, width, height);
        }
    }
    if (f) fclose(f);
    free(file);
    free(rgb);
    return ok;
}

int main(int argc, char** argv) {
    if (argc == 6 && strcmp(argv[1], "make") == 0)
        return make((unsigned)atoi(argv[2]), (unsigned)atoi(argv[3]), argv[4], argv[5]) ? 0 : 1;
    if (argc == 4 && strcmp(argv[1], "ppm") == 0) return toPpm(argv[2], argv[3]) ? 0 : 1;
    fprintf(stderr, "usage: picture_tool make WIDTH HEIGHT OUT.ppm OUT.bmp | picture_tool ppm IN.bmp OUT.ppm\n");
    return 2;
}
