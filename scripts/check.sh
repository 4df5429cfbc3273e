#!/usr/bin/env bash
# Checks what no test sees. Usage: check.sh [--fix] [CHECK...], where no CHECK means all of them:
#   format    the C++ sources are as clang-format would lay them out; `--fix` lays them out
#   tidy      clang-tidy has nothing to say about the library, the examples and the tools
#   symbols   the shared libraries export what cmake/*.symbols list, so that no name leaves or goes unnoticed; `--fix`
#             rewrites the lists
#   pages     no link of the pages is broken, and Doxygen makes the reference in build/docs/html without a warning: a
#             public operation without a comment is one
set -euo pipefail
source "$(dirname "$0")/common.sh"

check_format() {
  local mode=(--dry-run --Werror)
  [ -z "$fix" ] || mode=(-i)
  scripts/install-deps.sh format
  stage "Formatting: clang-format ${mode[*]}"
  git ls-files -z --cached --others --exclude-standard '*.h' '*.cpp' | xargs -0 clang-format-14 "${mode[@]}"
}

check_tidy() {
  scripts/install-deps.sh build lint
  quietly cmake --preset debug -DTARNWICKHDF_BUILD_TESTS=OFF
  stage "clang-tidy"
  printf '%s\0' tarnwick/*.cpp tarnwickhdf/*.cpp examples/*.cpp tools/*.cpp |
    xargs -0 -n 1 -P "$jobs" clang-tidy-14 -p build/debug --quiet 2> >(grep -v 'warnings generated' >&2 || true)
}

check_symbols() {
  local library list exported
  scripts/install-deps.sh build test
  build_preset release tarnwick tarnwickhdf
  for library in tarnwick tarnwickhdf; do
    list=cmake/$library.symbols
    stage "Exported symbols of $library"
    exported=$(nm -D --defined-only "build/release/$library/lib$library.so" | cut -d' ' -f3- | c++filt | LC_ALL=C sort -u)
    if [ -n "$fix" ]; then
      printf '%s\n' "$exported" >"$list"
    elif ! diff -u "$list" <(printf '%s\n' "$exported"); then
      echo "lib$library.so exports other symbols than $list says. If that is meant: scripts/check.sh --fix symbols" >&2
      return 1
    fi
  done
}

check_pages() {
  scripts/install-deps.sh docs
  stage "Links of the pages"
  "$python" scripts/pages.py links
  stage "Doxygen"
  mkdir -p build/docs
  TARNWICKHDF_VERSION=$(sed -n 's/^  VERSION //p' CMakeLists.txt) quietly doxygen docs/Doxyfile
  stage "The reference lies in build/docs/html/index.html"
}

fix=
checks=()
for argument in "$@"; do
  case $argument in
  --fix) fix=yes ;;
  format | tidy | symbols | pages) checks+=("$argument") ;;
  *) echo "unknown: $argument (see --help)" >&2; exit 2 ;;
  esac
done
[ "${#checks[@]}" -gt 0 ] || checks=(format tidy symbols pages)
for check in "${checks[@]}"; do "check_$check"; done
