#!/usr/bin/env bash
# Installs what is missing, builds, and runs every test: the native build, the
# same tests under AddressSanitizer and UndefinedBehaviorSanitizer, the cross
# build for 32-bit Windows, the engine's conformance check built for aarch64
# and run under qemu, the web editor (WebAssembly under Node and in a headless
# browser), every fuzz target for FUZZ_SECONDS (default 60) each, flairize-farm
# on a one-node Slurm cluster, and the Debian packages (made, checked with lintian, installed and purged). Each
# stage prints its time; the whole run is meant to stay under an hour on two
# cores, so the slow passes (sanitizers, qemu) take a fixed sample of the
# conformance rows; the native build and Node check every row.
set -euo pipefail
cd "$(dirname "$0")/.."

# `stage NAME` ends the stage before, printing "== name: N s", and starts NAME;
# on the way out, whether the run passed or not, every stage's time is listed.
stage_name="" stage_start=$SECONDS stage_times=()
stage() {
  if [ -n "$stage_name" ]; then
    echo "== $stage_name: $((SECONDS - stage_start)) s"
    stage_times+=("$stage_name: $((SECONDS - stage_start)) s")
  fi
  stage_name=${1:-} stage_start=$SECONDS
  if [ -n "$stage_name" ]; then echo "== $stage_name"; fi
}
stage_summary() {
  stage
  echo "== stage times"
  if [ ${#stage_times[@]} -gt 0 ]; then printf '   %s\n' "${stage_times[@]}"; fi
  echo "== whole run: $SECONDS s"
}
trap stage_summary EXIT

stage "dependencies"
bash scripts/install-deps.sh --test
jobs=$(nproc 2>/dev/null || echo 2)

stage "32-bit Windows build"
windows_build=""
if command -v i686-w64-mingw32-g++-posix >/dev/null; then
  cmake -S . -B build/win32 -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-i686.cmake -DCMAKE_BUILD_TYPE=Release >/dev/null
  cmake --build build/win32 -j"$jobs" 2>&1 | tee build/win32-build.log
  if grep -q 'warning:' build/win32-build.log; then
    echo "the Windows build has warnings"
    exit 1
  fi
  if /usr/bin/python3 -c 'import pefile' 2>/dev/null; then
    /usr/bin/python3 tests/windows/check_flair_dll.py build/win32/FLAIR.dll resources/strings.inc
  else
    echo "skipped: static checks of FLAIR.dll (python3-pefile could not be installed)"
  fi
else
  echo "skipped: the 32-bit Windows build (mingw-w64 could not be installed)"
fi

# Wine runs the i686 plug-in where 32-bit Wine installs; otherwise the same
# sources built for x86-64 run under wine64.
if command -v wine >/dev/null && dpkg-query -W -f='${Status}' wine32:i386 2>/dev/null | grep -q 'ok installed' \
   && [ -f build/win32/FLAIR.dll ]; then
  echo "Wine tests: the i686 FLAIR.dll under 32-bit Wine"
  export FLAIRIZE_WINE=wine FLAIRIZE_WINDOWS_BUILD="$PWD/build/win32"
  windows_build=build/win32
else
  wine64=$(command -v wine64 || ls /usr/lib/wine/wine64 2>/dev/null || true)
  if [ -n "$wine64" ] && command -v x86_64-w64-mingw32-g++-posix >/dev/null; then
    echo "Wine tests: 32-bit Wine (wine32) could not be installed, so the same sources built for x86-64 run under wine64"
    stage "64-bit Windows build for wine64"
    cmake -S . -B build/win64 -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-x86_64.cmake -DCMAKE_BUILD_TYPE=Release >/dev/null
    cmake --build build/win64 -j"$jobs"
    /usr/bin/python3 -c 'import pefile' 2>/dev/null &&
      /usr/bin/python3 tests/windows/check_flair_dll.py build/win64/FLAIR.dll resources/strings.inc --arch amd64
    export FLAIRIZE_WINE="$wine64" FLAIRIZE_WINDOWS_BUILD="$PWD/build/win64"
    windows_build=build/win64
  else
    echo "skipped: Wine tests (neither 32-bit Wine nor wine64 with mingw-w64 for x86-64 could be installed)"
  fi
fi
if [ -n "$windows_build" ] && command -v xvfb-run >/dev/null; then
  export FLAIRIZE_WINDOWS_EDITOR=1
elif [ -n "$windows_build" ]; then
  echo "skipped: the editor under Wine (xvfb could not be installed)"
fi

stage "native build"
cmake -S . -B build/release -DCMAKE_BUILD_TYPE=Release -DFLAIRIZE_TESTS=ON -DFLAIRIZE_BENCH=ON >/dev/null
cmake --build build/release -j"$jobs"
# Every row of the conformance table through every front end, the engine's also on 2, 3 and 7 threads.
stage "native tests"
ctest --test-dir build/release --output-on-failure -j"$jobs"

# ---- aarch64 -----------------------------------------------------------------
# The engine built for 64-bit Arm must render the conformance table bit for
# bit; under qemu, every third row of each effect. The check links statically,
# so qemu-aarch64 runs it with no Arm loader or sysroot.
stage "aarch64 build"
bash scripts/install-deps.sh --aarch64
aarch64_missing=()
command -v aarch64-linux-gnu-g++ >/dev/null || aarch64_missing+=(g++-aarch64-linux-gnu)
command -v qemu-aarch64 >/dev/null || aarch64_missing+=(qemu-user)
dpkg-query -W -f='${Status}' nettle-dev:arm64 2>/dev/null | grep -q 'install ok installed' || aarch64_missing+=(nettle-dev:arm64)
if [ ${#aarch64_missing[@]} -eq 0 ]; then
  cmake -S . -B build/aarch64 --no-warn-unused-cli -DCMAKE_TOOLCHAIN_FILE=cmake/aarch64-linux-gnu.cmake \
    -DCMAKE_BUILD_TYPE=Release -DFLAIRIZE_ENGINE_ONLY=ON >/dev/null
  cmake --build build/aarch64 -j"$jobs"
  stage "aarch64 conformance under qemu"
  qemu-aarch64 build/aarch64/conformance --every 3 tests/conformance/table
else
  echo "skipped: the aarch64 build and conformance under qemu (${aarch64_missing[*]} could not be installed)"
fi
# ---- end aarch64 -------------------------------------------------------------

stage "AddressSanitizer and UndefinedBehaviorSanitizer build"
cmake -S . -B build/sanitize -DCMAKE_BUILD_TYPE=Debug -DFLAIRIZE_SANITIZE=ON -DFLAIRIZE_BENCH=OFF >/dev/null
cmake --build build/sanitize -j"$jobs"
# Wine already ran against the native build; the sanitizer pass covers the engine.
# Its conformance test takes every 7th row (CONFORMANCE_EVERY in CMakeLists.txt).
stage "tests under AddressSanitizer and UndefinedBehaviorSanitizer"
# intercept_tls_get_addr=0: LeakSanitizer's tracer crashes on a dynamic TLS block
# of the frei0r plug-ins the tests load (a slot not yet allocated reads as an address).
FLAIRIZE_WINE= ASAN_OPTIONS=detect_leaks=1:abort_on_error=1:intercept_tls_get_addr=0 UBSAN_OPTIONS=print_stacktrace=1 \
  ctest --test-dir build/sanitize --output-on-failure -j"$jobs"

stage "ThreadSanitizer build"
cmake -S . -B build/tsan -DCMAKE_BUILD_TYPE=RelWithDebInfo -DFLAIRIZE_SANITIZE_THREADS=ON -DFLAIRIZE_BENCH=OFF >/dev/null
cmake --build build/tsan -j"$jobs" --target flairize_tests conformance flairize
stage "threaded tests under ThreadSanitizer"
export TSAN_OPTIONS="halt_on_error=1 suppressions=$PWD/tests/tsan/suppressions.txt"
# Slice threads, many frei0r instances, `flairize sequence` and `flairize video` rendering several frames at once.
ctest --test-dir build/tsan --output-on-failure -j"$jobs" -R 'Threads|ManyInstances|CommandLine.Sequence|CommandLine.Video'
# Every 13th row of each effect through four slice threads (an odd step, so
# that the sample holds full and filter-only rows of both colours).
build/tsan/conformance --threads 4 --every 13 tests/conformance/table

# The web editor: the engine built with Emscripten must render every row of the
# conformance table under Node, and the page must work in a headless browser.
stage "web editor build"
web_status=0
bash scripts/build-web.sh >build/web-build.log 2>&1 || web_status=$?
if [ $web_status -eq 77 ]; then
  echo "skipped: the web editor (Emscripten could not be installed)"
elif [ $web_status -ne 0 ]; then
  tail -n 40 build/web-build.log
  exit $web_status
else
  stage "web editor: conformance under Node, the page in a browser"
  node build/web/conformance.js tests/conformance/table
  stage "web: the npm package against flairize render"
  npm_status=0
  bash tests/web/npm_package_test.sh build/web/npm build/release/flairize build/npm-test || npm_status=$?
  [ $npm_status -eq 0 ] || [ $npm_status -eq 77 ] || exit $npm_status
  if ! command -v npm >/dev/null; then
    echo "skipped: the web editor in a browser (npm could not be installed)"
  elif ! (cd tests/web && PUPPETEER_SKIP_DOWNLOAD=1 npm ci --no-audit --no-fund --loglevel=error >/dev/null 2>../../build/npm-ci.log); then
    echo "skipped: the web editor in a browser (npm ci of puppeteer-core failed: $(tail -n 1 build/npm-ci.log))"
  else
    browser_status=0
    node tests/web/browser_test.mjs build/web/site build/release/flairize build/web-test || browser_status=$?
    if [ $browser_status -eq 77 ]; then
      echo "skipped: the web editor in a browser (see the reason above)"
    elif [ $browser_status -ne 0 ]; then
      exit $browser_status
    fi
  fi
fi

# Every fuzz target for a short while from its seeds and regression inputs
# (six targets: FUZZ_SECONDS x 6, 6 minutes by default, and about two minutes of build).
stage "fuzzing with libFuzzer, ${FUZZ_SECONDS:-60} s a target"
fuzz_status=0
bash scripts/fuzz.sh all "${FUZZ_SECONDS:-60}" || fuzz_status=$?
if [ $fuzz_status -eq 77 ]; then
  echo "skipped: fuzzing (clang with libFuzzer could not be installed)"
elif [ $fuzz_status -ne 0 ]; then
  exit $fuzz_status
fi

# flairize-farm on a one-node Slurm cluster started here (munged, slurmctld,
# slurmd in a temporary folder): a clip in 4 parts and a batch in 3, each the
# same as one flairize run, and a part killed mid-way run again by --resume.
stage "Slurm: flairize-farm on a local cluster"
slurm_status=0
bash tests/slurm/farm_test.sh build/release/flairize || slurm_status=$?
if [ $slurm_status -eq 77 ]; then
  echo "skipped: the Slurm stage (see the reason above)"
elif [ $slurm_status -ne 0 ]; then
  exit $slurm_status
fi

# The Debian packages: made with CPack, checked with lintian, installed with
# apt-get, used without FREI0R_PATH, and purged again.
stage "Debian packages"
debs_status=0
bash scripts/test-debs.sh build/debs || debs_status=$?
if [ $debs_status -ne 0 ] && [ $debs_status -ne 77 ]; then
  exit $debs_status
fi
