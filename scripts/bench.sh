#!/usr/bin/env bash
# Builds and runs the benchmark; prints ms per 1920x1080 frame and megapixels
# per second for every effect as a Markdown table (the README's performance table).
set -euo pipefail
cd "$(dirname "$0")/.."
cmake -S . -B build/release -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build build/release -j"$(nproc)" --target flairize_bench >/dev/null
build/release/flairize_bench --benchmark_min_time="${MIN_TIME:-0.5}" --benchmark_repetitions="${REPS:-3}" \
  --benchmark_report_aggregates_only=true --benchmark_format=csv 2>/dev/null |
  awk -F, 'BEGIN { print "| Effect | ms per frame | megapixels/s |"; print "|---|---|---|" }
           $1 ~ /_median"$/ {
             name = $1; gsub(/^"|_median"$/, "", name); sub(/^[0-9]+ /, "", name)
             printf "| %s | %.2f | %.0f |\n", name, $3, $NF
           }'
