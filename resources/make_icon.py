#!/usr/bin/env python3
"""Draws the module's icon: a 32x32, 16-colour sparkle on a violet disc.

Writes resources/flair.ico (one image, 4 bits per pixel, standard 16-colour
palette, with its transparency mask)."""
import math
import struct
import sys

PALETTE = [  # blue, green, red, reserved: the standard 16 colours
    (0, 0, 0), (0, 0, 128), (0, 128, 0), (0, 128, 128), (128, 0, 0), (128, 0, 128), (128, 128, 0),
    (192, 192, 192), (128, 128, 128), (0, 0, 255), (0, 255, 0), (0, 255, 255), (255, 0, 0),
    (255, 0, 255), (255, 255, 0), (255, 255, 255)]
PURPLE, MAGENTA, YELLOW, WHITE = 5, 13, 14, 15
# PALETTE entries are (red, green, blue) here; the file stores blue, green, red.


def colour_at(x, y):
    """Colour index of pixel (x, y), y from the top, or None where transparent."""
    cx, cy = x - 15.5, y - 15.5
    r = math.hypot(cx, cy)
    if r > 15.5:
        return None
    angle = math.atan2(cy, cx)
    # A four-pointed star with thin diagonal flares.
    star = 3.0 + 10.5 * abs(math.cos(2 * angle)) ** 12
    flare = 1.2 + 7.5 * abs(math.sin(2 * angle)) ** 40
    if r < 2.5:
        return WHITE
    if r < star or r < flare:
        return YELLOW if r < star * 0.7 else WHITE
    if r > 14.2:
        return PURPLE
    return MAGENTA if (x + y) % 7 == 0 and r > 11 else PURPLE


def main(path):
    size = 32
    xor_rows, and_rows = [], []
    for y in range(size - 1, -1, -1):  # rows bottom-up
        nibbles = [colour_at(x, y) for x in range(size)]
        xor_rows.append(bytes(((a or 0) << 4) | (b or 0) for a, b in zip(nibbles[0::2], nibbles[1::2])))
        bits = 0
        for x in range(size):
            bits = (bits << 1) | (1 if nibbles[x] is None else 0)
        and_rows.append(bits.to_bytes(4, 'big'))
    header = struct.pack('<IiiHHIIiiII', 40, size, size * 2, 1, 4, 0, 0, 0, 0, 16, 0)
    palette = b''.join(struct.pack('BBBB', b, g, r, 0) for (r, g, b) in PALETTE)
    image = header + palette + b''.join(xor_rows) + b''.join(and_rows)
    directory = struct.pack('<HHH', 0, 1, 1) + struct.pack('<BBBBHHII', size, size, 16, 0, 1, 4, len(image), 22)
    with open(path, 'wb') as f:
        f.write(directory + image)


if __name__ == '__main__':
    main(sys.argv[1] if len(sys.argv) > 1 else 'flair.ico')
