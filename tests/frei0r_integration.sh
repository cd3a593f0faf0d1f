#!/usr/bin/env bash
# Renders every offered effect through its frei0r plug-in inside Debian's ffmpeg
# or melt and compares every frame byte for byte with `flairize render`.
#   frei0r_integration.sh ffmpeg|melt|gstreamer FLAIRIZE PLUGIN_DIR WORK_DIR
# ffmpeg: three 112x61 bgra frames with alpha, two settings per effect (one with
#   Mix off); ffmpeg 5.1 pads rows to 64 bytes, so the width is a multiple of 16.
# melt: a 97x61 picture for ten frames, Progress keyframed 0 to 1; frame i must
#   equal the render at progress round(i * 16384 / 9).
# gstreamer: one 97x61 frame per effect through gst-launch-1.0, its sliders,
#   Progress and colour set as the element's properties; then the example in
#   docs/video-hosts.md as written there, which must encode every frame.
# Exit status: 0 all equal, 1 a difference or failure, 77 the host is missing (a skip).
set -u

[ $# -eq 4 ] || { echo "usage: $0 ffmpeg|melt|gstreamer FLAIRIZE PLUGIN_DIR WORK_DIR" >&2; exit 1; }
host=$1 work=$4
flairize=$(realpath "$2") plugins=$(realpath "$3")
docs=$(realpath "$(dirname "$0")/../docs/video-hosts.md")

skip() { echo "SKIP: $*"; exit 77; }
die() { echo "FAIL: $*"; exit 1; }

[ "$host" = gstreamer ] || command -v "$host" >/dev/null 2>&1 || skip "$host is not installed (Debian package $host): the frei0r $host test cannot run"
command -v ffmpeg >/dev/null 2>&1 || skip "ffmpeg is not installed: it makes the test's source frames"
if [ "$host" = ffmpeg ] && ! ffmpeg -hide_banner -filters 2>/dev/null | grep -q ' frei0r '; then
  skip "this ffmpeg has no frei0r filter"
fi
if [ "$host" = gstreamer ] && ! command -v gst-launch-1.0 >/dev/null 2>&1; then
  skip "gst-launch-1.0 is not installed (Debian packages gstreamer1.0-tools, gstreamer1.0-plugins-bad)"
fi

rm -rf "$work" && mkdir -p "$work" && cd "$work" || die "cannot make and enter $work"
export FREI0R_PATH=$plugins

# Plug-ins built with AddressSanitizer need its run-time loaded first in the host.
if readelf -d "$plugins"/flairize-posterize.so 2>/dev/null | grep -q 'libasan'; then
  export LD_PRELOAD="$(gcc -print-file-name=libasan.so) $(gcc -print-file-name=libubsan.so)"
  export ASAN_OPTIONS=detect_leaks=0
fi
run_host() { env "$@" >host.log 2>&1 || die "$* failed: $(cat host.log)"; }
# `flairize render` of picture $1 into expect.raw (raw bgra, by ffmpeg) with the options that follow.
flairize_frame() {
  env -u LD_PRELOAD "$flairize" render "$1" expect.png "${@:2}" 2>flairize.log ||
    die "flairize render ${*:2} failed: $(cat flairize.log)"
  ffmpeg -hide_banner -v error -i expect.png -pix_fmt bgra -f rawvideo -y expect.raw || die "ffmpeg cannot read expect.png"
}
# Frame $2 of raw frames $1 (W x H bgra) equals picture $3 (raw bgra).
same_frame() { cmp -s <(tail -c +$(( $2 * W * H * 4 + 1 )) "$1" | head -c $(( W * H * 4 ))) "$3"; }

# The offered effects: index, name, shown, flags, slider labels (flairize list --tsv).
mapfile -t effects < <(env -u LD_PRELOAD "$flairize" list --tsv | awk -F'\t' '$3 == 1')
[ ${#effects[@]} -gt 0 ] || die "flairize list names no offered effect"

# One line of the list into index, name, flags, labels (empty fields kept) and plugin.
read_effect() {
  local fields
  mapfile -t fields < <(tr '\t' '\n' <<<"$1")
  index=${fields[0]} name=${fields[1]} flags=${fields[3]}
  labels=("${fields[4]}" "${fields[5]}" "${fields[6]}")
  plugin=flairize-$(echo "$name" | tr 'A-Z ' 'a-z-')
  [ -f "$plugins/$plugin.so" ] || die "$plugin.so was not built"
}
# 0..1 to 0..top, rounded to the nearest step (as the plug-ins document).
steps() { awk -v v="$1" -v top="$2" 'BEGIN { printf "%d\n", int(v * top + 0.5) }'; }
# Slider values whose nearest step differs from the truncated one (0.5 is 128, not 127).
slider_values=(0.5 0.3749 0.0627)

# Raw bgra frames $2 of size $1 with an alpha pattern in in.raw, and as in<i>.png.
make_source() {
  ffmpeg -hide_banner -v error -f lavfi \
    -i "testsrc2=size=$1:rate=5,format=gbrap,geq=r='r(X,Y)':g='g(X,Y)':b='b(X,Y)':a='mod(X*7+Y*13,256)',format=bgra" \
    -frames:v "$2" -pix_fmt bgra -f rawvideo -y in.raw || die "ffmpeg could not make the source frames"
  ffmpeg -hide_banner -v error -f rawvideo -pix_fmt bgra -s "$1" -i in.raw -pix_fmt rgba -start_number 0 -y in%d.png ||
    die "ffmpeg could not write the source frames as PNG"
}

if [ "$host" = ffmpeg ]; then
  W=112 H=61 N=3
  make_source ${W}x${H} $N
  for line in "${effects[@]}"; do
    read_effect "$line"
    for setting in A B; do   # B: the ends of the slider range, Mix off
      params=() options=(--effect "$index")
      for k in 0 1 2; do
        [ -n "${labels[$k]}" ] || continue
        value=${slider_values[$k]}
        [ $setting = B ] && value=$(( (k + 1) % 2 ))
        params+=("$value") options+=(--p$((k + 1)) "$(steps "$value" 255)")
      done
      if [ $setting = A ]; then progress=0.7 colour=0.2/0.6/1 hex=3399ff mix=y
      else progress=0.33 colour=1/0.5/0 hex=ff8000 mix=n; fi
      params+=("$progress") options+=(--progress "$(steps "$progress" 16384)")
      if (( flags & 2 )); then params+=("$colour") options+=(--colour "$hex"); fi
      if (( flags & 1 )); then params+=("$mix"); [ $mix = n ] && options+=(--filter-only); fi
      joined=$(IFS='|'; echo "${params[*]}")
      run_host ffmpeg -hide_banner -v error -f rawvideo -pix_fmt bgra -s ${W}x${H} -i in.raw \
        -vf "frei0r=filter_name=$plugin:filter_params=$joined" -pix_fmt bgra -f rawvideo -y out.raw
      for ((f = 0; f < N; ++f)); do
        flairize_frame in$f.png "${options[@]}"
        same_frame out.raw $f expect.raw ||
          die "$name: ffmpeg frame $f with frei0r=$plugin:$joined differs from flairize render ${options[*]}"
      done
    done
  done
elif [ "$host" = gstreamer ]; then
  # GStreamer's frei0r elements are named after the plug-ins: frei0r-filter-flairize-<effect>.
  W=97 H=61
  make_source ${W}x${H} 1
  export GST_REGISTRY="$work/gst-registry.bin"
  for line in "${effects[@]}"; do
    read_effect "$line"
    properties=(progress=0.7) options=(--effect "$index" --progress "$(steps 0.7 16384)")
    for k in 0 1 2; do
      [ -n "${labels[$k]}" ] || continue
      value=${slider_values[$(( (k + 1) % 3 ))]}   # none of them the slider's default
      properties+=("$(echo "${labels[$k]}" | tr 'A-Z' 'a-z')=$value")
      options+=(--p$((k + 1)) "$(steps "$value" 255)")
    done
    if (( flags & 2 )); then properties+=(color-r=0.2 color-g=0.6 color-b=1); options+=(--colour 3399ff); fi
    run_host gst-launch-1.0 -q filesrc location=in.raw ! \
      rawvideoparse width=$W height=$H format=bgra framerate=1/1 ! "frei0r-filter-$plugin" "${properties[@]}" ! \
      filesink location=out.raw
    flairize_frame in0.png "${options[@]}"
    same_frame out.raw 0 expect.raw || die "$name: GStreamer's frame with ${properties[*]} differs from flairize render ${options[*]}"
  done
  # The example in docs/video-hosts.md, run as written there on a short H.264 clip.
  example=$(awk '/^gst-launch-1.0 filesrc location=clip.mp4/ { on = 1 } on { print } on && /filesink/ { exit }' "$docs")
  [ -n "$example" ] || die "$docs has no gst-launch-1.0 example reading clip.mp4"
  missing=
  ffmpeg -hide_banner -encoders 2>/dev/null | grep -q libx264 || missing+=" ffmpeg's libx264"
  for element in avdec_h264 vp8enc webmmux; do
    gst-inspect-1.0 "$element" >/dev/null 2>&1 || missing+=" $element"
  done
  if [ -n "$missing" ]; then
    echo "NOTE: the example in docs/video-hosts.md is not run: missing$missing (gstreamer1.0-libav, gstreamer1.0-plugins-good)"
  else
    ffmpeg -hide_banner -v error -f lavfi -i testsrc2=size=160x90:rate=25 -frames:v 10 -c:v libx264 -pix_fmt yuv420p \
      -y clip.mp4 || die "ffmpeg could not make clip.mp4"
    bash -c "$example" >host.log 2>&1 || die "the example in docs/video-hosts.md failed: $example: $(cat host.log)"
    frames=$(ffprobe -v error -count_frames -select_streams v:0 -show_entries stream=nb_read_frames -of csv=p=0 out.webm)
    [ "$frames" = 10 ] || die "the example in docs/video-hosts.md wrote ${frames:-no} frames to out.webm, not 10"
  fi
else
  W=97 H=61 N=10
  make_source ${W}x${H} 1
  printf '%s\n' "description=flairize frei0r test" frame_rate_num=25 frame_rate_den=1 width=$W height=$H \
    progressive=1 sample_aspect_num=1 sample_aspect_den=1 display_aspect_num=$W display_aspect_den=$H \
    colorspace=709 >profile
  # Debian's melt (7.x) has a start-up race of its own: now and then it exits 0
  # having written no frame, or hangs with its consumer thread gone. It does so
  # without any filter too (15 of 60 runs with two cores overloaded, none on an
  # idle machine), so a run that writes nothing is tried again, up to five times.
  melt_frames() {   # $1 output, the rest: filter and its properties
    local try status
    for try in 1 2 3 4 5; do
      rm -f "$1"
      status=0
      env timeout 60 melt -silent -profile profile avformat:in0.png in=0 out=$((N - 1)) "${@:2}" \
        -consumer avformat:"$1" f=rawvideo pix_fmt=bgra real_time=0 >host.log 2>&1 || status=$?
      [ $status -eq 0 ] || [ $status -eq 124 ] || die "melt ${*:2} failed: $(cat host.log)"
      [ "$(stat -c %s "$1" 2>/dev/null || echo 0)" -eq $((N * W * H * 4)) ] && return 0
      [ $status -eq 0 ] && [ -s "$1" ] && die "melt wrote $(stat -c %s "$1") bytes, not $N frames of ${W}x$H"
      sleep 1
    done
    die "melt ${*:2} wrote no frames in five runs (the last $( [ $status -eq 124 ] && echo "hung" || echo "exited 0")): $(cat host.log)"
  }
  for line in "${effects[@]}"; do
    read_effect "$line"
    properties=("Progress=0=0;$((N - 1))=1") options=(--effect "$index")
    for k in 0 1 2; do
      [ -n "${labels[$k]}" ] || continue
      properties+=("${labels[$k]}=${slider_values[$k]}") options+=(--p$((k + 1)) "$(steps "${slider_values[$k]}" 255)")
    done
    if (( flags & 2 )); then properties+=("Color=#3399ff") options+=(--colour 3399ff); fi
    melt_frames out.raw -filter frei0r.$plugin "${properties[@]}"
    if (( flags & 1 )); then
      same_frame out.raw 0 in.raw || die "$name: melt's first frame (Progress 0) is not the source"
    fi
    # The renders of every frame's progress, turned into raw frames by one ffmpeg run.
    for ((f = 0; f < N; ++f)); do
      progress=$(( (f * 16384 * 2 + N - 1) / (2 * (N - 1)) ))
      env -u LD_PRELOAD "$flairize" render in0.png expect$f.png "${options[@]}" --progress $progress 2>flairize.log ||
        die "flairize render ${options[*]} --progress $progress failed: $(cat flairize.log)"
    done
    ffmpeg -hide_banner -v error -i expect%d.png -pix_fmt bgra -f rawvideo -y expect.raw || die "ffmpeg cannot read the renders"
    for ((f = 0; f < N; ++f)); do
      cmp -s <(tail -c +$(( f * W * H * 4 + 1 )) out.raw | head -c $(( W * H * 4 ))) \
             <(tail -c +$(( f * W * H * 4 + 1 )) expect.raw | head -c $(( W * H * 4 ))) ||
        die "$name: melt frame $f (Progress $f/$((N - 1))) differs from flairize render ${options[*]} --progress $(( (f * 16384 * 2 + N - 1) / (2 * (N - 1)) ))"
    done
  done
fi
echo "frei0r $host: ${#effects[@]} effects byte-identical to flairize render"
