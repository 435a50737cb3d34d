#!/usr/bin/env bash
# Builds tvxcore and tvxhost (optimised) and runs tvxhost with the arguments given.
#   bash scripts/host.sh                 report of the library
#   bash scripts/host.sh help            the commands tvxhost knows
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh >&2
cmake --preset release >/dev/null
cmake --build --preset release --target tvxhost >&2
exec ./build/release/tools/tvxhost/tvxhost "$@"
