#!/bin/bash
# The timings in docs/scale-out.md: one clip rendered by one `flairize video`
# run and by flairize-farm in 1, 2 and 4 parts on a one-node Slurm cluster
# started here, the join alone, the counting pass, and what each part costs
# beyond its frames (CPU seconds, which the machine's other load does not change).
# Usage: farm_timings.sh FLAIRIZE [SECONDS] [WIDTHxHEIGHT] [EFFECT]
set -eu
here=$(cd "$(dirname "$0")" && pwd)
flairize=$(realpath "$1")
seconds=${2:-20} size=${3:-1280x720} effect=${4:-solarize}
farm=$here/../../scripts/flairize-farm
work=$(mktemp -d /tmp/flairize-farm-timings-XXXXXX)
trap 'bash "$here/local_cluster.sh" stop "$work/cluster"; rm -rf "$work"' EXIT
eval "$(bash "$here/local_cluster.sh" start "$work/cluster")"
cores=$(nproc)

clip=$work/clip.mp4
ffmpeg -v error -y -f lavfi -i "testsrc2=size=$size:rate=25" -f lavfi -i "sine=sample_rate=48000" -t "$seconds" \
  -c:v libx264 -preset veryfast -c:a aac "$clip"
frames=$(ffprobe -v error -count_packets -select_streams v:0 -show_entries stream=nb_read_packets -of csv=p=0 "$clip")
echo "clip: $size, $seconds s, $frames frames, H.264 (keyframe every 250 frames) with AAC; effect $effect; output FFV1 in Matroska"
echo "machine: $cores cores; load average at the start: $(cut -d' ' -f1-3 /proc/loadavg)"

measure() {   # LABEL COMMAND...: wall, user+sys seconds
  local label=$1
  shift
  local t0 t1
  t0=$(date +%s.%N)
  /usr/bin/time -f '%U %S' -o "$work/cpu" "$@" >/dev/null 2>"$work/err" || { cat "$work/err"; exit 1; }
  t1=$(date +%s.%N)
  printf '| %s | %.1f | %.1f |\n' "$label" "$(awk -v a="$t0" -v b="$t1" 'BEGIN { print b - a }')" \
    "$(awk '{ print $1 + $2 }' "$work/cpu")"
}

echo
echo "| run | wall s | CPU s (user+sys) |"
echo "|---|---|---|"
measure "flairize video, one run, $cores threads" "$flairize" video "$clip" "$work/single.mkv" --effect "$effect" -q
for parts in 1 2 4; do
  cpus=$((parts == 1 ? cores : 1))
  # The parts run under slurmd: the CPU time measured would be the submitter's alone.
  measure "flairize-farm --parts $parts --cpus-per-task $cpus (with the join)" \
    "$farm" --parts "$parts" --cpus-per-task "$cpus" --poll 0.2 --flairize "$flairize" \
    video "$clip" "$work/farm$parts.mkv" --effect "$effect" -q | sed 's/| [0-9.]* |$/| (on the node) |/'
  cmp -s <(ffmpeg -v error -i "$work/farm$parts.mkv" -map 0:v -f framemd5 - | grep -v '^#') \
    <(ffmpeg -v error -i "$work/single.mkv" -map 0:v -f framemd5 - | grep -v '^#') ||
    { echo "the $parts-part result differs from the single run"; exit 1; }
done
measure "flairize join of the 4 parts alone" "$flairize" join "$work"/farm4.mkv.parts/part-*.mkv "$work/joined.mkv" \
  --audio-from "$clip"
rm -f "$work/count"
measure "part 0/4 counting the frames (no count file)" "$flairize" video "$clip" "$work/c.mkv" --part 0/4 \
  --count-file "$work/count" --effect "$effect" --threads 1 -q
measure "part 0/4 reading the count file" "$flairize" video "$clip" "$work/c.mkv" --part 0/4 \
  --count-file "$work/count" --effect "$effect" --threads 1 -q

# CPU seconds of the whole clip in one part and in 4, one thread each, one after another.
echo
echo "| one thread each, one after another | wall s | CPU s | frames decoded and dropped before the part's first |"
echo "|---|---|---|---|"
keyframes=$(ffprobe -v error -select_streams v:0 -show_entries packet=pts_time,flags -of csv=p=0 "$clip" |
  awk -F, '{ if (index($2, "K")) k = NR - 1; print k }')
measure "whole clip as part 0/1" "$flairize" video "$clip" "$work/w.mkv" --part 0/1 --count-file "$work/count1" \
  --effect "$effect" --threads 1 -q | sed 's/ |$/ | 0 |/'
for i in 0 1 2 3; do
  first=$((i * frames / 4))
  dropped=$((first - $(echo "$keyframes" | sed -n "$((first + 1))p")))
  line=$(measure "part $i/4" "$flairize" video "$clip" "$work/p$i.mkv" --part "$i/4" --count-file "$work/count" \
    --effect "$effect" --threads 1 -q)
  echo "$line" | sed "s/ |\$/ | $dropped |/"
done
