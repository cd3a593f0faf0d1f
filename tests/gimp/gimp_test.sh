#!/usr/bin/env bash
# The GIMP plug-in renders as `flairize render` does: GIMP, pointed at the
# build's plug-in folder through a profile of its own, opens an RGB and an
# RGBA PNG, runs three effects on each from a Script-Fu batch and saves PNGs
# (keeping the colour under alpha 0); every result's pixels must equal those
# of `flairize render` on the same file with the same settings.
#   gimp_test.sh FLAIRIZE PLUG_IN_DIR WORK_DIR
# Exit 77 (skipped) where gimp-console-2.10 is not installed.
set -u
flairize=$1 plugins=$2 work=$3
here=$(cd "$(dirname "$0")" && pwd)
gimp=$(command -v gimp-console-2.10) || { echo "gimp-console-2.10 not installed (Debian package gimp): skipped"; exit 77; }

rm -rf "$work" && mkdir -p "$work/profile" || exit 1
cd "$work" || exit 1
# The build's folder first, then GIMP's own plug-ins (the PNG loader and saver).
echo "(plug-in-path \"$plugins:\${gimp_plug_in_dir}/plug-ins\")" > profile/gimprc
python3 "$here/png_pixels.py" make rgb.png rgba.png || exit 1

# effect, Script-Fu arguments after the drawable, and the same settings for flairize render.
cases=(
  "pointillize|200 90 '(51 102 204) 16384|--number 200 --randomness 90 --colour 3366cc --progress 16384"
  "shake|70 200 9000|--angle 70 --amount 200 --progress 9000"
  "mosaic|12000|--progress 12000"
)
script=""
for picture in rgb rgba; do
  for entry in "${cases[@]}"; do
    IFS='|' read -r effect arguments options <<<"$entry"
    script+="(let* ((image (car (gimp-file-load RUN-NONINTERACTIVE \"$picture.png\" \"$picture.png\")))
                    (drawable (car (gimp-image-get-active-drawable image))))
               (plug-in-flairize-$effect RUN-NONINTERACTIVE image drawable $arguments)
               (file-png-save2 RUN-NONINTERACTIVE image drawable \"gimp-$picture-$effect.png\"
                               \"gimp-$picture-$effect.png\" 0 9 0 0 0 0 0 0 1)
               (gimp-image-delete image))
"
    "$flairize" render "$picture.png" "flairize-$picture-$effect.png" --effect "$effect" $options --quiet || exit 1
  done
done
# A value out of range is refused, not clamped.
script+="(let* ((image (car (gimp-file-load RUN-NONINTERACTIVE \"rgb.png\" \"rgb.png\")))
                (drawable (car (gimp-image-get-active-drawable image))))
           (gimp-message (if (car (catch '(#f) (plug-in-flairize-mosaic RUN-NONINTERACTIVE image drawable 16385) '(#t)))
                             \"refusal: accepted\" \"refusal: refused\")))
"
GIMP2_DIRECTORY=$work/profile timeout 300 "$gimp" -i -d -f -b "$script" -b '(gimp-quit 0)' > gimp.log 2>&1
status=$?
if [ $status -ne 0 ]; then
  echo "gimp-console-2.10 failed ($status):"; cat gimp.log; exit 1
fi

failed=0
for picture in rgb rgba; do
  for entry in "${cases[@]}"; do
    effect=${entry%%|*}
    if [ ! -f "gimp-$picture-$effect.png" ]; then
      echo "FAIL $picture $effect: GIMP wrote no picture"; failed=1; continue
    fi
    if difference=$(python3 "$here/png_pixels.py" same "gimp-$picture-$effect.png" "flairize-$picture-$effect.png"); then
      echo "ok   $picture $effect"
    else
      echo "FAIL $picture $effect: $difference"; failed=1
    fi
  done
done
if ! grep -q "refusal: refused" gimp.log; then
  echo "FAIL progress 16385 was not refused"; failed=1
fi
[ $failed -eq 0 ] || { echo "--- GIMP's messages:"; cat gimp.log; }
exit $failed
