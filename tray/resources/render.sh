#!/usr/bin/env bash
# Renders the tray icons' SVG sources into the PNG sizes that the application ships.
# Needs ImageMagick; the PNGs are committed, so a build does not.
set -euo pipefail
cd "$(dirname "$0")"
convert=${CONVERT:-/usr/bin/convert}
mkdir -p png
for name in waiting error connected; do
  for size in 16 22 24 32 48; do
    "$convert" -background none -density 1200 "$name.svg" -resize "${size}x${size}" -strip \
      "PNG32:png/$name-$size.png"
  done
done
