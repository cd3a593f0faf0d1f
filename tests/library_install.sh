#!/bin/bash
# libflairize as other programs get it: the build installed into a fresh prefix,
# a small C program built against it out of tree, once through pkg-config and
# once through a CMake project (find_package(flairize), with the shared and the
# static library), and its pictures compared byte for byte with the installed
# flairize command's for the same input and settings. Also: the shared library
# shows only the flairize_* functions, under its SONAME.
#   library_install.sh BUILD_DIR SOURCE_DIR
set -euo pipefail
build=$1
source=$2
for tool in cc pkg-config cmake nm readelf cmp; do
    if ! command -v "$tool" > /dev/null; then
        echo "library_install: skipped, $tool is not installed"
        exit 77
    fi
done
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
fail() {
    echo "FAIL: $*"
    exit 1
}

prefix=$work/prefix
cmake --install "$build" --prefix "$prefix" > "$work/install.log" || fail "cmake --install: $(tail -5 "$work/install.log")"
library=$(find "$prefix" -name libflairize.so.0 | head -1)
[ -n "$library" ] || fail "no libflairize.so.0 under $prefix"
libdir=$(dirname "$library")
for file in "$prefix/include/flairize/flairize.h" "$libdir/libflairize.so" "$libdir/libflairize.a" \
            "$libdir/pkgconfig/flairize.pc" "$libdir/cmake/flairize/flairizeConfig.cmake" "$prefix/bin/flairize"; do
    [ -e "$file" ] || fail "$file was not installed"
done

# The ABI: the SONAME, and no symbol but the header's functions (and the version node).
soname=$(readelf -d "$library" | sed -n 's/.*Library soname: \[\(.*\)\]/\1/p')
[ "$soname" = libflairize.so.0 ] || fail "SONAME is '$soname'"
nm -D --defined-only "$library" > "$work/symbols"
others=$(grep -v -E '^[0-9a-f]+ T flairize_[a-z0-9_]+@@FLAIRIZE_0$' "$work/symbols" | grep -v -E '^0+ A FLAIRIZE_0$' || true)
[ -z "$others" ] || fail "libflairize.so.0 exports more than the flairize_* functions: $(echo $others | head -c 400)"
declared=$(grep -o -E '\bflairize_[a-z0-9_]+\(' "$prefix/include/flairize/flairize.h" | tr -d '(' | sort -u)
exported=$(sed -E 's/.* T (flairize_[a-z0-9_]+)@@.*/\1/;t;d' "$work/symbols" | sort -u)
[ "$declared" = "$exported" ] || fail "the header's functions and the exported ones differ: $(diff <(echo "$declared") <(echo "$exported") | grep '^[<>]' | tr '\n' ' ')"
echo "libflairize.so.0 exports the header's $(echo "$exported" | wc -l) functions and nothing else"

# The program, built out of tree: with pkg-config, and with CMake.
export PKG_CONFIG_PATH=$libdir/pkgconfig
example=$source/tests/library
cc -std=c99 -Wall -Wextra -pedantic -Werror $(pkg-config --cflags flairize) "$example/render_example.c" \
   -o "$work/render_example_pc" $(pkg-config --libs flairize) || fail "the build with pkg-config"
cmake -S "$example" -B "$work/example-build" -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_BUILD_TYPE=Release \
      > "$work/example-cmake.log" 2>&1 || fail "configuring with find_package(flairize): $(tail -20 "$work/example-cmake.log")"
cmake --build "$work/example-build" > "$work/example-build.log" 2>&1 ||
    fail "the build with CMake: $(tail -20 "$work/example-build.log")"
if ldd "$work/example-build/render_example_static" | grep -q libflairize; then
    fail "the program built with flairize::flairize_static loads libflairize.so"
fi
cc -o "$work/picture_tool" "$example/picture_tool.c" || fail "building picture_tool"

# The pictures: the library's renders against the command's, for one effect
# of each kind (sliders, a colour, a fade-in halfway, whole-picture filters).
"$work/picture_tool" make 301 203 "$work/in.ppm" "$work/in.bmp" || fail "making the source picture"
checked=0
while read -r effect progress colour p1 p2 p3; do
    LD_LIBRARY_PATH=$libdir "$prefix/bin/flairize" render "$work/in.bmp" "$work/command.bmp" --effect "$effect" \
        --progress "$progress" --colour "$colour" --p1 "$p1" --p2 "$p2" --p3 "$p3" --threads 2 2> /dev/null ||
        fail "flairize render --effect $effect"
    "$work/picture_tool" ppm "$work/command.bmp" "$work/command.ppm" || fail "reading the command's $effect picture"
    for program in "$work/render_example_pc" "$work/example-build/render_example" \
                   "$work/example-build/render_example_static"; do
        rm -f "$work/library.ppm"
        LD_LIBRARY_PATH=$libdir "$program" "$work/in.ppm" "$work/library.ppm" "$effect" "$progress" "$colour" \
            "$p1" "$p2" "$p3" || fail "$program $effect"
        cmp -s "$work/library.ppm" "$work/command.ppm" ||
            fail "$(basename "$program") renders $effect differently from flairize render"
        checked=$((checked + 1))
    done
done << 'SETTINGS'
posterize 16384 000000 3 0 0
find-edges 9000 30a0e0 0 0 0
motion-blur 16384 000000 40 0 0
pointillize 12000 e0a030 90 200 0
watercolor 5000 000000 0 0 0
kaleidoscope 16384 000000 0 0 0
SETTINGS
echo "$checked renders of the installed library equal flairize render's, byte for byte"
