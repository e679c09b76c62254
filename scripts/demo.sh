#!/usr/bin/env bash
# demo.sh: the main job. Builds the tray and the service stand-in, then runs the tray as the
# stand-in's child (as the softphone service runs it) and cycles it through its states: waiting,
# connected and the errors Port busy, Invalid client connection, Unknown host, Internal error.
#
# In a desktop session (DISPLAY or WAYLAND_DISPLAY, and DBUS_SESSION_BUS_ADDRESS) the item shows
# in your own panel until Ctrl-C. Without one the demo starts its own headless desktop (Xvfb, a
# private D-Bus session, the XEmbed panel trayer), saves a screenshot of the panel for each state
# and names the folder at the end. HV_DEMO_HEADLESS=1 forces the headless run.
set -euo pipefail
cd "$(dirname "$0")/.."
repo=$(pwd)

tray=$repo/build/release/tray/HalvoSoftphoneTray
peer=$repo/build/release/tools/hv-service-peer/hv-service-peer

# name | status sent | second line of the tool tip
states=(
  "waiting|Waiting,Success|Waiting"
  "connected|Connected,Success|Connected"
  "port-busy|Waiting,Socket|Error: Port busy"
  "invalid-client-connection|Waiting,Validation|Error: Invalid client connection"
  "unknown-host|Waiting,NoVDISession|Error: Unknown host"
  "internal-error|Waiting,Unknown|Error: Internal error"
)
status_arguments=()
for state in "${states[@]}"; do
  IFS='|' read -r _ status _ <<<"$state"
  status_arguments+=(--status "$status")
done

# The second lines of the tool tips that the tray has shown so far, one a line, from its log.
shown_tool_tips() {
  { find "$1/logs" -type f -exec cat {} + 2>/dev/null || true; } | awk '
    /presentation.status = / { sub(/.*presentation.status = /, ""); sub(/\)$/, ""); print }'
}

# Headless, inside the private D-Bus session: panel, tray, one screenshot per state.
headless_session() {
  local out=$1
  trayer --edge top --align left --widthtype pixel --width 120 --height 28 --transparent false \
    --tint 0xdddddd >/dev/null 2>&1 &
  local panel=$!
  local geometry=""
  for _ in $(seq 100); do
    geometry=$(xwininfo -root -tree 2>/dev/null | awk '/"panel"/ && /trayer/ { print $(NF-1); exit }' || true)
    [ -n "$geometry" ] && break
    sleep 0.1
  done
  [ -n "$geometry" ] || { echo "demo: the panel (trayer) did not appear" >&2; kill "$panel"; return 1; }
  # The panel must own the tray selection before the tray asks for it.
  sleep 0.5

  # Long enough per state for the screenshot; the stand-in goes round until told to stop.
  HV_SOFTPHONE_LOG_DIR=$out/logs XDG_RUNTIME_DIR=$out/runtime QT_QPA_PLATFORM=xcb \
    "$peer" --spawn "$tray" --cycle --delay-ms 1500 "${status_arguments[@]}" >"$out/stand-in.txt" 2>&1 &
  local standin=$!

  local index=0 failed=0
  for state in "${states[@]}"; do
    IFS='|' read -r name _ tool_tip <<<"$state"
    index=$((index + 1))
    # The first line is the start-up state; the cycle's statuses follow it.
    local seen=""
    for _ in $(seq 150); do
      seen=$(shown_tool_tips "$out" | sed -n "$((index + 1))p" || true)
      [ -n "$seen" ] && break
      sleep 0.1
    done
    if [ "$seen" != "$tool_tip" ]; then
      echo "demo: expected the tool tip '$tool_tip' for $name, the tray showed '${seen:-nothing}'" >&2
      failed=1
      break
    fi
    sleep 0.4  # the panel repaints the embedded icon
    # The panel's geometry WxH+X+Y, with the window's absolute position.
    geometry=$(xwininfo -root -tree | awk '/"panel"/ && /trayer/ { print $(NF-1), $NF; exit }')
    local size=${geometry%% *} position=${geometry##* }
    size=${size%%[+-]*}
    import -window root "$out/screen.png"
    convert "$out/screen.png" -crop "${size}${position}" +repage "$out/$name.png"
    # An enlarged copy with the tool tip that the tray set, as read from its log.
    convert "$out/$name.png" -filter point -resize 400% -background white -gravity south \
      -font DejaVu-Sans -pointsize 14 -splice 0x24 -annotate +0+4 "$tool_tip" "$out/$name-large.png" 2>/dev/null ||
      convert "$out/$name.png" -filter point -resize 400% "$out/$name-large.png"
    echo "demo: $name: tool tip 'Halvo Softphone (130.264.0) / $tool_tip' -> $out/$name.png"
  done
  rm -f "$out/screen.png"

  # The stand-in ends the tray by closing its standard input, then reports its exit status.
  kill -TERM "$standin" 2>/dev/null || true
  local result=0
  wait "$standin" || result=$?
  cat "$out/stand-in.txt"
  kill "$panel" 2>/dev/null || true
  wait "$panel" 2>/dev/null || true
  [ "$failed" -eq 0 ] && [ "$result" -eq 0 ]
}

if [ "${1:-}" = "--headless-session" ]; then
  headless_session "$2"
  exit
fi

scripts/install-deps.sh
cmake -S . -B build/release -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DCMAKE_C_COMPILER=gcc -DCMAKE_CXX_COMPILER=g++ >/dev/null
cmake --build build/release --target HalvoSoftphoneTray hv-service-peer -j "$(nproc)"

if [ -z "${HV_DEMO_HEADLESS:-}" ] && [ -n "${DISPLAY:-}${WAYLAND_DISPLAY:-}" ] && [ -n "${DBUS_SESSION_BUS_ADDRESS:-}" ]; then
  echo "demo: the Halvo Softphone item is in your panel, changing state every 2 s; Ctrl-C ends it"
  # Qt shows the item over StatusNotifierItem on the X11 platform plugin (XWayland too).
  [ -n "${DISPLAY:-}" ] && export QT_QPA_PLATFORM=${QT_QPA_PLATFORM:-xcb}
  # Ctrl-C is the stand-in's to handle: it closes the tray's input and waits for it to end.
  trap : INT
  result=0
  "$peer" --spawn "$tray" --cycle --delay-ms 2000 "${status_arguments[@]}" || result=$?
  exit "$result"
fi

out=$repo/demo-output/$(date +%Y%m%d-%H%M%S)
mkdir -p "$out/logs" "$out/runtime"
chmod 700 "$out/runtime"
echo "demo: no desktop session; starting a headless one (Xvfb, private D-Bus session, trayer)"
# Xvfb picks a free display itself and tells its number.
Xvfb -displayfd 5 -screen 0 320x200x24 -nolisten tcp 5>"$out/display" >/dev/null 2>&1 &
xvfb=$!
trap 'kill "$xvfb" 2>/dev/null || true' EXIT
# It names the display before it accepts clients: wait for both.
for _ in $(seq 100); do
  [ -s "$out/display" ] && xwininfo -root -display ":$(head -n1 "$out/display")" >/dev/null 2>&1 && break
  sleep 0.1
done
xwininfo -root -display ":$(head -n1 "$out/display")" >/dev/null 2>&1 || { echo "demo: Xvfb did not start" >&2; exit 1; }
export DISPLAY=:$(head -n1 "$out/display")
rm -f "$out/display"
unset WAYLAND_DISPLAY
dbus-run-session -- "$repo/scripts/demo.sh" --headless-session "$out" 2> >(grep -v 'Failed to set fd limit' >&2)
echo "demo: screenshots of the panel for each state in $out"
ls "$out"/*.png
