#!/usr/bin/env bash
# Renders the macOS template images (black on clear: the menu bar uses only their alpha) at 1x
# and 2x. Needs ImageMagick; the PNGs are committed, so a build does not.
set -euo pipefail
cd "$(dirname "$0")"
convert=${CONVERT:-/usr/bin/convert}
for name in waiting error connected; do
  "$convert" -background none -density 1200 "$name.svg" -resize 16x16 -strip "PNG32:${name}Template.png"
  "$convert" -background none -density 1200 "$name.svg" -resize 32x32 -strip "PNG32:${name}Template@2x.png"
done
