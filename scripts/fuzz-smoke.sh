#!/usr/bin/env bash
# Runs every fuzz target for a short while, starting from a scratch copy of
# its seed corpus (fuzz/corpus/<target>/), and fails when any target finds a
# crash, a leak or a violated property.
#   fuzz-smoke.sh <directory with the fuzz_* binaries> [seconds per target]
# Inputs that made a target fail are kept in <that directory>/../fuzz-artifacts/.
set -uo pipefail

bin_dir=${1:?usage: $0 <bin-dir> [seconds]}
seconds=${2:-20}
root=$(cd "$(dirname "$0")/.." && pwd)
artifacts=$(cd "$bin_dir/.." && pwd)/fuzz-artifacts

shopt -s nullglob
targets=("$bin_dir"/fuzz_*)
if [ ${#targets[@]} -eq 0 ]; then
  echo "fuzz-smoke: no fuzz_* targets in $bin_dir" >&2
  exit 1
fi

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

failed=0
for target in "${targets[@]}"; do
  [ -x "$target" ] || continue
  name=$(basename "$target")
  corpus="$work/$name/corpus"
  mkdir -p "$corpus" "$work/$name/artifacts"
  seeds=0
  if [ -d "$root/fuzz/corpus/$name" ]; then
    cp "$root/fuzz/corpus/$name"/* "$corpus"/ 2>/dev/null
    seeds=$(find "$corpus" -type f | wc -l)
  fi
  log="$work/$name/log"
  "$target" -max_total_time="$seconds" -timeout=30 -print_final_stats=1 \
    -artifact_prefix="$work/$name/artifacts/" "$corpus" >"$log" 2>&1
  status=$?
  runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -n 1)
  rate=$(sed -n 's/^stat::average_exec_per_sec: *//p' "$log" | tail -n 1)
  grown=$(find "$corpus" -type f | wc -l)
  if [ $status -eq 0 ]; then
    printf '%-20s ok    %10s runs  %7s exec/s  corpus %d -> %d\n' \
      "$name" "${runs:-?}" "${rate:-?}" "$seeds" "$grown"
  else
    failed=1
    printf '%-20s FAIL  exit %d after %s runs\n' "$name" "$status" "${runs:-?}"
    grep -E 'ERROR|property violated|SUMMARY' "$log" | head -n 5 | sed 's/^/    /'
    if compgen -G "$work/$name/artifacts/*" >/dev/null; then
      mkdir -p "$artifacts"
      cp "$work/$name/artifacts"/* "$artifacts"/
      echo "    failing input kept in $artifacts"
    fi
  fi
done
exit $failed
