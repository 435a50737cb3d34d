#!/usr/bin/env bash
# Builds tvxcore with its tests and runs them all.
#   bash scripts/test.sh            optimised build (preset "release")
#   bash scripts/test.sh asan       the same suite under AddressSanitizer + UBSan
#   bash scripts/test.sh tsan       the same suite under ThreadSanitizer
set -euo pipefail
cd "$(dirname "$0")/.."
preset="${1:-release}"
bash scripts/deps.sh all
cmake --preset "$preset"
cmake --build --preset "$preset"
ctest --preset "$preset"
