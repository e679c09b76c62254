#!/usr/bin/env bash
# bench-tray.sh: figures of the tray application (a benchmark, not a test): idle memory and CPU
# over 60 s, status-to-tool-tip latency, start to first icon. Runs the release build on its own
# X server (Xvfb) with a private session bus whose StatusNotifierWatcher is the e2e harness's.
# Extra arguments go to tray/benchmarks/tray_bench.py (e.g. --idle-seconds 10 for a quick look).
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
cmake -S . -B build/release -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DCMAKE_C_COMPILER=gcc -DCMAKE_CXX_COMPILER=g++ >/dev/null
cmake --build build/release --target HalvoSoftphoneTray -j "$(nproc)" >/dev/null
xvfb-run -a -s "-screen 0 800x600x24" dbus-run-session --config-file=tests/e2e/session-bus.conf -- /usr/bin/python3 tray/benchmarks/tray_bench.py \
  --tray build/release/tray/HalvoSoftphoneTray "$@" 2> >(grep -v 'Failed to set fd limit' >&2)
