#!/usr/bin/env bash
# Times the diagnostics report under a bounded loopback load, side by side with the system tools:
#   connection listing  vs  ss -4tnp > file              (goal: at most 0.6 times)
#   process listing     vs  ps -eo pid,comm,user > file  (goal: at most 0.5 times)
#   whole report        vs  zip -q -r of the log folder  (goal: at most 1.2 times)
# The load: HOLDERS processes holding CONNECTIONS loopback connections each (both ends, all on
# 127.0.0.1) and IDLE sleeping processes. Everything it starts is stopped on exit.
#
# Usage: scripts/bench-report.sh [BUILD_DIR]   (default build/release; targets hv-report-bench
#        and hv-loopback-load must be built). Environment: HOLDERS (200), CONNECTIONS (100),
#        IDLE (3000), LOG_MB (200), RUNS (7).
set -euo pipefail
cd "$(dirname "$0")/.."

build=${1:-build/release}
holders=${HOLDERS:-200}
connections=${CONNECTIONS:-100}
idle=${IDLE:-3000}
log_mb=${LOG_MB:-200}
runs=${RUNS:-7}

bench=$PWD/$build/libs/issue-collector/benchmarks/hv-report-bench
load=$PWD/$build/libs/issue-collector/benchmarks/hv-loopback-load
for tool in "$bench" "$load"; do
  [[ -x $tool ]] || { echo "missing $tool: build hv-report-bench and hv-loopback-load in $build" >&2; exit 1; }
done
for tool in ss ps zip; do
  command -v "$tool" >/dev/null || { echo "missing $tool" >&2; exit 1; }
done

# Each holder keeps 2 x CONNECTIONS + 1 descriptors; the load adds HOLDERS + IDLE processes.
need_files=$((2 * connections + 16))
if [[ $(ulimit -n) != unlimited && $(ulimit -n) -lt $need_files ]]; then
  ulimit -n "$need_files" 2>/dev/null || { echo "ulimit -n is $(ulimit -n), need $need_files" >&2; exit 1; }
fi
running=$(ls -d /proc/[0-9]* | wc -l)
need_processes=$((running + holders + idle + 100))
if [[ $(ulimit -u) != unlimited && $(ulimit -u) -lt $need_processes && $(id -u) -ne 0 ]]; then
  echo "ulimit -u is $(ulimit -u), need $need_processes" >&2
  exit 1
fi
pid_max=$(cat /proc/sys/kernel/pid_max)
if ((need_processes > pid_max - 1000)); then
  echo "kernel.pid_max $pid_max is too small for $need_processes processes" >&2
  exit 1
fi

work=$(mktemp -d /tmp/hv-bench-report.XXXXXX)
load_pid=
cleanup() {
  if [[ -n $load_pid ]]; then
    kill -TERM "$load_pid" 2>/dev/null || true
    wait "$load_pid" 2>/dev/null || true
  fi
  rm -rf "$work"
}
trap cleanup EXIT
trap 'exit 130' INT TERM

echo "load: $holders processes x $connections loopback connections, $idle idle processes"
"$load" "$holders" "$connections" "$idle" >"$work/load.out" &
load_pid=$!
for ((i = 0; i < 600; ++i)); do
  grep -q ready "$work/load.out" 2>/dev/null && break
  kill -0 "$load_pid" 2>/dev/null || { echo "the load generator failed" >&2; load_pid=; exit 1; }
  sleep 0.2
done
grep -q ready "$work/load.out" || { echo "the load did not come up in time" >&2; exit 1; }
echo "      $(ss -4tnH state established | wc -l) established IPv4 connection ends, $(ls -d /proc/[0-9]* | wc -l) processes"

echo "logs: writing $log_mb MB"
mkdir -p "$work/home/Downloads" "$work/config" "$work/tmp" "$work/out"
"$bench" make-logs "$work/logs" "$log_mb"

report_env=(env HOME="$work/home" XDG_CONFIG_HOME="$work/config" HV_SOFTPHONE_LOG_DIR="$work/logs"
            TMPDIR="$work/tmp")

# "<wall ms> <cpu ms>" of one run; CPU is user + system time of the command and its children,
# which other work on the machine disturbs less than wall time.
measure() {
  local times
  times=$( { TIMEFORMAT='%3R %3U %3S'; time eval "$1" >/dev/null 2>&1; } 2>&1 )
  awk '{ printf "%d %d\n", $1 * 1000, ($2 + $3) * 1000 }' <<<"$times"
}

median() {
  sort -n | awk '{ v[NR] = $1 } END { print (NR % 2) ? v[(NR + 1) / 2] : int((v[NR / 2] + v[NR / 2 + 1]) / 2) }'
}

# compare NAME GOAL OURS THEIRS [AFTER]: runs both once to warm up, then RUNS times in turn.
compare() {
  local name=$1 goal=$2 ours=$3 theirs=$4 after=${5:-:}
  local ours_times=() theirs_times=()
  eval "$ours"; eval "$after"
  eval "$theirs"; eval "$after"
  for ((run = 0; run < runs; ++run)); do
    ours_times+=("$(measure "$ours")"); eval "$after"
    theirs_times+=("$(measure "$theirs")"); eval "$after"
  done
  local a b ac bc
  a=$(printf '%s\n' "${ours_times[@]}" | cut -d' ' -f1 | median)
  b=$(printf '%s\n' "${theirs_times[@]}" | cut -d' ' -f1 | median)
  ac=$(printf '%s\n' "${ours_times[@]}" | cut -d' ' -f2 | median)
  bc=$(printf '%s\n' "${theirs_times[@]}" | cut -d' ' -f2 | median)
  awk -v name="$name" -v a="$a" -v b="$b" -v ac="$ac" -v bc="$bc" -v goal="$goal" 'BEGIN {
    ratio = b > 0 ? a / b : 0
    cpu = bc > 0 ? ac / bc : 0
    printf "%-19s wall %6d vs %6d ms  ratio %.2f   cpu %6d vs %6d ms  ratio %.2f   goal <= %.1f: %s\n",
           name, a, b, ratio, ac, bc, cpu, goal, ratio <= goal ? "met" : "MISSED" }'
}

echo
echo "medians of $runs runs, ours vs reference"
compare "connection listing" 0.6 \
  "'$bench' network '$work/out/nestat'" \
  "ss -4tnp > '$work/out/ss.txt'"
echo "   lines: ours $(wc -l <"$work/out/nestat"), ss $(($(wc -l <"$work/out/ss.txt") - 1))"
compare "process listing" 0.5 \
  "'$bench' tasklist '$work/out/tasklist'" \
  "ps -eo pid,comm,user > '$work/out/ps.txt'"
echo "   lines: ours $(wc -l <"$work/out/tasklist"), ps $(($(wc -l <"$work/out/ps.txt") - 1))"
compare "whole report" 1.2 \
  "${report_env[*]} '$bench' report > /dev/null" \
  "(cd '$work' && zip -q -r '$work/out/logs.zip' logs)" \
  "rm -f '$work'/home/Downloads/*.zip '$work/out/logs.zip'; rm -rf '$work'/tmp/*"
