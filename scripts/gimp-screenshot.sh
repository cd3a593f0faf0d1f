#!/usr/bin/env bash
# Screenshots of the GIMP plug-in's dialog for docs/images/: GIMP 2.10 under
# Xvfb, with the build's plug-in and a picture, opens an effect's dialog in
# interactive mode; ImageMagick's import captures the screen. Needs gimp,
# xvfb and imagemagick; not part of the tests.
#   scripts/gimp-screenshot.sh [BUILD_DIR] [EFFECT...]   (default: build, pointillize)
set -eu
root=$(cd "$(dirname "$0")/.." && pwd)
build=$(cd "${1:-$root/build}" && pwd)
shift || true
effects=("$@")
[ ${#effects[@]} -gt 0 ] || effects=(pointillize)
picture=$root/samples/sample.png
work=$(mktemp -d)
trap 'kill $gimp_pid $xvfb_pid 2>/dev/null || true; rm -rf "$work"' EXIT

display=:$((90 + RANDOM % 9))
Xvfb "$display" -screen 0 1280x900x24 -nolisten tcp &
xvfb_pid=$!
sleep 2
for effect in "${effects[@]}"; do
  # A fresh profile each time: GIMP stopped by a signal leaves a crash-recovery note in its profile.
  profile=$work/profile-$effect
  mkdir -p "$profile"
  echo "(plug-in-path \"$build/gimp-plug-ins:\${gimp_plug_in_dir}/plug-ins\")" > "$profile/gimprc"
  # Every argument after the drawable: the effect's defaults, as `flairize list` names them.
  arguments=$("$build/flairize" list --json | python3 -c "
import json, sys
for e in json.load(sys.stdin)['effects']:
    if e['slug'] == '$effect':
        values = [str(s['default']) for s in e['sliders']]
        if e.get('uses_colour'): values.append(\"'(0 0 0)\")
        print(' '.join(values + ['16384']))")
  DISPLAY=$display GIMP2_DIRECTORY=$profile gimp-2.10 -d -f --no-splash -b "
    (let* ((image (car (gimp-file-load RUN-NONINTERACTIVE \"$picture\" \"$picture\")))
           (drawable (car (gimp-image-get-active-drawable image))))
      (gimp-display-new image)
      (plug-in-flairize-$effect RUN-INTERACTIVE image drawable $arguments))" > "$work/gimp.log" 2>&1 &
  gimp_pid=$!
  sleep 25
  DISPLAY=$display import -window root "$root/docs/images/gimp-$effect.png"
  kill $gimp_pid 2>/dev/null || true
  wait $gimp_pid 2>/dev/null || true
  echo "docs/images/gimp-$effect.png"
done
