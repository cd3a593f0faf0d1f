#!/usr/bin/env bash
# Builds and runs the benchmark and prints the README's performance tables:
#  1. per offered effect at 1080p and 2160p (24-bit frames, full render at full
#     progress): ms with one thread and with all cores, the speed-up, and the
#     one-thread figure as a multiple of the plain copy of the frame in the same run;
#  2. the frei0r plug-ins called in-process beside the engine's view-to-view
#     render of the same frames: what the plug-in adds per frame;
#  3. inside ffmpeg (one thread), the per-frame cost of frei0r=flairize-X beside
#     the ffmpeg filter that does the nearest work, and their ratio; beside it the
#     engine's own one-thread render of a 32-bit frame view to view, so the
#     plug-in's overhead shows.
# MIN_TIME (seconds per benchmark, default 0.5), REPS (repetitions, default 3),
# FILTER (a regular expression over benchmark names), FRAMES (ffmpeg frames,
# default 40) and SKIP_FFMPEG=1 shorten or narrow the run.
set -euo pipefail
cd "$(dirname "$0")/.."
cmake -S . -B build/release -DCMAKE_BUILD_TYPE=Release -DFLAIRIZE_BENCH=ON >/dev/null
cmake --build build/release -j"$(nproc)" --target flairize_bench flairize >/dev/null
cmake --build build/release -j"$(nproc)" >/dev/null   # the frei0r plug-ins
csv=$(mktemp)
work=$(mktemp -d)
trap 'rm -rf "$csv" "$work"' EXIT

echo "Machine: $(nproc) cores, $(grep -m1 'model name' /proc/cpuinfo | cut -d: -f2 | sed 's/^ *//')"
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

for size in 1080p 2160p; do
  echo
  copy() { awk -F'\t' -v k="$1" '$1 == k { printf "%.2f", $2 }' "$work/medians.tsv"; }
  echo "Engine, $size, full render (ms per frame; copy floor $(copy "$size/copy") ms on one thread, $(copy "$size/copy/all") ms on all cores)"
  echo
  echo "| Effect | 1 thread | all threads | speed-up | 1 thread / copy |"
  echo "|---|---|---|---|---|"
  awk -F'\t' -v size="$size" '
    { t[$1] = $2 }
    $1 ~ ("^" size "/1/") { name = substr($1, length(size) + 4); order[++n] = name }
    END {
      floor = t[size "/copy"]
      for (i = 1; i <= n; ++i) {
        one = t[size "/1/" order[i]]; all = t[size "/all/" order[i]]
        printf "| %s | %.2f | %.2f | %.2fx | %.1fx |\n", order[i], one, all, (all > 0 ? one / all : 0),
               (floor > 0 ? one / floor : 0)
      }
    }' "$work/medians.tsv"
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
        v = t["1080p/view/" order[i]]; f = t["1080p/frei0r/" order[i]]
        printf "| %s | %.2f | %.2f | %+.2f |\n", order[i], v, f, f - v
      }
    }' "$work/medians.tsv"
fi

[ "${SKIP_FFMPEG:-0}" = 1 ] && exit 0
if ! command -v ffmpeg >/dev/null || [ ! -d build/release/frei0r-1 ]; then
  echo; echo "skipped: the ffmpeg comparison (ffmpeg or the frei0r plug-ins are missing)"; exit 0
fi

# Raw 1080p frames made once per pixel format, so decoding costs next to nothing.
frames=${FRAMES:-40}
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
median() { sort -g | awk '{ v[NR] = $1 } END { print v[int((NR + 1) / 2)] }'; }
# Per-frame ms of a filter: the median over runs, less the median of a null run of the same format.
declare -A null_ms
cost() {
  local fmt=$1 filter=$2 reps=${REPS:-3} i
  local t
  t=$(for ((i = 0; i < reps; ++i)); do run "$fmt" "$filter"; done | median)
  awk -v t="$t" -v z="${null_ms[$fmt]}" -v n="$frames" 'BEGIN { printf "%.2f", (t - z) * 1000 / n }'
}
for fmt in bgra gbrp; do
  null_ms[$fmt]=$(for ((i = 0; i < ${REPS:-3}; ++i)); do run "$fmt" null; done | median)
done

view_ms() { awk -F'\t' -v k="1080p/view/$1" '$1 == k { printf "%.2f", $2 }' "$work/medians.tsv"; }
echo
echo "Inside ffmpeg, 1080p, one thread (ms per frame: run time less a null run, median of ${REPS:-3}; $frames frames)"
echo
echo "| Effect | frei0r plug-in | engine, view to view | counterpart | counterpart ms | plug-in / counterpart |"
echo "|---|---|---|---|---|---|"
filters=$(ffmpeg -hide_banner -filters 2>/dev/null | awk '{ print $2 }')
pairs=(
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
    echo "| $name | $ours | $(view_ms "$name") | ${peer%%=*} (not in this ffmpeg) | - | - |"
    continue
  fi
  theirs=$(cost "$fmt" "$peer")
  ratio=$(awk -v a="$ours" -v b="$theirs" 'BEGIN { if (b > 0) printf "%.2fx", a / b; else print "-" }')
  echo "| $name | $ours | $(view_ms "$name") | \`$peer\` ($fmt) | $theirs | $ratio |"
done
echo
echo "The plug-ins take BGRA frames; edgedetect, pixelize and dblur do not, so they run on planar RGB (gbrp) frames"
echo "and their null run is of the same format. Solarize at full progress inverts every pixel; Posterize at its"
echo "default slider keeps ten values per channel (k × 255 / 9); Motion Blur at its default angle walks 15 pixels vertically."
