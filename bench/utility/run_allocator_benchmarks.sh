#!/usr/bin/env bash
# Runs the allocator benchmark three times: against glibc's malloc, then with
# mimalloc and jemalloc preloaded, 3 repetitions each (REPETITIONS=n to
# change), and prints the medians with the load average taken just before
# each run (the machine's other work shows in the two-thread cases first).
# Each run has SmallBlockAllocator with its per-thread caches (Small) and
# without them (SmallUncached).
#   bash bench/utility/run_allocator_benchmarks.sh [path/to/allocator_benchmark] [extra args]
set -euo pipefail
cd "$(dirname "$0")/../.."
binary="${1:-build/release/bench/allocator_benchmark}"
shift || true
if [[ ! -x "$binary" ]]; then
  echo "no benchmark binary at $binary (build the release preset first)" >&2
  exit 1
fi
libdir=/usr/lib/x86_64-linux-gnu
declare -A preload=(
  [glibc]=""
  [mimalloc]="$libdir/libmimalloc.so.2"
  [jemalloc]="$libdir/libjemalloc.so.2"
)
for heap in glibc mimalloc jemalloc; do
  lib="${preload[$heap]}"
  if [[ -n "$lib" && ! -e "$lib" ]]; then
    echo "== $heap: $lib not installed, skipped"
    continue
  fi
  echo "== malloc = $heap (Small = SmallBlockAllocator, Malloc = $heap)"
  echo "   load average before the run: $(cut -d' ' -f1-3 /proc/loadavg)"
  LD_PRELOAD="$lib" "$binary" --benchmark_repetitions="${REPETITIONS:-3}" \
    --benchmark_report_aggregates_only=true \
    "$@" 2>/dev/null | grep -E '_median|^Benchmark|^-+$'
done
