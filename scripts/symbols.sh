#!/usr/bin/env bash
# Compares what the shared libraries export with the committed lists, so that no name leaves or goes unnoticed. `--fix`
# rewrites the lists.
set -euo pipefail
source "$(dirname "$0")/common.sh"
build_preset release tarnwick tarnwickhdf
for library in tarnwick tarnwickhdf; do
  list=cmake/$library.symbols
  stage "Exported symbols of $library"
  exported=$(nm -D --defined-only "build/release/$library/lib$library.so" | cut -d' ' -f3- | c++filt | LC_ALL=C sort -u)
  if [ "${1:-}" = --fix ]; then
    printf '%s\n' "$exported" >"$list"
  elif ! diff -u "$list" <(printf '%s\n' "$exported"); then
    echo "lib$library.so exports other symbols than $list says. If that is meant: scripts/symbols.sh --fix" >&2
    exit 1
  fi
done
