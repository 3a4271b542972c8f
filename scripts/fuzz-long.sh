#!/usr/bin/env bash
# A long fuzzing campaign: every target (or the ones named) runs for SECONDS
# of CPU time (measured, not wall-clock) on long inputs, with slow inputs
# reported and any input slower than TIMEOUT seconds counted as a finding. What the campaign discovered is
# then minimised back into fuzz/corpus/<target>/ (libFuzzer's -merge keeps
# only inputs that add coverage), so the seeds CI starts from grow with it.
# Prints one line per target: executions, slowest input, corpus growth,
# findings.
#
#   fuzz-long.sh <bin-dir> [seconds per target] [target...]
#
# Environment: FUZZ_JOBS (targets run at once, default 1), FUZZ_MAX_LEN
# (default 65536), FUZZ_TIMEOUT (default 10). Findings are kept in
# <bin-dir>/../fuzz-artifacts/.
set -uo pipefail

bin_dir=${1:?usage: $0 <bin-dir> [seconds] [target...]}
seconds=${2:-1800}
shift $(($# >= 2 ? 2 : 1))
root=$(cd "$(dirname "$0")/.." && pwd)
artifacts=$(cd "$bin_dir/.." && pwd)/fuzz-artifacts
jobs=${FUZZ_JOBS:-1}
max_len=${FUZZ_MAX_LEN:-65536}
timeout=${FUZZ_TIMEOUT:-10}

targets=("$@")
if [ ${#targets[@]} -eq 0 ]; then
  for t in "$bin_dir"/fuzz_*; do [ -x "$t" ] && targets+=("$(basename "$t")"); done
fi
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir -p "$artifacts"

campaign() {
  local name=$1 dir="$work/$1"
  mkdir -p "$dir/corpus" "$dir/artifacts" "$root/fuzz/corpus/$name"
  cp "$root/fuzz/corpus/$name"/* "$dir/corpus"/ 2>/dev/null
  local before
  before=$(find "$root/fuzz/corpus/$name" -type f | wc -l)
  # libFuzzer's budget is wall-clock time; on a shared machine a target can
  # get far less CPU than that, so runs repeat (resuming from the grown
  # corpus) until the CPU time actually spent reaches the budget.
  local status=0 cpu=0 runs=0 left spent n
  : >"$dir/log"
  while [ "$cpu" -lt "$seconds" ] && [ "$status" -eq 0 ]; do
    left=$((seconds - cpu))
    spent=$( { TIMEFORMAT='%U %S'; time "$bin_dir/$name" -max_total_time="$left" \
      -max_len="$max_len" -timeout="$timeout" -report_slow_units=1 -print_final_stats=1 \
      -artifact_prefix="$dir/artifacts/" "$dir/corpus" >>"$dir/log" 2>&1; \
      echo "status $?" >"$dir/status"; } 2>&1 )
    status=$(sed -n 's/^status //p' "$dir/status")
    cpu=$((cpu + $(echo "$spent" | awk '{printf "%d", $1 + $2 + 0.5}') + 0))
    n=$(sed -n 's/^stat::number_of_executed_units: *//p' "$dir/log" | tail -n 1)
    runs=$((runs + ${n:-0}))
    sed -i 's/^stat::number_of_executed_units:/stat::counted_units:/' "$dir/log"
  done
  # Minimise what was found into the committed seeds. The hand-named seeds
  # stay as readable examples; the hash-named ones are replaced by the merge.
  mkdir -p "$dir/merged"
  "$bin_dir/$name" -merge=1 -max_len="$max_len" -timeout="$timeout" "$dir/merged" \
    "$root/fuzz/corpus/$name" "$dir/corpus" >"$dir/merge.log" 2>&1 &&
    find "$root/fuzz/corpus/$name" -type f -regextype posix-extended \
      -regex '.*/[0-9a-f]{40}' -delete &&
    cp "$dir/merged"/* "$root/fuzz/corpus/$name"/
  local slowest findings slow after
  slowest=$(sed -n 's/^stat::slowest_unit_time_sec: *//p' "$dir/log" | sort -g | tail -n 1)
  # Crashes, leaks, time-outs and memory blow-ups are findings; inputs that
  # were merely slow once (on a busy machine, often) are counted apart.
  findings=$(find "$dir/artifacts" -type f ! -name 'slow-unit-*' | wc -l)
  slow=$(find "$dir/artifacts" -type f -name 'slow-unit-*' | wc -l)
  after=$(find "$root/fuzz/corpus/$name" -type f | wc -l)
  cp "$dir/artifacts"/* "$artifacts"/ 2>/dev/null
  printf '%-22s exit %-3d %6d CPU-s %12d runs  slowest %5ss (%d over 1 s)  seeds %d -> %d  findings %d\n' \
    "$name" "$status" "$cpu" "$runs" "${slowest:-?}" "$slow" "$before" "$after" "$findings"
  grep -E 'ERROR|property violated|SUMMARY|Slow unit' "$dir/log" | head -n 5 | sed 's/^/    /'
}

running=0
for name in "${targets[@]}"; do
  campaign "$name" &
  running=$((running + 1))
  if [ "$running" -ge "$jobs" ]; then
    wait -n
    running=$((running - 1))
  fi
done
wait
