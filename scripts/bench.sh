#!/usr/bin/env bash
# Builds and runs the benchmark and prints the tables of docs/performance.md:
#  1. the engine, per offered effect at 1080p and 2160p: 24-bit frames through the
#     full render (a new picture each time) and 32-bit frames from view to view (as
#     the video hosts render), at full progress, in ms with one thread and with all
#     cores, the speed-up, and the one-thread figure as a multiple of the copy of a
#     frame of the same depth in the same run; beside the 32-bit figures the 24-bit
#     one, the alpha mix alone, and the 32-bit figure over 1.3 x the 24-bit one plus
#     the mix;
#  2. the frei0r plug-ins called in-process beside the engine's view-to-view
#     render of the same frames: what the plug-in adds per frame;
#  3. inside ffmpeg (one thread), the per-frame cost of frei0r=flairize-X beside
#     the ffmpeg filter that does the nearest work, and their ratio; beside it the
#     engine's own one-thread render of a 32-bit frame view to view, so the
#     plug-in's overhead shows;
#  4. `flairize video` on a 1080p H.264 clip with Posterize and with heavy effects
#     beside ffmpeg's plain transcode of the same clip with the same encoder
#     settings and threads: wall seconds, frames a second, CPU seconds, the ratio.
# MIN_TIME (seconds per benchmark, default 0.5), REPS (repetitions, default 3),
# FILTER (a regular expression over benchmark names), FRAMES (ffmpeg frames for
# table 3, default 40), VIDEO_FRAMES (frames of the clip, default 200),
# VIDEO_EFFECTS (default "posterize watercolor shake charcoal"), SKIP_FFMPEG=1
# (no table 3) and SKIP_VIDEO=1 (no table 4) shorten or narrow the run.
# THREADS=1,2,4,8,16 runs table 1 at those thread counts (more threads than cores
# are allowed; "all" is all cores), so a machine shows its scaling curve.
set -euo pipefail
cd "$(dirname "$0")/.."
cmake -S . -B build/release -DCMAKE_BUILD_TYPE=Release -DFLAIRIZE_BENCH=ON >/dev/null
cmake --build build/release -j"$(nproc)" --target flairize_bench flairize >/dev/null
cmake --build build/release -j"$(nproc)" >/dev/null   # the frei0r plug-ins
csv=$(mktemp)
work=$(mktemp -d)
trap 'rm -rf "$csv" "$work"' EXIT

# The thread counts of table 1 as the benchmark names them, one first.
counts="1 $(tr ',' ' ' <<<"${THREADS:-all}")"
counts=$(tr ' ' '\n' <<<"$counts" | awk 'NF && !seen[$1]++' | tr '\n' ' ')
cores=$(nproc)

echo "Machine: $cores cores, $(grep -m1 'model name' /proc/cpuinfo | cut -d: -f2 | sed 's/^ *//');" \
  "load average at the start $(cut -d' ' -f1-3 /proc/loadavg)"
FLAIRIZE_BENCH_THREADS=$(tr ' ' ',' <<<"$counts") \
  build/release/flairize_bench --benchmark_min_time="${MIN_TIME:-0.5}" --benchmark_repetitions="${REPS:-3}" \
  --benchmark_report_aggregates_only=true --benchmark_format=csv --benchmark_filter="${FILTER:-.}" \
  2>/dev/null >"$csv"

# name,iterations,real_time,cpu_time,...: medians, keyed by the name without "_median" and "/real_time".
# With one repetition there are no aggregates: the single figures are the medians.
awk -F, 'NR > 1 && $1 ~ /^"/ {
    name = $1; gsub(/^"|"$/, "", name)
    if (name ~ /_(mean|stddev|cv)$/) next
    median = sub(/_median$/, "", name); sub(/\/real_time$/, "", name)
    if (!(name in t)) order[++n] = name
    if (median || !(name in t)) t[name] = $3
  } END { for (i = 1; i <= n; ++i) print order[i] "\t" t[order[i]] }' "$csv" >"$work/medians.tsv"

ms() { awk -F'\t' -v k="$1" '$1 == k { printf "%.2f", $2; found = 1 } END { if (!found) printf "-" }' "$work/medians.tsv"; }
# "1 thread", "all threads", "4 threads".
label() { case $1 in 1) echo "1 thread" ;; all) echo "all threads" ;; *) echo "$1 threads" ;; esac; }
# A copy or mix figure on `threads` ("1": the name without a count).
floor() { if [ "$2" = 1 ]; then ms "$1"; else ms "$1/$2"; fi; }

# Table 1: one table per size and depth. Columns: ms at each thread count, the
# speed-up at each count past one, the one-thread figure over the copy; for 32-bit
# frames also the 24-bit figure and the 32-bit one over 1.3 x it plus the mix.
engine_table() {
  local size=$1 depth=$2 c head rule floors=""
  local copy=copy; [ "$depth" = 32 ] && copy=copy32
  for c in $counts; do floors+="${floors:+, }$(floor "$size/$copy" "$c") ms on $(label "$c")"; done
  echo
  if [ "$depth" = 24 ]; then
    echo "Engine, $size 24-bit frames, full render (ms per frame; copy of a 24-bit frame into a new picture: $floors)"
  else
    local mixes="" m1
    for c in $counts; do mixes+="${mixes:+, }$(floor "$size/mix32" "$c") ms on $(label "$c")"; done
    m1=$(awk -v m="$(ms "$size/mix32")" -v c="$(ms "$size/copy32")" 'BEGIN { if (c > 0) printf "%.2fx", m / c; else print "-" }')
    echo "Engine, $size 32-bit frames, view to view (ms per frame; copy of a 32-bit frame: $floors;" \
      "the alpha mix alone: $mixes, on one thread $m1 the copy)"
    if [ "$(ms "$size/alpha/mix32")" != - ]; then
      echo
      echo "Opaque frames, as video hosts hand them. The last two columns: one thread on a frame whose alpha is 0," \
        "255 and in between in stripes, and that over 1.3 × the 24-bit figure plus the mix on it" \
        "($(ms "$size/alpha/mix32") ms, $(awk -v m="$(ms "$size/alpha/mix32")" -v c="$(ms "$size/copy32")" \
        'BEGIN { if (c > 0) printf "%.2fx", m / c; else print "-" }') the copy)."
    fi
  fi
  echo
  head="| Effect |"; rule="|---|"
  for c in $counts; do head+=" $(label "$c") |"; rule+="---|"; done
  for c in $counts; do [ "$c" = 1 ] && continue; head+=" speed-up ($c) |"; rule+="---|"; done
  head+=" 1 thread / copy |"; rule+="---|"
  if [ "$depth" = 32 ]; then
    head+=" 24-bit, 1 thread | 32-bit / (1.3 × 24-bit + mix) |"; rule+="---|---|"
    if [ "$(ms "$size/alpha/mix32")" != - ]; then head+=" partial alpha, 1 thread | partial / (1.3 × 24-bit + mix) |"; rule+="---|---|"; fi
  fi
  [ "$counts" = "1 all " ] && head=${head//speed-up (all)/speed-up}
  echo "$head"
  echo "$rule"
  # Effects in the order the benchmark ran them.
  local prefix="$size/"; [ "$depth" = 32 ] && prefix="$size/32bit/"
  awk -F'\t' -v p="${prefix}1/" 'index($1, p) == 1 { print substr($1, length(p) + 1) }' "$work/medians.tsv" |
    while IFS= read -r effect; do
      local row="| $effect |" one all v
      one=$(ms "${prefix}1/$effect")
      for c in $counts; do row+=" $(ms "$prefix$c/$effect") |"; done
      for c in $counts; do
        [ "$c" = 1 ] && continue
        v=$(ms "$prefix$c/$effect")
        row+=" $(awk -v a="$one" -v b="$v" 'BEGIN { if (b > 0) printf "%.2fx", a / b; else print "-" }') |"
      done
      row+=" $(awk -v a="$one" -v b="$(ms "$size/$copy")" 'BEGIN { if (b > 0) printf "%.1fx", a / b; else print "-" }') |"
      if [ "$depth" = 32 ]; then
        local plain
        plain=$(ms "$size/1/$effect")
        row+=" $plain | $(awk -v a="$one" -v b="$plain" -v m="$(ms "$size/mix32")" \
          'BEGIN { if (b > 0 && m > 0) printf "%.2f", a / (1.3 * b + m); else print "-" }') |"
        local partial
        partial=$(ms "$size/alpha/32bit/1/$effect")
        if [ "$partial" != - ]; then
          row+=" $partial | $(awk -v a="$partial" -v b="$plain" -v m="$(ms "$size/alpha/mix32")" \
            'BEGIN { if (b > 0 && m > 0) printf "%.2f", a / (1.3 * b + m); else print "-" }') |"
        fi
      fi
      echo "$row"
    done
}
for size in 1080p 2160p; do
  for depth in 24 32; do
    if grep -q "^$size/$([ "$depth" = 32 ] && echo 32bit/)1/" "$work/medians.tsv"; then engine_table "$size" "$depth"; fi
  done
done

if grep -q '^1080p/frei0r/' "$work/medians.tsv"; then
  echo
  echo "frei0r plug-ins called in-process, 1080p 32-bit frames, one thread (ms per frame)"
  echo
  echo "| Effect | engine, view to view | plug-in (f0r_update) | added by the plug-in |"
  echo "|---|---|---|---|"
  awk -F'\t' '
    { t[$1] = $2 }
    $1 ~ /^1080p\/frei0r\// { name = substr($1, 14); order[++n] = name }
    END {
      for (i = 1; i <= n; ++i) {
        v = t["1080p/32bit/1/" order[i]]; f = t["1080p/frei0r/" order[i]]
        if (v == "") { printf "| %s | - | %.2f | - |\n", order[i], f; continue }
        printf "| %s | %.2f | %.2f | %+.2f |\n", order[i], v, f, f - v
      }
    }' "$work/medians.tsv"
fi

# Seconds of a command's run, "wall user+system", from bash's own timing; a
# failed run stops the benchmark with its message.
timed() {
  local TIMEFORMAT='%R %U %S'
  if ! { time "$@" >/dev/null 2>"$work/stderr"; } 2>"$work/time"; then
    echo "failed: $*: $(cat "$work/stderr")" >&2
    return 1
  fi
  awk '{ printf "%s %.2f\n", $1, $2 + $3 }' "$work/time"
}
median() { sort -g | awk '{ v[NR] = $1 } END { print v[int((NR + 1) / 2)] }'; }

ffmpeg_table() {
  if ! command -v ffmpeg >/dev/null || [ ! -d build/release/frei0r-1 ]; then
    echo; echo "skipped: the frei0r-in-ffmpeg table (ffmpeg or the frei0r plug-ins are missing)"; return
  fi
  # Raw 1080p frames made once per pixel format, so decoding costs next to nothing.
  local frames=${FRAMES:-40} fmt
  for fmt in bgra gbrp; do
    ffmpeg -v error -f lavfi -i "testsrc2=size=1920x1080:rate=25" -frames:v "$frames" -pix_fmt "$fmt" \
      -f rawvideo "$work/src.$fmt"
  done
  # Seconds of wall time for one ffmpeg run of `filter` over the frames in `fmt`.
  run() {
    local fmt=$1 filter=$2
    FREI0R_PATH="$PWD/build/release/frei0r-1" FLAIRIZE_THREADS=1 \
      ffmpeg -hide_banner -nostats -benchmark -threads 1 -filter_threads 1 -f rawvideo -pix_fmt "$fmt" \
      -s 1920x1080 -i "$work/src.$fmt" -vf "$filter" -f null - 2>&1 | sed -n 's/.*rtime=\([0-9.]*\)s.*/\1/p'
  }
  # Per-frame ms of a filter: the median over runs, less the median of a null run of the same format.
  declare -A null_ms
  cost() {
    local fmt=$1 filter=$2 reps=${REPS:-3} i t
    t=$(for ((i = 0; i < reps; ++i)); do run "$fmt" "$filter"; done | median)
    awk -v t="$t" -v z="${null_ms[$fmt]}" -v n="$frames" 'BEGIN { printf "%.2f", (t - z) * 1000 / n }'
  }
  for fmt in bgra gbrp; do
    null_ms[$fmt]=$(for ((i = 0; i < ${REPS:-3}; ++i)); do run "$fmt" null; done | median)
  done

  echo
  echo "Inside ffmpeg, 1080p, one thread (ms per frame: run time less a null run, median of ${REPS:-3}; $frames frames)"
  echo
  echo "| Effect | frei0r plug-in | engine, view to view | counterpart | counterpart ms | plug-in / counterpart |"
  echo "|---|---|---|---|---|---|"
  local filters pair name slug peer ours theirs ratio
  filters=$(ffmpeg -hide_banner -filters 2>/dev/null | awk '{ print $2 }')
  local pairs=(
    "Solarize|solarize|bgra|lutrgb=r=negval:g=negval:b=negval"
    "Posterize|posterize|bgra|lutrgb=r=trunc(trunc(val*9/255)*255/9):g=trunc(trunc(val*9/255)*255/9):b=trunc(trunc(val*9/255)*255/9)"
    "Find Edges|find-edges|gbrp|edgedetect=mode=colormix"
    "Contours|contours|gbrp|edgedetect=mode=colormix"
    "Mosaic|mosaic|gbrp|pixelize=w=16:h=16"
    "Motion Blur|motion-blur|gbrp|dblur=angle=90:radius=15"
    "Center Blur|center-blur|gbrp|zoomblur"
  )
  for pair in "${pairs[@]}"; do
    IFS='|' read -r name slug fmt peer <<<"$pair"
    ours=$(cost bgra "frei0r=filter_name=flairize-$slug")
    if ! grep -qx "${peer%%=*}" <<<"$filters"; then
      echo "| $name | $ours | $(ms "1080p/32bit/1/$name") | ${peer%%=*} (not in this ffmpeg) | - | - |"
      continue
    fi
    theirs=$(cost "$fmt" "$peer")
    ratio=$(awk -v a="$ours" -v b="$theirs" 'BEGIN { if (b > 0) printf "%.2fx", a / b; else print "-" }')
    echo "| $name | $ours | $(ms "1080p/32bit/1/$name") | \`$peer\` ($fmt) | $theirs | $ratio |"
  done
  echo
  echo "The plug-ins take BGRA frames; edgedetect, pixelize and dblur do not, so they run on planar RGB (gbrp) frames"
  echo "and their null run is of the same format. Solarize at full progress inverts every pixel; Posterize at its"
  echo "default slider keeps ten values per channel (k × 255 / 9); Motion Blur at its default angle walks 15 pixels vertically."
}

# Table 4: flairize video beside ffmpeg's transcode of the same clip: libx264 at
# its defaults (preset medium, CRF 23) on both sides, FFmpeg's automatic codec
# threads on both, flairize rendering on all cores. The runs take turns, so a
# busy machine slows them alike; each figure is the median of REPS.
video_table() {
  if ! command -v ffmpeg >/dev/null; then
    echo; echo "skipped: the video table (ffmpeg is missing)"; return
  fi
  local frames=${VIDEO_FRAMES:-200} effects=${VIDEO_EFFECTS:-posterize watercolor shake charcoal}
  local clip=$work/clip.mp4 reps=${REPS:-3} i e t
  ffmpeg -v error -f lavfi -i "testsrc2=size=1920x1080:rate=25" -frames:v "$frames" -c:v libx264 -preset medium \
    -pix_fmt yuv420p "$clip"
  # The encoder's pace on the effect's own pictures: the same transcode of flairize's first output.
  local first=${effects%% *}
  if ! build/release/flairize video "$clip" "$work/$first.mp4" --effect "$first" --quiet 2>"$work/stderr"; then
    echo; echo "skipped: the video table ($(cat "$work/stderr"))"; return
  fi
  declare -A wall cpu
  for ((i = 0; i < reps; ++i)); do
    t=$(timed ffmpeg -v error -y -i "$clip" -c:v libx264 -preset medium "$work/ffmpeg.mp4")
    wall[ffmpeg]+="${t% *} "; cpu[ffmpeg]+="${t#* } "
    t=$(timed ffmpeg -v error -y -i "$work/$first.mp4" -c:v libx264 -preset medium "$work/again.mp4")
    wall[again]+="${t% *} "; cpu[again]+="${t#* } "
    for e in $effects; do
      t=$(timed build/release/flairize video "$clip" "$work/out.mp4" --effect "$e" --quiet)
      wall[$e]+="${t% *} "; cpu[$e]+="${t#* } "
    done
  done
  local base
  base=$(tr ' ' '\n' <<<"${wall[ffmpeg]}" | grep . | median)
  row() {
    local what=$1 key=$2 w c
    w=$(tr ' ' '\n' <<<"${wall[$key]}" | grep . | median)
    c=$(tr ' ' '\n' <<<"${cpu[$key]}" | grep . | median)
    awk -v what="$what" -v w="$w" -v c="$c" -v n="$frames" -v b="$base" \
      'BEGIN { printf "| %s | %.2f | %.1f | %.2f | %.2fx |\n", what, w, n / w, c, w / b }'
  }
  echo
  echo "flairize video, 1080p H.264 clip ($frames frames of testsrc2, 25 fps) to H.264 (libx264, preset medium, CRF 23)," \
    "$cores cores (median of $reps runs taken in turn)"
  echo
  echo "| Run | wall s | frames/s | CPU s | wall / ffmpeg's |"
  echo "|---|---|---|---|---|"
  row "\`ffmpeg -i IN -c:v libx264 -preset medium OUT\`" ffmpeg
  for e in $effects; do row "\`flairize video IN OUT --effect $e\`" "$e"; done
  row "ffmpeg's same transcode of flairize's $first output" again
  echo
  echo "Both sides decode and encode with FFmpeg's automatic thread counts; flairize renders as many frames at once as"
  echo "there are cores. The last row is the encoder's pace on the effect's pictures, which cost it more than the clip's own."
}

[ "${SKIP_FFMPEG:-0}" = 1 ] || ffmpeg_table
[ "${SKIP_VIDEO:-0}" = 1 ] || video_table
