#!/usr/bin/env bash
# Starts Kdenlive under Xvfb with the Flairize effect descriptions installed for
# the user only (XDG_DATA_HOME in a temporary folder, so your own Kdenlive
# settings are untouched), searches the effect list for "Flairize", adds one
# effect to a clip, and saves screenshots to docs/images/kdenlive-*.png.
#   scripts/kdenlive-screenshot.sh [BUILD_DIR]     (default: build)
# Needs kdenlive, xvfb, xdotool, imagemagick and dbus; not part of the tests.
set -eu
root=$(cd "$(dirname "$0")/.." && pwd)
build=$(realpath "${1:-$root/build}")
for tool in kdenlive Xvfb xdotool import dbus-daemon; do
  command -v $tool >/dev/null || { echo "$tool is not installed" >&2; exit 1; }
done
[ -f "$build/kdenlive-effects/frei0r_flairize-posterize.xml" ] ||
  { echo "no descriptions in $build/kdenlive-effects: build the flairize_kdenlive target" >&2; exit 1; }

tmp=$(mktemp -d)
pids=()
# Kdenlive, its bus and its X server are stopped in that order.
cleanup() { for ((i = ${#pids[@]} - 1; i >= 0; --i)); do kill "${pids[i]}" 2>/dev/null || true; done; sleep 2; rm -rf "$tmp"; }
trap cleanup EXIT

# The per-user install: the descriptions in Kdenlive's effects folder under XDG_DATA_HOME.
export HOME=$tmp/home XDG_DATA_HOME=$tmp/data XDG_CONFIG_HOME=$tmp/config XDG_CACHE_HOME=$tmp/cache
mkdir -p "$HOME" "$XDG_DATA_HOME/kdenlive/effects" "$XDG_CONFIG_HOME" "$XDG_CACHE_HOME"
cp "$build"/kdenlive-effects/frei0r_flairize-*.xml "$XDG_DATA_HOME/kdenlive/effects/"
# MLT finds the plug-ins in FREI0R_PATH (here the build tree, and the system's own).
export FREI0R_PATH=$build/frei0r-1:/usr/lib/frei0r-1:/usr/lib/x86_64-linux-gnu/frei0r-1
export QT_QPA_PLATFORM=xcb LANG=C.UTF-8

display=:$(( 90 + RANDOM % 100 ))
Xvfb "$display" -screen 0 1600x1000x24 -nolisten tcp >"$tmp/xvfb.log" 2>&1 &
pids+=($!)
export DISPLAY=$display
sleep 2

export XDG_RUNTIME_DIR=$tmp/runtime
mkdir -m 700 "$XDG_RUNTIME_DIR"
# A clip to put the effect on: the sample picture.
clip=$tmp/sample.png
cp "$root/samples/sample.png" "$clip"

# Kdenlive wants a session bus: one of its own.
bus=$(dbus-daemon --session --fork --print-address=1 --print-pid=1)
export DBUS_SESSION_BUS_ADDRESS=$(sed -n 1p <<<"$bus")
pids+=("$(sed -n 2p <<<"$bus")")
kdenlive >"$tmp/kdenlive.log" 2>&1 &
pids+=($!)
mkdir -p "$root/docs/images"
shot() { import -window root "$root/docs/images/kdenlive-$1.png"; echo "docs/images/kdenlive-$1.png"; }
click() { xdotool mousemove "$1" "$2" click "${@:3}" 1; sleep 1.5; }

# Wait for the main window ("Untitled ... Kdenlive"); a first start may ask
# whether to reset the configuration: Continue.
window=
for _ in $(seq 120); do
  for w in $(xdotool search --onlyvisible --class kdenlive 2>/dev/null); do
    case "$(xdotool getwindowname "$w")" in
      Question*) xdotool key --window "$w" alt+o ;;
      Untitled*Kdenlive) window=$w ;;
    esac
  done
  [ -n "$window" ] && break
  sleep 1
done
[ -n "$window" ] || { echo "Kdenlive opened no window: $(tail -5 "$tmp/kdenlive.log")" >&2; exit 1; }
xdotool windowsize --sync "$window" 1600 1000
xdotool windowmove "$window" 0 0
sleep 5

# The positions below are those of Kdenlive 22.12's default layout in a 1600x1000 window.
click 236 466                      # the Effects tab beside the project bin
click 481 51                       # show the selected effect's description
click 200 76                       # the effect search field
xdotool type --delay 60 flairize
sleep 3
shot effects

# The sample picture as a clip on track V1, Posterize added to it, the playhead on it.
click 40 466                       # back to the project bin
click 152 10                       # Project menu
click 218 34                       # Add Clip or Folder...
sleep 2
xdotool type --delay 30 "$clip"
xdotool key Return
sleep 4
xdotool key Return                 # a new profile for the picture's size: Continue
sleep 3
xdotool mousemove 69 115 mousedown 1
for x in 100 150 200 230; do xdotool mousemove $x $((400 + x)); sleep 0.3; done
xdotool mousemove 240 700; sleep 0.5; xdotool mouseup 1
sleep 3
click 270 703                      # select the clip
click 236 466                      # the Effects tab
click 200 76                       # the search field
xdotool key ctrl+a                 # its text selected, to be replaced
xdotool type --delay 60 posterize
sleep 2
click 117 117 --repeat 2 --delay 100   # add Posterize (Flairize) to the selected clip
click 275 562                      # the playhead onto the clip
sleep 3
shot posterize
