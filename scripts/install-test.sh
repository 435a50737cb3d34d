#!/usr/bin/env bash
# Installs the release build into a scratch prefix and checks it as a user
# would: a program that sets no C++ standard builds against it through
# find_package(tvxcore CONFIG), another through pkg-config, and the installed
# tvxhost runs from the prefix without LD_LIBRARY_PATH and finds its
# dictionaries. Expects scripts/test.sh to have built the release preset.
set -euo pipefail
cd "$(dirname "$0")/.."
root="$PWD"
work="$root/build/install-test"
prefix="$work/prefix"
rm -rf "$work"
mkdir -p "$work"
cmake --install build/release --prefix "$prefix" >/dev/null
libdir=$(dirname "$(find "$prefix" -name 'libtvxcore.so' -print -quit)")
unset LD_LIBRARY_PATH
fail() { echo "install test FAILED: $*" >&2; exit 1; }

echo "== find_package, no C++ standard set by the consumer"
cmake -S tests/install -B "$work/cmake" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" >"$work/cmake.log" &&
  cmake --build "$work/cmake" >>"$work/cmake.log" 2>&1 ||
  { cat "$work/cmake.log"; fail "the consumer does not build through find_package"; }
"$work/cmake/tvxcore_consumer"

echo "== pkg-config"
export PKG_CONFIG_PATH="$libdir/pkgconfig"
g++ -std=c++20 -o "$work/pkgconfig_consumer" tests/install/consumer.cpp \
    $(pkg-config --cflags --libs tvxcore) -Wl,-rpath,"$libdir"
"$work/pkgconfig_consumer"
# A newer standard of the consumer's is not lowered by the package's flags.
g++ -std=c++23 -fsyntax-only tests/install/consumer.cpp $(pkg-config --cflags tvxcore) ||
  fail "pkg-config flags break a C++23 consumer"

echo "== installed tvxhost"
host="$prefix/bin/tvxhost"
"$host" --version
[ "$("$host" text upper straße)" = STRASSE ] || fail "tvxhost text upper"
[ -f "$prefix/share/man/man1/tvxhost.1" ] || fail "no man page"
[ -f "$prefix/share/bash-completion/completions/tvxhost" ] || fail "no bash completion"
german=$("$host" --lang de fs copy "$work/none" "$work/none.copy" 2>&1 || true)
echo "$german"
case "$german" in
  *"Die Datei „$work/none“ wurde nicht gefunden."*) ;;
  *) fail "the installed tvxhost did not find its German dictionary" ;;
esac
echo "install test passed"
