#!/usr/bin/env bash
# Installs the Debian 12 packages that tvxcore needs, but only those that are
# missing. Run as root.
#   bash scripts/deps.sh build    building the library and running tvxhost
#   bash scripts/deps.sh [all]    also testing, benchmarking, fuzzing and formatting
set -euo pipefail

build=(
  build-essential cmake ninja-build pkg-config git
  libboost-dev libboost-thread-dev libboost-date-time-dev
  libexpat1-dev libicu-dev libdw-dev
  libedit-dev
)
test_and_bench=(
  clang libclang-rt-14-dev clang-format
  libgtest-dev libgmock-dev libbenchmark-dev
  unicode-data python3
  libmimalloc-dev libjemalloc-dev libplist-dev libpugixml-dev libspdlog-dev
  zlib1g-dev libisal-dev
  nlohmann-json3-dev rapidjson-dev libsimdjson-dev libtbb-dev
)

case "${1:-all}" in
  build) packages=("${build[@]}") ;;
  all) packages=("${build[@]}" "${test_and_bench[@]}") ;;
  *) echo "usage: bash scripts/deps.sh [build|all]" >&2; exit 2 ;;
esac

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$p")
  fi
done

if ((${#missing[@]})); then
  echo "tvxcore: installing ${missing[*]}"
  if [ "$(id -u)" -ne 0 ]; then
    echo "tvxcore: these packages are missing; run as root or install them: ${missing[*]}" >&2
    exit 1
  fi
  export DEBIAN_FRONTEND=noninteractive
  apt-get update -qq
  apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi
