#!/usr/bin/env bash
# run-fuzzer.sh FUZZER CORPUS SECONDS [MAX_LEN [GROW_SEED]]: fuzz a copy of the seed corpus for a
# bounded time, inputs up to MAX_LEN bytes; GROW_SEED, a seed of the corpus, is also tried grown
# to MAX_LEN bytes by repeating its last byte.
set -euo pipefail
fuzzer=$1 corpus=$2 seconds=$3 max_len=${4:-} grow=${5:-}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cp -r "$corpus"/. "$work"/
options=()
if [[ -n $max_len ]]; then
  options+=(-max_len="$max_len")
fi
if [[ -n $grow ]]; then
  python3 -c 'import sys; seed = open(sys.argv[1], "rb").read()
open(sys.argv[2], "wb").write(seed + seed[-1:] * (int(sys.argv[3]) - len(seed)))' \
    "$corpus/$grow" "$work/$grow-grown" "$max_len"
fi
# Not exec: the trap removes the copy once the fuzzer is done.
"$fuzzer" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 -print_final_stats=1 "${options[@]}" "$work"
