#!/usr/bin/env bash
# build.sh [release|sanitize] [TARGET...]: configures one tree under build/ and builds it, or
# only the targets named.
set -euo pipefail
cd "$(dirname "$0")/.."
kind=${1:-release}
shift $(($# > 0 ? 1 : 0))
targets=()
for target in "$@"; do
  targets+=(--target "$target")
done
jobs=$(nproc)
case "$kind" in
  release)
    cmake -S . -B build/release -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
      -DCMAKE_C_COMPILER=gcc -DCMAKE_CXX_COMPILER=g++ >/dev/null ;;
  sanitize)
    # clang: AddressSanitizer + UndefinedBehaviorSanitizer for the whole suite, and the fuzzers.
    cmake -S . -B build/sanitize -G Ninja -DCMAKE_BUILD_TYPE=Debug \
      -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
      -DHV_SANITIZE=ON -DHV_FUZZ=ON -DHV_BENCHMARKS=OFF >/dev/null ;;
  *) echo "build.sh: unknown build kind '$kind'" >&2; exit 2 ;;
esac
cmake --build "build/$kind" -j "$jobs" "${targets[@]}"
