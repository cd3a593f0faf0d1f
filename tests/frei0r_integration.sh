#!/usr/bin/env bash
# Renders every offered effect through its frei0r plug-in inside Debian's own
# ffmpeg or melt, and compares every frame byte for byte with `flairize render`
# of the same input frame and settings.
#
#   frei0r_integration.sh ffmpeg|melt FLAIRIZE BGRA_FRAMES PLUGIN_DIR WORK_DIR
#
# ffmpeg: three frames of testsrc2 with an alpha pattern, generated directly as
#   bgra so ffmpeg's frei0r filter converts nothing, through two settings per
#   effect (one with Mix off). Frame width 112: ffmpeg 5.1 (Debian 12) hands
#   frei0r frames whose rows are padded to 64 bytes, so widths are kept to
#   multiples of 16 pixels there; the height is odd.
# melt: a 97x61 picture with alpha for ten frames, "Progress" keyframed from 0 to
#   1; frame i must equal the render at progress round(i * 16384 / 9): the first
#   is the source (for effects that fade in), the last the full effect.
#
# Effects that are not in this build are skipped by name, after checking that
# the host refuses their plug-in. Exit status: 0 all equal, 1 a difference or a
# failure, 77 when the host program is missing (ctest reports a skip).
set -u

if [ $# -ne 5 ]; then
  echo "usage: $0 ffmpeg|melt FLAIRIZE BGRA_FRAMES PLUGIN_DIR WORK_DIR" >&2
  exit 1
fi
host=$1 work=$5
flairize=$(realpath "$2") frames=$(realpath "$3") plugins=$(realpath "$4")

skip() { echo "SKIP: $*"; exit 77; }
die() { echo "FAIL: $*"; exit 1; }

command -v "$host" >/dev/null 2>&1 || skip "$host is not installed (Debian package $host): the frei0r $host test cannot run"
command -v ffmpeg >/dev/null 2>&1 || skip "ffmpeg is not installed: it makes the test's source frames"
if [ "$host" = ffmpeg ] && ! ffmpeg -hide_banner -filters 2>/dev/null | grep -q ' frei0r '; then
  skip "this ffmpeg has no frei0r filter"
fi

rm -rf "$work" && mkdir -p "$work" || die "cannot make $work"
cd "$work" || die "cannot enter $work"
export FREI0R_PATH=$plugins

# Plug-ins built with AddressSanitizer need its run-time loaded first in the host.
if readelf -d "$plugins"/flairize-posterize.so 2>/dev/null | grep -q 'libasan'; then
  export LD_PRELOAD="$(gcc -print-file-name=libasan.so) $(gcc -print-file-name=libubsan.so)"
  export ASAN_OPTIONS=detect_leaks=0
fi
run_host() { env "$@" >host.log 2>&1; }
run_flairize() { env -u LD_PRELOAD "$flairize" "$@"; }

# The offered effects: index, name, flags, slider labels (flairize list --tsv).
mapfile -t effects < <(run_flairize list --tsv | awk -F'\t' '$3 == 1')
[ ${#effects[@]} -eq 30 ] || die "expected 30 offered effects from flairize list, got ${#effects[@]}"

slug() { echo "$1" | tr 'A-Z ' 'a-z-'; }
# One line of the list into index, name, flags and labels (empty fields kept).
read_effect() {
  local fields
  mapfile -t fields < <(tr '\t' '\n' <<<"$1")
  index=${fields[0]} name=${fields[1]} flags=${fields[3]}
  labels=("${fields[4]}" "${fields[5]}" "${fields[6]}")
}
# 0..1 to 0..top, rounded to the nearest step (as the plug-ins document).
steps() { awk -v v="$1" -v top="$2" 'BEGIN { x = v * top + 0.5; printf "%d\n", int(x) }'; }

# Settings: slider values, progress, colour (frei0r r/g/b and RRGGBB), mix.
# Values whose nearest step differs from the truncated one (0.5 is 128, not 127).
slider_values=(0.5 0.3749 0.0627)
covered=0 skipped=()

# Renders frame file $1 with `flairize render` into $2 and the extra options.
flairize_frame() { run_flairize render "$@" 2>flairize.log; }

# Is the effect in this build? flairize names a missing effect plainly.
available() {
  if flairize_frame in0.bmp probe.bmp --effect "$1"; then return 0; fi
  grep -q 'not available in this build' flairize.log || die "flairize render --effect $1 failed: $(cat flairize.log)"
  return 1
}

make_source() {   # $1 size, $2 frames: raw bgra frames with an alpha pattern
  ffmpeg -hide_banner -v error -f lavfi \
    -i "testsrc2=size=$1:rate=5,format=gbrap,geq=r='r(X,Y)':g='g(X,Y)':b='b(X,Y)':a='mod(X*7+Y*13,256)',format=bgra" \
    -frames:v "$2" -pix_fmt bgra -f rawvideo -y in.raw || die "ffmpeg could not make the source frames"
}

if [ "$host" = ffmpeg ]; then
  W=112 H=61 N=3
  make_source ${W}x${H} $N
  "$frames" tobmp $W $H in.raw in >/dev/null || die "cannot write the source frames as BMP"
  for line in "${effects[@]}"; do
    read_effect "$line"
    plugin=flairize-$(slug "$name")
    [ -f "$plugins/$plugin.so" ] || die "$plugin.so was not built"
    if ! available "$index"; then
      run_host ffmpeg -hide_banner -v error -f lavfi -i "testsrc2=size=${W}x${H}:rate=5,format=bgra" -frames:v 1 \
        -vf "frei0r=$plugin" -pix_fmt bgra -f rawvideo -y refused.raw &&
        die "$name is not in this build, yet ffmpeg rendered through $plugin"
      skipped+=("$name")
      continue
    fi
    for setting in A B; do
      params=() options=(--effect "$index")
      for k in 0 1 2; do
        [ -n "${labels[$k]}" ] || continue
        value=${slider_values[$k]}
        [ $setting = B ] && value=$(( (k + 1) % 2 ))   # 1, 0, 1: the ends of the range
        params+=("$value")
        options+=(--p$((k + 1)) "$(steps "$value" 255)")
      done
      if [ $setting = A ]; then progress=0.7 colour=0.2/0.6/1 hex=3399ff mix=y
      else progress=0.33 colour=1/0.5/0 hex=ff8000 mix=n; fi
      params+=("$progress")
      options+=(--progress "$(steps "$progress" 16384)")
      if (( flags & 2 )); then params+=("$colour"); options+=(--colour "$hex"); fi
      if (( flags & 1 )); then
        params+=("$mix")
        [ $mix = n ] && options+=(--filter-only)
      fi
      joined=$(IFS='|'; echo "${params[*]}")
      run_host ffmpeg -hide_banner -v error -f lavfi \
        -i "testsrc2=size=${W}x${H}:rate=5,format=gbrap,geq=r='r(X,Y)':g='g(X,Y)':b='b(X,Y)':a='mod(X*7+Y*13,256)',format=bgra" \
        -frames:v $N -vf "frei0r=filter_name=$plugin:filter_params=$joined" -pix_fmt bgra -f rawvideo -y out.raw ||
        die "ffmpeg with $plugin:$joined failed: $(cat host.log)"
      for ((f = 0; f < N; ++f)); do
        flairize_frame in$f.bmp expect.bmp "${options[@]}" || die "flairize render ${options[*]} failed: $(cat flairize.log)"
        "$frames" compare $W $H out.raw $f expect.bmp ||
          die "$name: ffmpeg frame $f with frei0r=$plugin:$joined differs from flairize render ${options[*]}"
      done
    done
    covered=$((covered + 1))
  done
else
  W=97 H=61 N=10
  make_source ${W}x${H} 1
  "$frames" tobmp $W $H in.raw in >/dev/null || die "cannot write the source frame as BMP"
  ffmpeg -hide_banner -v error -f rawvideo -pix_fmt bgra -s ${W}x${H} -i in.raw -pix_fmt rgba -y source.png ||
    die "ffmpeg could not write source.png"
  cat >profile <<EOF
description=flairize frei0r test
frame_rate_num=25
frame_rate_den=1
width=$W
height=$H
progressive=1
sample_aspect_num=1
sample_aspect_den=1
display_aspect_num=$W
display_aspect_den=$H
colorspace=709
EOF
  melt_frames() {   # $1 output, the rest: filter and its properties
    local out=$1; shift
    run_host melt -silent -profile profile avformat:source.png in=0 out=$((N - 1)) "$@" \
      -consumer avformat:"$out" f=rawvideo pix_fmt=bgra
  }
  melt_frames plain.raw || die "melt could not play source.png: $(cat host.log)"
  for ((f = 0; f < N; ++f)); do
    "$frames" compare $W $H plain.raw $f in0.bmp >/dev/null 2>&1 || die "melt does not hand on source.png unchanged (frame $f)"
  done
  for line in "${effects[@]}"; do
    read_effect "$line"
    plugin=flairize-$(slug "$name")
    [ -f "$plugins/$plugin.so" ] || die "$plugin.so was not built"
    if ! available "$index"; then skipped+=("$name"); continue; fi
    properties=("Progress=0=0;$((N - 1))=1") options=(--effect "$index")
    for k in 0 1 2; do
      [ -n "${labels[$k]}" ] || continue
      properties+=("${labels[$k]}=${slider_values[$k]}")
      options+=(--p$((k + 1)) "$(steps "${slider_values[$k]}" 255)")
    done
    if (( flags & 2 )); then properties+=("Color=#3399ff"); options+=(--colour 3399ff); fi
    melt_frames out.raw -filter frei0r.$plugin "${properties[@]}" ||
      die "melt with frei0r.$plugin ${properties[*]} failed: $(cat host.log)"
    if (( flags & 1 )); then
      "$frames" same $W $H out.raw 0 plain.raw 0 || die "$name: melt's first frame (Progress 0) is not the source"
    fi
    for ((f = 0; f < N; ++f)); do
      progress=$(( (f * 16384 * 2 + N - 1) / (2 * (N - 1)) ))
      flairize_frame in0.bmp expect.bmp "${options[@]}" --progress $progress ||
        die "flairize render ${options[*]} failed: $(cat flairize.log)"
      "$frames" compare $W $H out.raw $f expect.bmp ||
        die "$name: melt frame $f (Progress $f/$((N - 1))) differs from flairize render ${options[*]} --progress $progress"
    done
    covered=$((covered + 1))
  done
fi

for name in "${skipped[@]}"; do echo "skipped: $name is not in this build (its plug-in refuses to start)"; done
echo "frei0r $host: ${covered} effects byte-identical to flairize render, ${#skipped[@]} not in this build"
[ $covered -gt 0 ] || skip "no offered effect is in this build yet"
exit 0
