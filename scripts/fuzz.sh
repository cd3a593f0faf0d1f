#!/usr/bin/env bash
# Builds the fuzz targets (clang, libFuzzer, AddressSanitizer and
# UndefinedBehaviorSanitizer in build/fuzz) and fuzzes one target, or every
# target in turn, for SECONDS each from its seeds and regression inputs:
#   scripts/fuzz.sh TARGET SECONDS     TARGET: picture_read, engine_render, plugin_exports,
#   scripts/fuzz.sh all SECONDS                settings_stream, frei0r_update, video_convert
# New inputs found go to build/fuzz/corpus/TARGET; a crash is written to
# build/fuzz/crashes/TARGET/ and the script fails. Exit 77: clang or libFuzzer is missing.
set -euo pipefail
cd "$(dirname "$0")/.."
[ $# -eq 2 ] || { echo "usage: scripts/fuzz.sh TARGET|all SECONDS" >&2; exit 2; }
target=$1 seconds=$2
jobs=$(nproc 2>/dev/null || echo 2)

fuzzer_lib=$(clang++ -print-file-name=libclang_rt.fuzzer-x86_64.a 2>/dev/null || true)
if ! command -v clang++ >/dev/null || [ ! -f "$fuzzer_lib" ]; then
  echo "fuzz: clang or its libFuzzer is missing (Debian packages clang and libclang-rt-dev): no fuzzing"
  exit 77
fi

CC=clang CXX=clang++ cmake -S . -B build/fuzz -DCMAKE_BUILD_TYPE=RelWithDebInfo -DFLAIRIZE_FUZZ=ON \
  -DFLAIRIZE_TESTS=ON -DFLAIRIZE_BENCH=OFF >/dev/null
mapfile -t targets < <(cd build/fuzz/tests/fuzz && make help | sed -n 's/^\.\.\. fuzz_//p')
cmake --build build/fuzz -j"$jobs" --target flairize "${targets[@]/#/fuzz_}" >/dev/null
seeds=build/fuzz/seeds
if [ ! -d "$seeds" ]; then
  rm -rf "$seeds.new"
  if bash tests/fuzz/make_seeds.sh build/fuzz/flairize "$seeds.new"; then
    mv "$seeds.new" "$seeds"
  else
    echo "fuzz: no seeds could be made; the targets start from their regression inputs alone"
  fi
fi

run_one() {
  local t=$1 corpus=build/fuzz/corpus/$1 crashes=build/fuzz/crashes/$1 options=()
  mkdir -p "$corpus" "$crashes"
  [ "$t" = video_convert ] && options=(-max_len=65536 -timeout=30)
  [ "$t" = frei0r_update ] && options=(-max_len=16640 -len_control=0)   # frames up to 64 x 64 from the start
  echo "== fuzz $t for $seconds s"
  local dirs=("$corpus")
  [ -d "$seeds/$t" ] && dirs+=("$seeds/$t")
  [ -d "tests/fuzz/regressions/$t" ] && dirs+=("tests/fuzz/regressions/$t")
  # libFuzzer's own stderr tells the runs and the coverage; its summary is the last lines.
  ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 FLAIRIZE_THREADS=2 \
    "build/fuzz/tests/fuzz/fuzz_$t" -max_total_time="$seconds" -print_final_stats=1 -timeout=20 \
      -rss_limit_mb=2048 -artifact_prefix="$crashes/" "${options[@]}" "${dirs[@]}" 2>"build/fuzz/$t.log" || {
    tail -n 60 "build/fuzz/$t.log"
    echo "fuzz: $t failed; the input is in $crashes/ (commit it to tests/fuzz/regressions/$t/ with the fix)"
    return 1
  }
  grep -E '^#[0-9]+[[:space:]]+(INITED|DONE)|^stat::' "build/fuzz/$t.log"
}

if [ "$target" = all ]; then
  failed=()
  for t in "${targets[@]}"; do run_one "$t" || failed+=("$t"); done
  [ ${#failed[@]} -eq 0 ] || { echo "fuzz: failed: ${failed[*]}"; exit 1; }
else
  printf '%s\n' "${targets[@]}" | grep -qx "$target" || { echo "fuzz: no target $target (${targets[*]})" >&2; exit 2; }
  run_one "$target"
fi
