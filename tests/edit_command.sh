#!/usr/bin/env bash
# flairize edit serves the site and the picture, and nothing outside the site;
# refuses other methods; opens BROWSER at the address; ends with 0 on SIGINT.
# Usage: edit_command.sh FLAIRIZE. Exit 77: built without libmicrohttpd, or no curl.
set -u
bin=$1
command -v curl >/dev/null || { echo "skipped: curl is not installed"; exit 77; }
tmp=$(mktemp -d /tmp/flairize-edit-XXXXXX)
pid=""
trap '[ -n "$pid" ] && kill "$pid" 2>/dev/null; rm -rf "$tmp"' EXIT
failures=0
fail() { echo "FAIL: $*"; failures=$((failures + 1)); }
expect() { [ "$2" = "$3" ] || fail "$1: expected \"$2\", got \"$3\""; }

# Refusals: one line and exit 2, before anything is served.
"$bin" edit "$tmp/missing.png" --site "$tmp/site" >"$tmp/out" 2>"$tmp/err"
status=$?
if grep -q "built without libmicrohttpd" "$tmp/err"; then
  echo "skipped: flairize was built without libmicrohttpd"
  exit 77
fi
expect "missing picture: exit" 2 "$status"
expect "missing picture: message" "flairize: $tmp/missing.png: No such file or directory" "$(cat "$tmp/err")"
"$bin" edit --site "$tmp" >"$tmp/out" 2>"$tmp/err"
expect "no site: exit" 2 $?
expect "no site: lines" 1 "$(wc -l <"$tmp/err")"
grep -q "the web editor is not built here" "$tmp/err" || fail "no site: $(cat "$tmp/err")"

mkdir -p "$tmp/site/sub"
echo '<!doctype html><title>t</title>' >"$tmp/site/index.html"
echo 'var engine;' >"$tmp/site/flairize-engine.js"
echo 'body {}' >"$tmp/site/style.css"
printf '\0asm' >"$tmp/site/engine.wasm"
echo secret >"$tmp/secret.txt"
ln -s ../secret.txt "$tmp/site/escape.txt"
head -c 5000 /dev/urandom >"$tmp/a b&c.png"
printf '#!/bin/sh\necho "$1" >"%s/opened"\n' "$tmp" >"$tmp/browser"
chmod +x "$tmp/browser"

BROWSER="$tmp/browser" "$bin" edit "$tmp/a b&c.png" --site "$tmp/site" >"$tmp/out" 2>"$tmp/err" &
pid=$!
for _ in $(seq 100); do grep -q "Ctrl-C" "$tmp/out" && break; sleep 0.1; done
url=$(sed -n 's/^Flairize editor: //p' "$tmp/out")
base=${url%%\?*}
case "$base" in http://127.0.0.1:[0-9]*/) ;; *) fail "address: \"$url\" $(cat "$tmp/err")"; exit 1 ;; esac
# The query holds the picture's path escaped once more: a page reading it gets
# the path to fetch.
query=${url#*\?picture=}
expect "picture query" "/picture/a%2520b%2526c.png" "$query"
picture=$(printf '%b' "${query//%/\\x}")

while IFS='|' read -r method path want; do
  got=$(curl -s --noproxy "*" --path-as-is -X "$method" -o /dev/null -w '%{http_code} %{content_type}' "$base$path")
  case "$want" in *" "*) ;; *) got=${got%% *} ;; esac   # the type only where one is expected
  expect "$method /$path" "$want" "$got"
done <<'TABLE'
GET||200 text/html; charset=utf-8
GET|flairize-engine.js|200 text/javascript; charset=utf-8
GET|style.css|200 text/css; charset=utf-8
GET|engine.wasm|200 application/wasm
GET|sub/../index.html|200 text/html; charset=utf-8
GET|../secret.txt|404
GET|%2e%2e/secret.txt|404
GET|sub/%2E%2E/%2e%2e/secret.txt|404
GET|%2F..%2Fsecret.txt|404
GET|escape.txt|404
GET|missing.js|404
GET|sub|404
GET|picture/other.png|404
POST||405
PUT|index.html|405
TABLE
curl -sI --noproxy "*" "$base" | grep -qi '^X-Content-Type-Options: nosniff' || fail "no nosniff header"
expect "HEAD /" 200 "$(curl -s --noproxy "*" -I -o /dev/null -w '%{http_code}' "$base")"
expect "picture" 200 "$(curl -s --noproxy "*" -o "$tmp/got" -w '%{http_code}' "$base${picture#/}")"
cmp -s "$tmp/got" "$tmp/a b&c.png" || fail "the picture's bytes differ from the file"

for _ in $(seq 50); do [ -s "$tmp/opened" ] && break; sleep 0.1; done
expect "BROWSER was given" "$url" "$(cat "$tmp/opened" 2>/dev/null)"

kill -INT "$pid"
wait "$pid"
expect "exit on SIGINT" 0 $?
pid=""
[ -s "$tmp/err" ] && fail "stderr: $(cat "$tmp/err")"
[ $failures -eq 0 ] && echo "flairize edit: all checks passed"
[ $failures -eq 0 ]
