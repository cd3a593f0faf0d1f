#!/usr/bin/env bash
# Lines of code against lines of tests, and the tests' share of the whole.
# Code is every file git knows (tracked, or new and not ignored, so build
# folders and node_modules stay out) named *.cpp *.h *.c *.js *.mjs *.sh *.py
# *.cmake or CMakeLists.txt, outside docs/. Tests are those under tests/ and the
# scripts that run them (scripts/test.sh, scripts/fuzz.sh); the conformance
# table's .txt files are data, not code. Blank lines are not counted.
set -euo pipefail
cd "$(dirname "$0")/.."

code=0 tests=0
while IFS= read -r -d '' file; do
  case "$file" in
    docs/*) continue ;;
    *.cpp | *.h | *.c | *.js | *.mjs | *.sh | *.py | *.cmake | CMakeLists.txt | */CMakeLists.txt) ;;
    *) continue ;;
  esac
  [ -f "$file" ] || continue   # deleted but not yet committed
  lines=$(grep -c -v '^[[:space:]]*$' "$file" || true)
  case "$file" in
    tests/* | scripts/test.sh | scripts/fuzz.sh) tests=$((tests + lines)) ;;
    *) code=$((code + lines)) ;;
  esac
done < <(git ls-files -z --cached --others --exclude-standard)

total=$((code + tests))
echo "code:  $code lines"
echo "tests: $tests lines"
if [ "$total" -gt 0 ]; then
  echo "tests' share: $((1000 * tests / total / 10)).$((1000 * tests / total % 10)) % of $total lines"
fi
