#!/usr/bin/env bash
# Writes small valid inputs for every fuzz target, so the fuzzers start from
# real formats:  make_seeds.sh FLAIRIZE_BIN OUTDIR
# OUTDIR/<target>/ gets pictures in every format the command reads (BMP at 8,
# 24 and 32 bits, PNG, JPEG, WebP, TIFF, GIF; made by ffmpeg, WebP by flairize),
# settings blocks, a tiny video, and the engine's, plug-in's and frei0r
# targets' inputs built around those pictures.
set -euo pipefail
flairize=$1 out=$2
command -v ffmpeg >/dev/null || { echo "make_seeds: ffmpeg is missing (Debian package ffmpeg)" >&2; exit 1; }
mkdir -p "$out"/{picture_read,engine_render,plugin_exports,settings_stream,frei0r_update,video_convert}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# Little-endian fields as printf escapes.
le16() { printf '\\x%02x\\x%02x' $(($1 & 255)) $(($1 >> 8 & 255)); }
le32() { printf '\\x%02x\\x%02x\\x%02x\\x%02x' $(($1 & 255)) $(($1 >> 8 & 255)) $(($1 >> 16 & 255)) $(($1 >> 24 & 255)); }

ff() { ffmpeg -nostdin -loglevel error -y "$@"; }
src=(-f lavfi -i "testsrc2=size=11x7:rate=1:duration=1" -frames:v 1)
alpha=(-f lavfi -i "testsrc2=size=9x6:rate=1:duration=1,format=rgba,geq=r='r(X,Y)':g='g(X,Y)':b='b(X,Y)':a='X*28'" -frames:v 1)
p=$out/picture_read
ff "${src[@]}" -pix_fmt bgr24 "$p/rgb24.bmp"
ff "${alpha[@]}" -pix_fmt bgra "$p/rgba32.bmp"
ff "${src[@]}" -vf "split[a][b];[a]palettegen=max_colors=16[pal];[b][pal]paletteuse" -pix_fmt pal8 "$p/pal8.bmp"
ff "${src[@]}" -pix_fmt rgb24 "$p/rgb.png"
ff "${alpha[@]}" -pix_fmt rgba "$p/rgba.png"
ff "${src[@]}" -vf "split[a][b];[a]palettegen=max_colors=16[pal];[b][pal]paletteuse" -pix_fmt pal8 "$p/pal8.png"
ff "${src[@]}" -pix_fmt gray16be "$p/gray16.png"
ff "${src[@]}" -pix_fmt yuvj420p -q:v 5 "$p/yuv420.jpg"
ff "${src[@]}" -pix_fmt gray "$p/gray.jpg"
ff "${src[@]}" -pix_fmt rgb24 "$p/rgb.tif"
ff "${alpha[@]}" -pix_fmt rgba -compression_algo deflate "$p/rgba.tif"
ff "${src[@]}" -vf "split[a][b];[a]palettegen=max_colors=16[pal];[b][pal]paletteuse" "$p/pal.gif"
"$flairize" render "$p/rgb.png" "$p/lossless.webp" --effect solarize >/dev/null
"$flairize" render "$p/rgba.png" "$p/lossy.webp" --quality 60 --effect solarize >/dev/null

# The engine: effect, sliders, colour, progress, choices (mix, threads,
# render or renderInto), then a packed DIB, which is a BMP file less its
# 14-byte file header.
settings() { printf "\\x$(printf %02x "$1")$(le16 "$2")$(le16 "$3")$(le16 "$4")$(le32 "$5")$(le32 "$6")\\x$(printf %02x "$7")"; }
n=0
for bmp in rgb24 rgba32 pal8; do
  for e in 0 7 13 20 25 31 36; do
    { settings $e 40 128 255 0x336699 $((n * 2731 % 16385)) $(((n % 3) | (n % 3) << 2)); tail -c +15 "$p/$bmp.bmp"; } \
      >"$out/engine_render/$bmp-$e"
    n=$((n + 1))
  done
  { settings 25 0 0 0 0 8000 0x20; printf '\x0b\x07\x01\x00'; head -c 400 "$p/$bmp.bmp"; } >"$out/engine_render/into-$bmp"
done

# The plug-in: two settings records, the host's input record (48 bytes), the
# call (0..8), the failing allocation (0: none), the host context (160 bytes:
# slot 0 at 36, position 16384 at 86, no slot position at 100), then a picture.
record() { printf "$(le16 "$1")$(le32 "$2")$(le16 "$3")$(le16 "$4")$(le16 "$5")$(le32 2)$(le32 0x00204080)"; }
context() {
  head -c 36 /dev/zero; printf '\x00\x00'; head -c 48 /dev/zero; printf "$(le32 16384)"; head -c 10 /dev/zero
  printf '\xff\xff\xff\xff'; head -c 56 /dev/zero
}
for call in 0 1 2 3 4 5 6 7; do
  for bmp in rgb24 pal8; do
    e=$((call * 5 % 38))
    { record $e 9000 10 20 30; record 25 16384 0 0 0; head -c 48 /dev/zero; printf "\\x$(printf %02x $call)\\x00"
      context; tail -c +15 "$p/$bmp.bmp"; } >"$out/plugin_exports/$call-$bmp"
  done
done

# Settings blocks as `flairize settings` writes them.
for e in weave solarize mosaic bubbles; do
  "$flairize" settings "$out/settings_stream/$e.flr" --effect "$e" --direction cycle >/dev/null
done

# frei0r: plug-in, width, height, in place or not, the parameters, the pixels.
for k in 0 9 17; do
  { printf "\\x$(printf %02x $k)\\x07\\x05\\x$(printf %02x $((k & 1)))"
    for _ in 1 2 3 4 5; do printf '\x00\x00\x00\x00\x00\x00\xe0\x3f'; done   # 0.5 as a double
    tail -c 200 "$p/rgba32.bmp"; } >"$out/frei0r_update/$k"
done

# A tiny video: settings record, speed, threads, then the file.
for container in mkv avi; do
  ff -f lavfi -i "testsrc2=size=16x12:rate=5:duration=0.6" -t 0.6 -pix_fmt yuv420p -c:v mpeg4 "$work/tiny.$container"
  { record 13 0 40 0 0; printf '\x00\x00'; cat "$work/tiny.$container"; } >"$out/video_convert/$container"
done
echo "make_seeds: $(find "$out" -type f | wc -l) inputs in $out"
