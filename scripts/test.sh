#!/usr/bin/env bash
# The test command: installs what is missing, builds, and runs every test twice: once in the
# normal build (g++) and once under AddressSanitizer + UndefinedBehaviorSanitizer (clang),
# which also runs each fuzzer for a bounded time.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-deps.sh

export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:abort_on_error=1}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}
export LSAN_OPTIONS=${LSAN_OPTIONS:-suppressions=$PWD/tests/lsan.supp:print_suppressions=0}

status=0
for kind in release sanitize; do
  echo "== $kind build"
  scripts/build.sh "$kind"
  echo "== $kind tests"
  if ! ctest --test-dir "build/$kind" --output-on-failure -j 2 --timeout 900; then
    status=1
  fi
done
exit $status
