#!/usr/bin/env bash
# Times the diagnostics report under a bounded loopback load, side by side with the system tools:
#   connection listing  vs  ss -tuanp > file, and vs a bare C scan that reads the four socket
#                       tables and every /proc/<pid>/fd link, then writes every table row to a
#                       file with one write each (goal: at most 1.2 times the bare scan)
#   process listing     vs  ps -eo pid,comm,user > file  (goal: at most 0.5 times)
#   whole report        vs  the sum of its floors: zip -q -r -n .gz:.zip of the log folder, the bare
#                       scan writing its records to a file, and cp -r of the log folder
#                       (goal: at most 1.1 times), with LOG_MB of text logs and with a folder of
#                       realistic shape: one day's text log (DAY_MB) and three days of .gz parts
# The goal of a row is against its last column. The bare scan is compiled here from FLOOR_SOURCE
# (default ../shared/tools/fdscan_floor.c beside the repository); without it that column is left
# out with a note, and the listing is compared with ss only.
# The load: HOLDERS processes holding CONNECTIONS loopback connections each (both ends, all on
# 127.0.0.1) and IDLE sleeping processes. Everything it starts is stopped on exit.
#
# Usage: scripts/bench-report.sh [BUILD_DIR]   (default build/release; targets hv-report-bench
#        and hv-loopback-load must be built). Environment: HOLDERS (200), CONNECTIONS (100),
#        IDLE (3000), LOG_MB (200), DAY_MB (40), RUNS (7), FLOOR_SOURCE, CC (cc).
set -euo pipefail
cd "$(dirname "$0")/.."

build=${1:-build/release}
holders=${HOLDERS:-200}
connections=${CONNECTIONS:-100}
idle=${IDLE:-3000}
log_mb=${LOG_MB:-200}
day_mb=${DAY_MB:-40}
runs=${RUNS:-7}
floor_source=${FLOOR_SOURCE:-$PWD/../shared/tools/fdscan_floor.c}

bench=$PWD/$build/libs/issue-collector/benchmarks/hv-report-bench
load=$PWD/$build/libs/issue-collector/benchmarks/hv-loopback-load
for tool in "$bench" "$load"; do
  [[ -x $tool ]] || { echo "missing $tool: build hv-report-bench and hv-loopback-load in $build" >&2; exit 1; }
done
for tool in ss ps zip gzip; do
  command -v "$tool" >/dev/null || { echo "missing $tool" >&2; exit 1; }
done

# Each holder keeps 2 x CONNECTIONS + 1 descriptors; the load adds HOLDERS + IDLE processes.
need_files=$((2 * connections + 16))
if [[ $(ulimit -n) != unlimited && $(ulimit -n) -lt $need_files ]]; then
  ulimit -n "$need_files" 2>/dev/null || { echo "ulimit -n is $(ulimit -n), need $need_files" >&2; exit 1; }
fi
# Counted from the glob alone: ls would fail on a process that ends in between.
processes() { local entries=(/proc/[0-9]*); echo "${#entries[@]}"; }
running=$(processes)
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

floor=
if [[ -r $floor_source ]] && ${CC:-cc} -O2 -o "$work/fdscan-floor" "$floor_source"; then
  floor=$work/fdscan-floor
else
  echo "note: no bare scan column (cannot read or compile $floor_source)"
fi

echo "load: $holders processes x $connections loopback connections, $idle idle processes"
"$load" "$holders" "$connections" "$idle" >"$work/load.out" &
load_pid=$!
for ((i = 0; i < 600; ++i)); do
  grep -q ready "$work/load.out" 2>/dev/null && break
  kill -0 "$load_pid" 2>/dev/null || { echo "the load generator failed" >&2; load_pid=; exit 1; }
  sleep 0.2
done
grep -q ready "$work/load.out" || { echo "the load did not come up in time" >&2; exit 1; }
echo "      $(ss -tuanH | wc -l) TCP and UDP sockets, $(processes) processes"

echo "logs: writing $log_mb MB"
mkdir -p "$work/home/Downloads" "$work/config" "$work/tmp" "$work/out"
"$bench" make-logs "$work/logs" "$log_mb"
# A day as the product keeps it: today's active log as text, the three days before packed by the
# appender (gzip's default level, as zlib's).
echo "logs of realistic shape: one day of $day_mb MB as text, three days as .gz"
"$bench" make-logs "$work/day" "$day_mb"
mkdir -p "$work/logs-day"
cat "$work"/day/* >"$work/logs-day/HalvoSoftphone-2026-11-24_000000_UTC-130.264.0-4242"
for day in 21 22 23; do
  gzip -6 -c "$work/logs-day/HalvoSoftphone-2026-11-24_000000_UTC-130.264.0-4242" \
    >"$work/logs-day/HalvoSoftphone-2026-11-${day}_000000_UTC-130.264.0-$((4200 + day)).gz"
done
rm -rf "$work/day"

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

# compare NAME GOAL AFTER OURS [LABEL REFERENCE]...: runs every command once to warm up, then
# RUNS times in turn (AFTER after each); prints ours against each reference, the goal (if any)
# against the last one.
compare() {
  local name=$1 goal=$2 after=$3 i run
  local -a commands=("$4") labels=(ours) times wall cpu
  shift 4
  while (($# >= 2)); do
    labels+=("$1"); commands+=("$2")
    shift 2
  done
  for i in "${!commands[@]}"; do
    eval "${commands[i]}"; eval "$after"
    times[i]=
  done
  for ((run = 0; run < runs; ++run)); do
    for i in "${!commands[@]}"; do
      times[i]+="$(measure "${commands[i]}")"$'\n'
      eval "$after"
    done
  done
  for i in "${!commands[@]}"; do
    wall[i]=$(printf '%s' "${times[i]}" | cut -d' ' -f1 | median)
    cpu[i]=$(printf '%s' "${times[i]}" | cut -d' ' -f2 | median)
  done
  local last=$((${#commands[@]} - 1))
  for ((i = 1; i <= last; ++i)); do
    awk -v name="$( ((i == 1)) && echo "$name")" -v ref="${labels[i]}" -v a="${wall[0]}" -v b="${wall[i]}" \
        -v ac="${cpu[0]}" -v bc="${cpu[i]}" -v goal="$( ((i == last)) && echo "$goal")" 'BEGIN {
      ratio = b > 0 ? a / b : 0
      cpu = bc > 0 ? ac / bc : 0
      verdict = goal == "" ? "" : sprintf("   goal <= %.2f: %s", goal, ratio <= goal ? "met" : "MISSED")
      printf "%-19s vs %-5s  wall %6d vs %6d ms  ratio %.2f   cpu %6d vs %6d ms  ratio %.2f%s\n",
             name, ref, a, b, ratio, ac, bc, cpu, verdict }'
  done
}

echo
echo "medians of $runs runs, ours vs reference; load average before: $(cut -d' ' -f1-3 /proc/loadavg)"
if [[ -n $floor ]]; then
  compare "connection listing" 1.2 : \
    "'$bench' network '$work/out/nestat'" \
    ss "ss -tuanp > '$work/out/ss.txt'" \
    floor "'$floor' '$work/out/floor-rows' > '$work/out/floor.txt'"
  echo "   lines: ours $(wc -l <"$work/out/nestat"), ss $(($(wc -l <"$work/out/ss.txt") - 1)); floor: $(cat "$work/out/floor.txt")"
else
  compare "connection listing" "" : \
    "'$bench' network '$work/out/nestat'" \
    ss "ss -tuanp > '$work/out/ss.txt'"
  echo "   lines: ours $(wc -l <"$work/out/nestat"), ss $(($(wc -l <"$work/out/ss.txt") - 1))"
fi
compare "process listing" 0.5 : \
  "'$bench' tasklist '$work/out/tasklist'" \
  ps "ps -eo pid,comm,user > '$work/out/ps.txt'"
echo "   lines: ours $(wc -l <"$work/out/tasklist"), ps $(($(wc -l <"$work/out/ps.txt") - 1))"
# The floors of the whole report, one after the other: what zip, the bare listing and a copy of
# the logs take on their own. Without the bare scan the listing's floor is left out.
floors() {
  local logs=$1
  echo "(cd '$work' && zip -q -r -n .gz:.zip '$work/out/logs.zip' '$logs') && cp -r '$work/$logs' '$work/out/copy'" \
       "${floor:+&& '$floor' '$work/out/floor-nestat.txt' >/dev/null}"
}
[[ -n $floor ]] || echo "note: the whole report's floors leave out the listing (no bare scan)"
# The smaller folder first: the big one's runs leave hundreds of MB to be written back to disk.
for logs in logs-day logs; do
  compare "whole report $logs" 1.1 \
    "rm -rf '$work'/home/Downloads/* '$work'/home/Downloads/.[!.]* '$work/out/logs.zip' '$work/out/copy' '$work'/tmp/*" \
    "${report_env[*]} HV_SOFTPHONE_LOG_DIR='$work/$logs' '$bench' report > /dev/null" \
    floors "$(floors "$logs")"
done
echo "   logs: $(du -sm "$work/logs" | cut -f1) MB text; realistic $(du -sm "$work/logs-day" | cut -f1) MB" \
     "($(ls "$work/logs-day" | wc -l) files)"
echo "load average after: $(cut -d' ' -f1-3 /proc/loadavg)"
