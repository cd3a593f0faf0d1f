#!/usr/bin/env python3
"""Checks that the folders stay layers.

Every #include "folder/..." in the sources must name a folder of the same layer
or one below it; front ends never include one another's files; bench/ and
tests/ sit above everything but apart from each other. Every CMake target is
defined once.

usage: check_layering.py SOURCE_DIR
"""
import pathlib
import re
import sys

# Bottom first. Folders on one line form one layer; a layer's folders are peers
# that must not include each other (the front ends, and bench/ beside tests/).
LAYERS = [
    ["resources"],
    ["platform"],
    ["engine"],
    ["effects"],
    ["hostops"],
    ["host"],                        # FLAIR.dll's exports
    ["editor"],                      # FLAIR.dll's dialog, above its exports
    ["standalone", "frei0r", "web", "libflairize", "include", "gimp", "gegl", "kdenlive",
     "python"],                      # the Python module, over the C library
    ["samples"],                     # draws the sample picture with the command's picture files
    ["bench", "tests"],
]
# Peers that are one unit: the C library and its public header.
UNITS = {"include": "libflairize"}
SOURCE_SUFFIXES = {".c", ".cpp", ".h", ".inc"}
INCLUDE = re.compile(r'^\s*#\s*include\s+"([^"]+)"', re.M)
TARGET = re.compile(r"\badd_(?:library|executable|custom_target)\s*\(\s*([A-Za-z0-9_.+${}:-]+)")


def rank_of(folder):
    for rank, layer in enumerate(LAYERS):
        if folder in layer:
            return rank
    return None


def include_faults(root):
    faults = []
    for path in sorted(root.rglob("*")):
        rel = path.relative_to(root)
        if path.suffix not in SOURCE_SUFFIXES or rel.parts[0].startswith(("build", ".")) or "node_modules" in rel.parts:
            continue
        own = rel.parts[0]
        own_rank = rank_of(own)
        if own_rank is None:
            faults.append(f"{rel}: folder {own}/ is in no layer")
            continue
        text = path.read_text(encoding="utf-8", errors="replace")
        for name in INCLUDE.findall(text):
            top = name.split("/")[0]
            if "/" not in name or top == own:
                continue
            rank = rank_of(top)
            if rank is None:
                continue   # a library's own header, e.g. "frei0r.h"
            if rank > own_rank:
                faults.append(f"{rel}: includes {name} from a higher layer")
            elif rank == own_rank and UNITS.get(top, top) != UNITS.get(own, own):
                faults.append(f"{rel}: includes {name} from a peer of its layer")
    return faults


def target_faults(root):
    seen = {}
    faults = []
    files = [p for p in root.rglob("CMakeLists.txt")] + list(root.glob("cmake/*.cmake"))
    for path in sorted(files):
        rel = path.relative_to(root)
        if rel.parts[0].startswith("build") or "node_modules" in rel.parts:
            continue
        for name in TARGET.findall(path.read_text(encoding="utf-8")):
            if "${" in name:
                continue
            if name in seen:
                faults.append(f"{rel}: target {name} is also defined in {seen[name]}")
            else:
                seen[name] = rel
    return faults


def main():
    root = pathlib.Path(sys.argv[1] if len(sys.argv) > 1 else ".").resolve()
    faults = include_faults(root) + target_faults(root)
    for fault in faults:
        print(fault)
    print(f"layering: {len(faults)} faults")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
