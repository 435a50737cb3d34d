#!/usr/bin/env bash
# Installs the release build into a scratch prefix and builds a small program
# against it twice: once through find_package(tvxcore CONFIG), once through
# pkg-config. Expects scripts/test.sh to have built the release preset.
set -euo pipefail
cd "$(dirname "$0")/.."
root="$PWD"
prefix="$root/build/install-test/prefix"
work="$root/build/install-test"
rm -rf "$work"
mkdir -p "$work"
cmake --install build/release --prefix "$prefix" >/dev/null

echo "== find_package"
cmake -S tests/install -B "$work/cmake" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$work/cmake" >/dev/null
LD_LIBRARY_PATH="$prefix/lib" "$work/cmake/tvxcore_consumer"

echo "== pkg-config"
export PKG_CONFIG_PATH="$prefix/lib/pkgconfig"
g++ -o "$work/pkgconfig_consumer" tests/install/consumer.cpp $(pkg-config --cflags --libs tvxcore)
LD_LIBRARY_PATH="$prefix/lib" "$work/pkgconfig_consumer"
echo "install test passed"
