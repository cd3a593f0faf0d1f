"""Writes and reads uncompressed 24- and 32-bit BMP files, to hand pictures to the flairize command."""
import struct

import numpy as np


def write_bmp(path, rgb):
    """Writes an H x W x 3 (RGB) or H x W x 4 (RGBA) uint8 array, bottom row first."""
    height, width, channels = rgb.shape
    bgr = rgb[:, :, [2, 1, 0, 3][:channels]]
    row_bytes = width * channels
    stride = (row_bytes + 3) & ~3
    rows = np.zeros((height, stride), dtype=np.uint8)
    rows[:, :row_bytes] = bgr.reshape(height, row_bytes)
    pixels = rows[::-1].tobytes()
    header_size = 40
    offset = 14 + header_size
    with open(path, "wb") as f:
        f.write(struct.pack("<2sIHHI", b"BM", offset + len(pixels), 0, 0, offset))
        f.write(struct.pack("<IiiHHIIiiII", header_size, width, height, 1, channels * 8, 0, len(pixels), 2835, 2835,
                            0, 0))
        f.write(pixels)


def read_bmp(path):
    """Reads a 24- or 32-bit uncompressed BMP (either row order) as RGB or RGBA."""
    data = open(path, "rb").read()
    assert data[:2] == b"BM", f"{path}: not a BMP file"
    offset, = struct.unpack_from("<I", data, 10)
    header_size, width, height, _, bits, compression = struct.unpack_from("<IiiHHI", data, 14)
    assert bits in (24, 32) and compression in (0, 3), f"{path}: {bits}-bit, compression {compression}"
    channels = bits // 8
    rows = abs(height)
    stride = (width * channels + 3) & ~3
    image = np.frombuffer(data, dtype=np.uint8, count=stride * rows, offset=offset).reshape(rows, stride)
    image = image[:, :width * channels].reshape(rows, width, channels)
    if height > 0:
        image = image[::-1]
    return np.ascontiguousarray(image[:, :, [2, 1, 0, 3][:channels]])
