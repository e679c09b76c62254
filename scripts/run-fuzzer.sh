#!/usr/bin/env bash
# run-fuzzer.sh FUZZER CORPUS SECONDS: fuzz a copy of the seed corpus for a bounded time.
set -euo pipefail
fuzzer=$1 corpus=$2 seconds=$3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cp -r "$corpus"/. "$work"/
exec "$fuzzer" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 -print_final_stats=1 "$work"
