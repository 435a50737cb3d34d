#!/bin/bash
# Which lines of the library the tests run, for checking that a change to the
# tests loses no coverage.
#
#   bash scripts/coverage.sh [test binary...]
#
# Builds build/coverage (gcc --coverage, -O0), runs the named test binaries
# (tvxcore_utility_tests ...) or, with none named, the whole suite through
# ctest, and writes each line of src/ and include/ that ran as "file:line" to
# build/coverage/covered.txt (sorted, so two runs compare with diff or comm).
set -euo pipefail
tree=$(cd "$(dirname "$0")/.." && pwd)
b=$tree/build/coverage
export CMAKE_CXX_COMPILER_LAUNCHER=ccache CMAKE_C_COMPILER_LAUNCHER=ccache
if [ ! -f "$b/build.ninja" ]; then
  cmake -S "$tree" -B "$b" -G Ninja -DCMAKE_BUILD_TYPE=Debug \
    -DCMAKE_CXX_FLAGS="--coverage -O0 -g0" -DCMAKE_C_FLAGS="--coverage -O0 -g0" \
    -DCMAKE_EXE_LINKER_FLAGS=--coverage -DCMAKE_SHARED_LINKER_FLAGS=--coverage \
    -DTVXCORE_BUILD_BENCHMARKS=OFF -DTVXCORE_BUILD_TOOLS=ON >/dev/null
fi
targets=("$@")
if [ ${#targets[@]} -eq 0 ]; then
  nice -n 19 cmake --build "$b" >/dev/null
else
  nice -n 19 cmake --build "$b" --target "${targets[@]}" >/dev/null
fi
find "$b" -name '*.gcda' -delete
if [ ${#targets[@]} -eq 0 ]; then
  (cd "$b" && TVX_USE_STDOUT=1 nice -n 19 ctest -j2 --timeout 600 -Q) || echo "some tests failed" >&2
else
  for t in "${targets[@]}"; do
    (cd "$tree/tests" && TVX_USE_STDOUT=1 TVX_TEST_DATA="$tree/tests/data" \
       "$b/tests/$t" --gtest_brief=1 >/dev/null 2>&1) || echo "FAILED: $t" >&2
  done
fi
# Lines of src/ executed at least once, from every object of the library.
cd "$b"
find . -path '*tvxcore_objects.dir/*' -name '*.gcda' -print0 |
  xargs -0 -n 20 gcov -j -t 2>/dev/null |
  python3 -c '
import json, sys, os
root = sys.argv[1]
out = set()
lines = set()
dec = json.JSONDecoder()
data = sys.stdin.read()
i = 0
while i < len(data):
    while i < len(data) and data[i].isspace(): i += 1
    if i >= len(data): break
    obj, i = dec.raw_decode(data, i)
    for f in obj.get("files", []):
        name = os.path.normpath(os.path.join(obj.get("current_working_directory", ""), f["file"]))
        if not name.startswith(root + "/src/") and not name.startswith(root + "/include/"): continue
        rel = name[len(root) + 1:]
        for l in f["lines"]:
            lines.add((rel, l["line_number"]))
            if l["count"] > 0: out.add("%s:%d" % (rel, l["line_number"]))
for x in sorted(out): print(x)
print("%d of %d lines ran" % (len(out), len(lines)), file=sys.stderr)
' "$tree" > covered.txt
echo "covered lines listed in $b/covered.txt"
