#!/usr/bin/env bash
# Builds the libFuzzer targets with clang and runs each for a bounded time.
#   bash scripts/fuzz.sh [seconds-per-target]     (default 30)
set -euo pipefail
cd "$(dirname "$0")/.."
secs="${1:-30}"
bash scripts/deps.sh all
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz
shopt -s nullglob
found=0
for f in build/fuzz/fuzz/*_fuzzer; do
  name=$(basename "$f")
  found=1
  corpus="build/fuzz/corpus/$name"
  mkdir -p "$corpus"
  seeds=()
  [ -d "fuzz/seeds/$name" ] && seeds=("fuzz/seeds/$name")
  echo "== $name (${secs}s)"
  "$f" -max_total_time="$secs" -rss_limit_mb=2048 -timeout=10 -print_final_stats=1 \
       "$corpus" "${seeds[@]}" 2>&1 | tail -n 6
done
[ "$found" = 1 ] || echo "no fuzz targets yet"
