#!/usr/bin/env python3
"""Times flairize.render on a 1920 x 1080 picture of 4 bytes a pixel in RGBA and BGRA order, alternating, and
prints the fastest and the median of each, as tests/library/render_timing.c does for the C library.
    render_timing.py [EFFECT [THREADS [RUNS]]]   (default: posterize, all cores, 15)"""
import statistics
import sys
import time

import numpy as np

import flairize


def main():
    name = sys.argv[1] if len(sys.argv) > 1 else "posterize"
    threads = int(sys.argv[2]) if len(sys.argv) > 2 else 0
    runs = int(sys.argv[3]) if len(sys.argv) > 3 else 15
    # The C timing's picture: byte i is (i * 7) ^ (i >> 11), low eight bits.
    i = np.arange(1080 * 1920 * 4, dtype=np.int64)
    pixels = (((i * 7) ^ (i >> 11)) & 0xFF).astype(np.uint8).reshape(1080, 1920, 4)
    out = np.empty_like(pixels)
    times = {"RGBA": [], "BGRA": []}
    flairize.render(pixels, name, threads=threads, out=out)   # warms the threads and caches up
    for _ in range(runs):
        for order in times:
            start = time.perf_counter()
            flairize.render(pixels, name, threads=threads, order=order[:3], out=out)
            times[order].append((time.perf_counter() - start) * 1e3)
    print(f"{name}, 1920 x 1080, 4 bytes a pixel, {threads} threads, {runs} runs each (Python, into out=):")
    for order, values in times.items():
        print(f"  {order} order: fastest {min(values):.2f} ms, median {statistics.median(values):.2f} ms")
    start = time.perf_counter()
    for _ in range(runs):
        flairize.render(pixels, name, threads=threads, order="RGB")
    print(f"  RGBA returning a new array: mean {(time.perf_counter() - start) * 1e3 / runs:.2f} ms")


if __name__ == "__main__":
    main()
