#!/usr/bin/env bash
# Runs every bench_* program in a directory and prints, for each operation,
# our throughput, the peer's and the ratio ours / peer (1.0 or more: we are at
# least as fast). Both sides of an operation normally run in the same process
# with all repetitions shuffled together, so they share the machine's load; the
# table compares medians. It is printed as Markdown, ready for bench/RESULTS.md.
# Sides are paired by operation name across all programs, so an operation
# whose sides cannot share a process (bench_tracker) is split over two
# programs. Throughput is bytes per second, or items per second for programs
# that report no bytes.
#
#   run-bench.sh <bin-dir>
#
# Environment:
#   BENCH_REPETITIONS  repetitions per benchmark (default 5)
#   BENCH_MIN_TIME     minimum seconds per repetition (default 0.5)
#   BENCH_FILTER       regular expression selecting benchmarks (default all)
#   BENCH_OUT          directory for the JSON results (default <bin-dir>/../bench-results)
set -euo pipefail

bin_dir=${1:?usage: run-bench.sh <bin-dir>}
repetitions=${BENCH_REPETITIONS:-5}
min_time=${BENCH_MIN_TIME:-0.5}
filter=${BENCH_FILTER:-.}
out_dir=${BENCH_OUT:-$bin_dir/../bench-results}

shopt -s nullglob
programs=()
for p in "$bin_dir"/bench_*; do
  [ -f "$p" ] && [ -x "$p" ] && programs+=("$p")
done
if [ ${#programs[@]} -eq 0 ]; then
  echo "run-bench: no bench_* programs in $bin_dir" >&2
  exit 1
fi

mkdir -p "$out_dir"
results=()
for p in "${programs[@]}"; do
  name=$(basename "$p")
  json="$out_dir/$name.json"
  echo "run-bench: $name ($repetitions repetitions, interleaved)" >&2
  # Progress (medians and spreads only) goes to stderr; stdout keeps the table.
  "$p" --benchmark_repetitions="$repetitions" --benchmark_min_time="$min_time" \
    --benchmark_enable_random_interleaving=true --benchmark_filter="$filter" \
    --benchmark_display_aggregates_only=true \
    --benchmark_out="$json" --benchmark_out_format=json >&2
  results+=("$json")
done

python3 - "${results[@]}" <<'PY'
"""Pairs '<operation>/ours' with '<operation>/<peer>' and prints the ratios."""
import json
import re
import sys

RUN_OPTION = re.compile(r"(real|process|manual)_time|threads:\d+|(iterations|repeats):\d+"
                        r"|min_(warmup_)?time:.*")


def rate(bytes_per_second, unit_name="B"):
    if unit_name != "B":
        for unit, scale in (("G", 1e9), ("M", 1e6), ("k", 1e3)):
            if bytes_per_second >= scale:
                return f"{bytes_per_second / scale:.2f} {unit}{unit_name}/s"
        return f"{bytes_per_second:.0f} {unit_name}/s"
    for unit, scale in (("GiB/s", 2**30), ("MiB/s", 2**20), ("KiB/s", 2**10)):
        if bytes_per_second >= scale:
            return f"{bytes_per_second / scale:.2f} {unit}"
    return f"{bytes_per_second:.0f} B/s"


rows, peers, failed, build_types = [], {}, [], set()
# operation -> side -> {"median": per second, "cv": relative spread, "unit": ...}
ops = {}
for file_index, path in enumerate(sys.argv[1:]):
    with open(path) as f:
        text = f.read()
    if not text.strip():
        continue  # the filter selected nothing in this program
    doc = json.loads(text)
    context = doc.get("context", {})
    for key, value in context.items():
        if key.startswith("peer:"):
            peers[key[len("peer:"):]] = value
    if "orlix_build_type" in context:
        build_types.add(context["orlix_build_type"])

    for b in doc.get("benchmarks", []):
        name = b.get("run_name", b["name"])
        # Drop the suffixes Google Benchmark appends for run options
        # ("/real_time", "/threads:2", ...) so that the side is last.
        parts = name.split("/")
        while len(parts) > 2 and RUN_OPTION.fullmatch(parts[-1]):
            parts.pop()
        operation, side = "/".join(parts[:-1]), parts[-1]
        if b.get("error_occurred"):
            failed.append(f"{name}: {b.get('error_message', 'error')}")
            continue
        if b.get("run_type") != "aggregate":
            continue
        entry = ops.setdefault(operation, {}).setdefault(side, {})
        entry["order"] = (file_index, b.get("family_index", 0))
        key, entry["unit"] = ("bytes_per_second", "B")
        if key not in b and "items_per_second" in b:
            key, entry["unit"] = ("items_per_second", "op")
        if b.get("aggregate_name") == "median":
            entry["median"] = b.get(key)
        elif b.get("aggregate_name") == "cv":
            entry["cv"] = b.get(key)

# Program, then registration order (the shuffled run order says nothing).
for operation, sides in sorted(ops.items(),
                               key=lambda kv: min(s["order"] for s in kv[1].values())):
    ours = sides.get("ours", {})
    # One row per peer, in the order the program registered them.
    others = sorted(((s, v) for s, v in sides.items() if s != "ours"),
                    key=lambda side: side[1]["order"])
    for peer, theirs in others:
        if not ours.get("median") or not theirs.get("median"):
            continue
        if ours.get("unit") != theirs.get("unit"):
            failed.append(f"{operation}: sides report different units")
            continue
        spread = max(ours.get("cv") or 0.0, theirs.get("cv") or 0.0)
        rows.append((operation, ours["median"], peer, theirs["median"], spread, ours["unit"]))

if not rows:
    print("run-bench: no paired results (were the benchmarks filtered out?)", file=sys.stderr)
    sys.exit(1)

print("| operation | ours | peer | peer throughput | ours/peer | >= 1.0 | spread |")
print("|---|---:|---|---:|---:|:---:|---:|")
met = 0
for operation, ours, peer, theirs, spread, unit in rows:
    ratio = ours / theirs
    met += ratio >= 1.0
    print(f"| {operation} | {rate(ours, unit)} | {peer} | {rate(theirs, unit)} | {ratio:.2f} "
          f"| {'yes' if ratio >= 1.0 else 'no'} | {100 * spread:.1f}% |")
print()
print(f"{met} of {len(rows)} operations at ratio >= 1.0. Throughputs are medians; "
      "spread is the larger coefficient of variation of the two sides.")
if peers:
    print("Peers: " + "; ".join(f"{k} {v}" for k, v in sorted(peers.items())))
if build_types and build_types != {"Release"}:
    print(f"Warning: built as {', '.join(sorted(build_types))}, not Release.")
for line in failed:
    print(f"FAILED {line}")
sys.exit(1 if failed else 0)
PY
