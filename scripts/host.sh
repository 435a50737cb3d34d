#!/usr/bin/env bash
# Builds tvxcore and tvxhost (optimised) and runs tvxhost with the arguments given.
#   bash scripts/host.sh                 report of the library
#   bash scripts/host.sh help            the commands tvxhost knows
# Only what building and running tvxhost needs is installed; the tests and
# benchmarks are left out of this build (scripts/test.sh builds them).
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh build >&2
cmake --preset release -DTVXCORE_BUILD_TESTS=OFF -DTVXCORE_BUILD_BENCHMARKS=OFF >/dev/null
cmake --build --preset release --target tvxhost >&2
exec ./build/release/tools/tvxhost/tvxhost "$@"
