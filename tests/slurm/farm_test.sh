#!/bin/bash
# flairize-farm on a one-node Slurm cluster started for the test:
#   1. a 10-second clip with audio in 4 parts, FFV1 in Matroska: the joined
#      video's frames and audio are those of one `flairize video` run, and it
#      has every frame;
#   2. a batch of 20 pictures in 3 parts: each the same as a single render;
#   3. a part cancelled while it renders: the farm names it and fails; with
#      --resume only that part runs again, and the result is the single run's.
# Usage: farm_test.sh FLAIRIZE. Exit status 77: skipped (no Slurm, munge or ffmpeg; not root).
set -u
here=$(cd "$(dirname "$0")" && pwd)
flairize=$(realpath "${1:?usage: farm_test.sh FLAIRIZE}")
farm=$here/../../scripts/flairize-farm
PATH=$PATH:/usr/sbin:/sbin

for program in ffmpeg ffprobe; do
  command -v $program >/dev/null || { echo "skipped: $program is not installed"; exit 77; }
done
"$flairize" video --help >/dev/null 2>&1 && "$flairize" video /dev/null /tmp/x.mkv 2>&1 | grep -q "without FFmpeg" &&
  { echo "skipped: flairize was built without FFmpeg's libraries"; exit 77; }

# The work folder is shared by the farm and the nodes: here, one machine.
work=$(mktemp -d /tmp/flairize-farm-test-XXXXXX)
cluster=$work/cluster
cleanup() {
  bash "$here/local_cluster.sh" stop "$cluster"
  rm -rf "$work"
}
trap cleanup EXIT
started=$(bash "$here/local_cluster.sh" start "$cluster")
status=$?
if [ $status = 77 ]; then echo "skipped: a Slurm cluster cannot run here"; exit 77; fi
[ $status = 0 ] || { echo "FAIL: the local Slurm cluster would not start"; tail -n 20 "$cluster"/*.log; exit 1; }
eval "$started"

failures=0
check() {   # WHAT COMMAND...: passes when COMMAND succeeds
  local what=$1
  shift
  if "$@"; then echo "ok: $what"; else echo "FAIL: $what"; failures=$((failures + 1)); fi
}
frames_md5() { ffmpeg -v error -i "$1" -map 0:v -f framemd5 - | grep -v '^#' | awk '{print $NF}'; }
audio_md5() { ffmpeg -v error -i "$1" -map 0:a -c copy -f framemd5 - | grep -v '^#' | awk '{print $NF}'; }
frame_count() { ffprobe -v error -count_frames -select_streams v:0 -show_entries stream=nb_read_frames -of csv=p=0 "$1"; }
same() { [ "$1" = "$2" ] && [ -n "$1" ]; }

effect=(--effect solarize --direction Cycle --speed 20)   # every frame's progress differs from its neighbours'

# 1. A clip in 4 parts.
ffmpeg -v error -y -f lavfi -i testsrc=size=192x108:rate=25 -f lavfi -i sine=frequency=440:sample_rate=48000 \
  -t 10 -c:v ffv1 -g 30 -c:a flac "$work/clip.mkv"
"$flairize" video "$work/clip.mkv" "$work/single.mkv" "${effect[@]}" -q
"$farm" --parts 4 --poll 0.5 --flairize "$flairize" video "$work/clip.mkv" "$work/farm.mkv" "${effect[@]}" \
  >"$work/farm.out" 2>&1
check "the farm's 4-part video run succeeds" test $? = 0
check "the joined video has every frame (250)" test "$(frame_count "$work/farm.mkv")" = 250
check "the joined video's frames are the single run's" same "$(frames_md5 "$work/farm.mkv")" "$(frames_md5 "$work/single.mkv")"
check "the joined video's audio is the single run's" same "$(audio_md5 "$work/farm.mkv")" "$(audio_md5 "$work/single.mkv")"
check "the farm reported the parts' progress" grep -q "parts: 4 done, 0 running, 0 pending, 0 failed (of 4)" "$work/farm.out"

# 2. A batch of 20 pictures in 3 parts.
mkdir -p "$work/pictures"
for i in $(seq -w 1 20); do
  ffmpeg -v error -y -f lavfi -i "testsrc=size=$((40 + 10#$i))x$((30 + 10#$i))" -frames:v 1 "$work/pictures/p$i.png"
done
"$farm" --parts 3 --poll 0.5 --flairize "$flairize" render "$work/pictures/*.png" --output-dir "$work/batch" \
  --effect mosaic --progress 60% >"$work/batch.out" 2>&1
check "the farm's 3-part batch succeeds" test $? = 0
check "the batch wrote 20 pictures" test "$(ls "$work/batch" | wc -l)" = 20
batch_same=1
for i in $(seq -w 1 20); do
  "$flairize" render "$work/pictures/p$i.png" "$work/one.png" --effect mosaic --progress 60% -q
  cmp -s "$work/one.png" "$work/batch/p$i-mosaic.png" || { echo "differs: p$i"; batch_same=0; }
done
check "every picture of the batch is its single render" test $batch_same = 1

# 3. A part cancelled while it renders, then --resume.
ffmpeg -v error -y -f lavfi -i testsrc=size=960x540:rate=25 -f lavfi -i sine=frequency=300:sample_rate=48000 \
  -t 8 -c:v ffv1 -c:a flac "$work/long.mkv"
slow=(--effect glass --threads 1)
"$farm" --parts 4 --poll 0.3 --flairize "$flairize" video "$work/long.mkv" "$work/resumed.mkv" "${slow[@]}" \
  >"$work/kill.out" 2>&1 &
farm_pid=$!
parts=$work/resumed.mkv.parts
killed=0
for _ in $(seq 1200); do   # part 2's temporary output appears when it starts writing frames
  if compgen -G "$parts/part-0002.mkv.*" >/dev/null; then
    read -r array _ <"$parts/jobs"
    scancel "${array}_2" && killed=1
    break
  fi
  sleep 0.05
done
wait $farm_pid
farm_status=$?
check "part 2 was cancelled while it rendered" test $killed = 1
check "the farm fails when a part fails" test $farm_status = 1
check "the farm names the failed part" grep -q "part 2 failed" "$work/kill.out"
check "no joined file after a failed part" test ! -e "$work/resumed.mkv"
check "the other parts succeeded" test -e "$parts/part-0000.ok" -a -e "$parts/part-0001.ok" -a -e "$parts/part-0003.ok"
before=$(stat -c '%n %Y.%y' "$parts"/part-000[013].mkv)
"$farm" --parts 4 --poll 0.3 --resume --flairize "$flairize" video "$work/long.mkv" "$work/resumed.mkv" "${slow[@]}" \
  >"$work/resume.out" 2>&1
check "--resume succeeds" test $? = 0
check "--resume submits part 2 alone" grep -q "submitting again part(s) 2 of 4" "$work/resume.out"
check "--resume leaves the finished parts alone" test "$before" = "$(stat -c '%n %Y.%y' "$parts"/part-000[013].mkv)"
"$flairize" video "$work/long.mkv" "$work/long-single.mkv" "${slow[@]}" -q
check "the resumed video's frames are the single run's" \
  same "$(frames_md5 "$work/resumed.mkv")" "$(frames_md5 "$work/long-single.mkv")"
check "the resumed video's audio is the single run's" \
  same "$(audio_md5 "$work/resumed.mkv")" "$(audio_md5 "$work/long-single.mkv")"

if [ $failures -gt 0 ]; then
  for f in "$work"/*.out; do echo "--- $f"; cat "$f"; done
  echo "$failures check(s) failed"
  exit 1
fi
echo "all Slurm checks passed"
