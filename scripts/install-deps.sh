#!/usr/bin/env bash
# Installs the Debian packages that building, testing and the demo need, when they are missing.
set -euo pipefail

packages=(
  build-essential cmake ninja-build ccache pkg-config clang libclang-rt-14-dev
  libboost-dev libboost-system-dev libboost-filesystem-dev libboost-thread-dev libboost-chrono-dev libboost-date-time-dev libboost-program-options-dev
  liblog4cplus-dev zlib1g-dev libsystemd-dev qt6-base-dev
  libgtest-dev libgmock-dev libbenchmark-dev
  zip unzip faketime util-linux iproute2 procps dpkg-dev lintian
  xvfb xauth x11-apps x11-utils xdotool dbus dbus-x11 python3-dbus python3-gi trayer imagemagick fonts-dejavu-core
  weston qt6-wayland devscripts help2man
)

missing=()
for package in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$package")
  fi
done
[ ${#missing[@]} -eq 0 ] && exit 0

sudo=()
if [ "$(id -u)" -ne 0 ]; then
  command -v sudo >/dev/null || { echo "install-deps: need root or sudo to install: ${missing[*]}" >&2; exit 1; }
  sudo=(sudo)
fi
echo "install-deps: installing ${missing[*]}"
"${sudo[@]}" apt-get update -qq
DEBIAN_FRONTEND=noninteractive "${sudo[@]}" apt-get install -y -qq "${missing[@]}"
