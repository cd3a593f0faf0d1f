#!/usr/bin/env bash
# The main job: installs what is missing, builds, and renders the bundled sample
# picture through every offered effect, one picture each, plus a contact sheet.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/install-deps.sh
jobs=$(nproc 2>/dev/null || echo 2)
cmake -S . -B build/release -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build build/release -j"$jobs" --target flairize contact_sheet

bin=build/release
out=out/demo
mkdir -p "$out"
sheet=("Original=samples/sample.png")
skipped=()
while IFS=$'\t' read -r index name offered _; do
  [ "$offered" = 1 ] || continue
  slug=$(echo "$name" | tr '[:upper:] ' '[:lower:]-')
  if "$bin/flairize" render samples/sample.png "$out/$slug.png" --effect "$index" 2>"$out/.err"; then
    sheet+=("$name=$out/$slug.png")
    echo "rendered $out/$slug.png"
  elif grep -q 'not available in this build' "$out/.err"; then
    skipped+=("$name")
  else
    cat "$out/.err" >&2
    exit 1
  fi
done < <("$bin/flairize" list --tsv)
rm -f "$out/.err"
"$bin/contact_sheet" "$out/contact-sheet.png" 6 "${sheet[@]}"
echo "contact sheet: $out/contact-sheet.png ($(( ${#sheet[@]} - 1 )) effects)"
if [ ${#skipped[@]} -gt 0 ]; then
  echo "not yet available: ${skipped[*]}"
fi
