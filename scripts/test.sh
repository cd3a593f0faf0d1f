#!/usr/bin/env bash
# Installs what is missing, builds, and runs every test: the native build, the
# same tests under AddressSanitizer and UndefinedBehaviorSanitizer, and the
# cross build for 32-bit Windows.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/install-deps.sh
jobs=$(nproc 2>/dev/null || echo 2)

echo "== 32-bit Windows build"
if command -v i686-w64-mingw32-g++-posix >/dev/null; then
  cmake -S . -B build/win32 -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-i686.cmake -DCMAKE_BUILD_TYPE=Release >/dev/null
  cmake --build build/win32 -j"$jobs" 2>&1 | tee build/win32-build.log
  if grep -q 'warning:' build/win32-build.log; then
    echo "the Windows build has warnings"
    exit 1
  fi
else
  echo "skipped: the 32-bit Windows build (mingw-w64 could not be installed)"
fi

echo "== native build and tests"
cmake -S . -B build/release -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build build/release -j"$jobs"
ctest --test-dir build/release --output-on-failure -j"$jobs"

echo "== tests under AddressSanitizer and UndefinedBehaviorSanitizer"
cmake -S . -B build/sanitize -DCMAKE_BUILD_TYPE=Debug -DFLAIRIZE_SANITIZE=ON -DFLAIRIZE_BENCH=OFF >/dev/null
cmake --build build/sanitize -j"$jobs"
ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1 \
  ctest --test-dir build/sanitize --output-on-failure -j"$jobs"

