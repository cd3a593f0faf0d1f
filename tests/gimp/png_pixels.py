#!/usr/bin/env python3
"""PNG pixels for the GIMP plug-in's test, with Python's standard library alone.

  png_pixels.py make RGB.png RGBA.png   two seeded test pictures: 8-bit RGB, and 8-bit RGBA whose
                                        alpha runs through 0..255 (colour kept under alpha 0)
  png_pixels.py same A.png B.png        exit 0 when both hold the same size, colour type and pixels;
                                        else 1, naming the first difference
Reads 8-bit grey, RGB, grey+alpha and RGBA PNGs, not interlaced.
"""
import struct
import sys
import zlib

CHANNELS = {0: 1, 2: 3, 4: 2, 6: 4}


def read_png(path):
    data = open(path, "rb").read()
    if data[:8] != b"\x89PNG\r\n\x1a\n":
        raise ValueError(f"{path}: not a PNG file")
    pos, idat, header = 8, b"", None
    while pos + 8 <= len(data):
        length, kind = struct.unpack(">I4s", data[pos:pos + 8])
        body = data[pos + 8:pos + 8 + length]
        pos += 12 + length
        if kind == b"IHDR":
            header = struct.unpack(">IIBBBBB", body)
        elif kind == b"IDAT":
            idat += body
        elif kind == b"IEND":
            break
    width, height, depth, colour_type, _, _, interlace = header
    if depth != 8 or colour_type not in CHANNELS or interlace:
        raise ValueError(f"{path}: depth {depth}, colour type {colour_type}, interlace {interlace} not read here")
    bpp = CHANNELS[colour_type]
    raw = zlib.decompress(idat)
    stride = width * bpp
    rows, previous = [], bytearray(stride)
    for y in range(height):
        start = y * (stride + 1)
        kind, row = raw[start], bytearray(raw[start + 1:start + 1 + stride])
        for i in range(stride):
            a = row[i - bpp] if i >= bpp else 0
            b = previous[i]
            c = previous[i - bpp] if i >= bpp else 0
            if kind == 1:
                row[i] = (row[i] + a) & 255
            elif kind == 2:
                row[i] = (row[i] + b) & 255
            elif kind == 3:
                row[i] = (row[i] + (a + b) // 2) & 255
            elif kind == 4:
                p = a + b - c
                pa, pb, pc = abs(p - a), abs(p - b), abs(p - c)
                row[i] = (row[i] + (a if pa <= pb and pa <= pc else b if pb <= pc else c)) & 255
            elif kind != 0:
                raise ValueError(f"{path}: unknown row filter {kind}")
        rows.append(bytes(row))
        previous = row
    return width, height, colour_type, b"".join(rows)


def write_png(path, width, height, colour_type, pixels):
    stride = width * CHANNELS[colour_type]
    raw = b"".join(b"\0" + pixels[y * stride:(y + 1) * stride] for y in range(height))

    def chunk(kind, body):
        return struct.pack(">I", len(body)) + kind + body + struct.pack(">I", zlib.crc32(kind + body))

    with open(path, "wb") as f:
        f.write(b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", struct.pack(">IIBBBBB", width, height, 8, colour_type, 0, 0, 0))
                + chunk(b"IDAT", zlib.compress(raw)) + chunk(b"IEND", b""))


def test_picture(width, height, alpha):
    """Gradients, flat blocks and seeded noise, so that effects meet all three."""
    out = bytearray()
    state = 12345
    for y in range(height):
        for x in range(width):
            state = (state * 1103515245 + 12345) & 0x7FFFFFFF
            noise = state >> 23
            if (x // 16 + y // 16) % 3 == 0:
                rgb = (200, 60 + noise % 40, 30)
            else:
                rgb = (x * 255 // width, y * 255 // height, (x + y + noise) & 255)
            out += bytes(rgb)
            if alpha:
                out.append((x * 7 + y * 3) & 255 if x % 9 else 0)
    return bytes(out)


def main(args):
    if len(args) == 3 and args[0] == "make":
        write_png(args[1], 97, 61, 2, test_picture(97, 61, False))
        write_png(args[2], 83, 70, 6, test_picture(83, 70, True))
        return 0
    if len(args) == 3 and args[0] == "same":
        a, b = read_png(args[1]), read_png(args[2])
        if a[:3] != b[:3]:
            print(f"{args[1]} is {a[0]} x {a[1]} colour type {a[2]}, {args[2]} is {b[0]} x {b[1]} colour type {b[2]}")
            return 1
        if a[3] != b[3]:
            bpp = CHANNELS[a[2]]
            first = next(i for i in range(len(a[3])) if a[3][i] != b[3][i])
            pixel = first // bpp
            differ = sum(1 for i in range(0, len(a[3]), bpp) if a[3][i:i + bpp] != b[3][i:i + bpp])
            print(f"{differ} pixels differ; first at x {pixel % a[0]}, y {pixel // a[0]}: "
                  f"{list(a[3][pixel * bpp:(pixel + 1) * bpp])} against {list(b[3][pixel * bpp:(pixel + 1) * bpp])}")
            return 1
        return 0
    print(__doc__, file=sys.stderr)
    return 2


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
