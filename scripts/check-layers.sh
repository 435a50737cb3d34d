#!/usr/bin/env bash
# Fails when a file of the library includes a header of a higher layer.
# The layers, lowest first (docs/ARCHITECTURE.md says what each owns):
#
#   0 platform     src/platform
#   1 base         src/base, tvxcore/base, tvxcore/Export.h, tvxcore/Version.h
#   2 threads      src/threads, tvxcore/threads (locks and thread identity)
#   3 utility      src/utility, tvxcore/utility, tvxcore/Locale.h, tvxcore/geom
#   4 serialization  src/serialization, tvxcore/serialization (JSON values)
#   5 config       src/config, tvxcore/config, tvxcore/ZString.h
#   6 debug        src/debug, tvxcore/utility/MachineExceptions.h
#   7 filesupport  src/filesupport, tvxcore/filesupport, tvxcore/utility/FileUtils.h,
#                  tvxcore/MemoryMappedFile.h
#   8 diagnostics  src/diagnostics, tvxcore/debug/Trace.h, tvxcore/debug/DebugDatabase.h,
#                  src/console, tvxcore/console (console commands and log)
#   9 execution    src/execution, the executor and event-loop headers of
#                  tvxcore/threads (AsyncExecutor.h, DelayedExecution.h,
#                  SubExecutor.h, SharedExecutors.h, EventLoop.h) and
#                  tvxcore/debug/TraceHandlers.h (trace handlers write from executors)
#  10 filework     src/filework, tvxcore/utility/BinaryCopier.h,
#                  tvxcore/filesupport/FileCopyStreams.h and
#                  tvxcore/filesupport/DirectoryChangeMonitor.h (file work on
#                  executors and event loops)
#  11 xml          src/xml, tvxcore/xml
#  12 proplist     src/proplist, tvxcore/proplist, tvxcore/utility/RelativeAlias.h and
#                  src/filesupport/paths/RelativeAlias.cpp (relative aliases are
#                  stored as property lists)
#  13 everything   tvxcore/tvxcore.h (the umbrella header; nothing includes it)
#
# A file may include its own layer and any lower one. Both the including file
# and the included path are placed by the table in layer_of below.
#   bash scripts/check-layers.sh        prints each wrong include; exit 1 if any
#   bash scripts/check-layers.sh build/release
#                                       the same, and then, from that build's
#                                       object files, each symbol that code
#                                       of one layer uses and only a higher
#                                       layer defines (a function declared
#                                       low and defined high)
set -euo pipefail
cd "$(dirname "$0")/.."

# The layer of a path, either a repository path (src/..., include/tvxcore/...)
# or the path an #include names (platform/..., tvxcore/...). -1: not a layer.
layer_of() {
  local p="${1#include/}"
  p="${p#src/}"
  case "$p" in
    tvxcore/tvxcore.h) echo 13 ;;
    tvxcore/utility/FileUtils.h | tvxcore/MemoryMappedFile.h) echo 7 ;;
    tvxcore/utility/RelativeAlias.h | filesupport/paths/RelativeAlias.cpp) echo 12 ;;
    tvxcore/utility/BinaryCopier.h | tvxcore/filesupport/FileCopyStreams.h | \
      tvxcore/filesupport/DirectoryChangeMonitor.h) echo 10 ;;
    tvxcore/threads/AsyncExecutor.h | tvxcore/threads/DelayedExecution.h | \
      tvxcore/threads/SubExecutor.h | tvxcore/threads/SharedExecutors.h | \
      tvxcore/threads/EventLoop.h | tvxcore/debug/TraceHandlers.h) echo 9 ;;
    tvxcore/debug/Trace.h | tvxcore/debug/DebugDatabase.h) echo 8 ;;
    tvxcore/utility/MachineExceptions.h) echo 6 ;;
    tvxcore/Export.h | tvxcore/Version.h | tvxcore/Version.h.in) echo 1 ;;
    tvxcore/Locale.h) echo 3 ;;
    tvxcore/ZString.h) echo 5 ;;
    platform/*) echo 0 ;;
    base/* | tvxcore/base/*) echo 1 ;;
    threads/* | tvxcore/threads/*) echo 2 ;;
    utility/* | tvxcore/utility/* | tvxcore/geom/*) echo 3 ;;
    serialization/* | tvxcore/serialization/*) echo 4 ;;
    config/* | tvxcore/config/*) echo 5 ;;
    debug/* | tvxcore/debug/*) echo 6 ;;
    filesupport/* | tvxcore/filesupport/*) echo 7 ;;
    diagnostics/* | console/* | tvxcore/console/*) echo 8 ;;
    execution/*) echo 9 ;;
    filework/*) echo 10 ;;
    xml/* | tvxcore/xml/*) echo 11 ;;
    proplist/* | tvxcore/proplist/*) echo 12 ;;
    *) echo -1 ;;
  esac
}

# Includes that go the wrong way and are known, one "file include" pair a
# line. Each names its reason; the list is meant to shrink to nothing.
known=(
  # The allocator reports a size above its class as a contract violation,
  # which goes to config::ThrowError. Its files are being rewritten by their
  # owner, who moves the report behind a handler passed down.
  "src/utility/internal/AllocatorManager.h debug/internal/ContractCheck.h"
  # The per-thread cache reports a block given back twice (debug builds) the
  # same way, and moves with it.
  "src/utility/internal/ThreadCache.cpp debug/internal/ContractCheck.h"
)

# Symbols of a higher layer that an object file is known to need, one
# "file symbol-prefix" pair a line (mangled names), with the reason.
known_links=(
  # The allocator's contract report, as for its include above.
  "src/utility/SmallBlockAllocator.cpp _ZN7tvxcore5debug8internal17ContractViolation"
  "src/utility/internal/ThreadCache.cpp _ZN7tvxcore5debug8internal17ContractViolation"
)

names=(platform base threads utility serialization config debug filesupport diagnostics execution filework xml proplist everything)
files=$(git ls-files -co --exclude-standard src include | grep -E '\.(h|cpp|inc|in)$')
# Every file with its layer, and every include with its layer, in one pass.
status=0
while IFS=$'\t' read -r file line included; do
  own=$(layer_of "$file")
  if [ "$own" -lt 0 ]; then
    echo "check-layers: $file is in no layer; add it to scripts/check-layers.sh" >&2
    status=1
    continue
  fi
  [ -z "$included" ] && continue
  target=$(layer_of "$included")
  [ "$target" -le "$own" ] && continue
  for pair in "${known[@]}"; do
    [ "$pair" = "$file $included" ] && continue 2
  done
  echo "$file:$line: ${names[$own]} includes $included (${names[$target]})"
  status=1
done < <(
  # One line per include ("file<TAB>line<TAB>path"), and one per file that
  # includes nothing, so that every file is placed in a layer.
  awk 'FNR == 1 && NR > 1 && !seen { printf "%s\t0\t\n", prev }
       FNR == 1 { seen = 0; prev = FILENAME }
       /^[ \t]*#[ \t]*include[ \t]*"/ {
         match($0, /"[^"]+"/); seen = 1
         printf "%s\t%d\t%s\n", FILENAME, FNR, substr($0, RSTART + 1, RLENGTH - 2) }
       END { if (!seen) printf "%s\t0\t\n", prev }' $files)

if [ "$status" = 0 ]; then
  echo "check-layers: every include goes down or stays in its layer"
fi

if [ -n "${1:-}" ]; then
  objects="$1/src/CMakeFiles/tvxcore_objects.dir"
  if [ ! -d "$objects" ]; then
    echo "check-layers: no object files in $objects; build the library first" >&2
    exit 1
  fi
  links=0
  # One line per symbol an object defines (D) or needs (U): "layer D|U
  # symbol file". Objects of sources that no longer exist are left out.
  # Weak definitions count (explicit template instances are weak); an inline
  # function is weak in every object that keeps a copy, so it is found in
  # the user's own layer.
  while read -r layer use symbol file; do
    for pair in "${known_links[@]}"; do
      [ "$file" = "${pair%% *}" ] && [[ "$symbol" == "${pair#* }"* ]] && continue 2
    done
    echo "$file: ${names[$use]} uses $(echo "$symbol" | c++filt), defined only in ${names[$layer]}"
    links=1
  done < <(
    find "$objects" -name '*.o' | sort | while read -r object; do
      source="src/${object#"$objects"/}"
      source="${source%.o}"
      [ -f "$source" ] || continue
      nm "$object" | awk -v layer="$(layer_of "$source")" -v file="$source" '
        $1 == "U" { print layer, "U", $2, file }
        NF == 3 && $2 ~ /^[TDBRWV]$/ { print layer, "D", $3, file }'
    done | awk '
      $2 == "D" { if (!($3 in low) || $1 < low[$3]) low[$3] = $1; next }
      { use[NR] = $0 }
      END {
        for (i in use) {
          split(use[i], f, " ")
          if ((f[3] in low) && low[f[3]] > f[1]) print low[f[3]], f[1], f[3], f[4]
        }
      }' | sort -u)
  if [ "$links" = 0 ]; then
    echo "check-layers: no object file needs a symbol that only a higher layer defines"
  else
    status=1
  fi
fi
exit "$status"
