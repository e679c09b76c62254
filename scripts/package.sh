#!/usr/bin/env bash
# package.sh: builds the release tree's installed programs and makes the Debian package
# halvo-softphone-tray with CPack; prints the package's path. Install it with
# `apt install ./<file>.deb`.
set -euo pipefail
cd "$(dirname "$0")/.."

# Progress goes to stderr: standard output is the package's path alone, for deb=$(...).
scripts/install-deps.sh >&2
# What `cmake --install` takes from the tree; tests and benchmarks are not needed for it.
scripts/build.sh release HalvoSoftphoneTray hv-service-peer hv-collect-report >&2

out=$PWD/build/package
rm -rf "$out"
mkdir -p "$out"
if ! cpack -G DEB --config build/release/CPackConfig.cmake -B "$out" >"$out/cpack.log" 2>&1; then
  cat "$out/cpack.log" >&2
  echo "package: cpack failed" >&2
  exit 1
fi
packages=("$out"/halvo-softphone-tray_*.deb)
[ -f "${packages[0]}" ] || { echo "package: cpack made no package in $out" >&2; exit 1; }
echo "${packages[0]}"
