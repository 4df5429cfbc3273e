#!/usr/bin/env bash
# Installs what is missing, builds and tests: plainly and under the address and undefined behaviour sanitizers; then the
# program with threads under the thread sanitizer, and the examples and the families' tests under Valgrind's memcheck.
#   --plain      leaves all that out but the plain tests
#   --tsan       runs everything under the thread sanitizer too
#   --long       runs the long variants of the engines
#   --coverage   reports line and branch coverage of the library instead, with the lines that no test reaches
# A warning of the compiler is an error, unless TARNWICKHDF_WARNINGS_AS_ERRORS=OFF is set.
set -euo pipefail
source "$(dirname "$0")/common.sh"
presets=(release asan)
threads_alone=yes
memcheck=yes
coverage=
for option in "$@"; do
  case $option in
  --plain) presets=(release); threads_alone=; memcheck= ;;
  --tsan) presets+=(tsan); threads_alone= ;;
  --long) export TARNWICKHDF_LONG_TESTS=1 ;;
  --coverage) presets=(coverage); threads_alone=; memcheck=; coverage=yes ;;
  *) echo "unknown option: $option (see --help)" >&2; exit 2 ;;
  esac
done
export TARNWICKHDF_WARNINGS_AS_ERRORS=${TARNWICKHDF_WARNINGS_AS_ERRORS:-ON}

report_coverage() {
  stage "Coverage of the library"
  gcovr --root . --filter 'tarnwick/' --filter 'tarnwickhdf/' --exclude-throw-branches --exclude-unreachable-branches \
    --print-summary build/coverage
}

# No error, and no leak.
check_memory() {
  stage "memcheck: $(basename "$1") ${*:2}"
  quietly valgrind --quiet --error-exitcode=1 --leak-check=full --errors-for-leak-kinds=definite,possible \
    --suppressions=tests/memcheck.supp "$@"
}

run_memcheck() {
  local out=build/memcheck examples=build/release/examples
  scripts/install-deps.sh demo memcheck
  rm -rf "$out"
  mkdir -p "$out"
  check_memory "$examples/weather" examples/data "$out"
  check_memory "$examples/airports" examples/data "$out"
  check_memory build/release/tools/tarnwickhdf-tree "$out/weather.h5"
  # Valgrind brings an allocator of its own, which the C library can't count.
  check_memory build/release/tests/tarnwickhdf_tests --gtest_filter=-Heap.*
}

scripts/install-deps.sh build test ${coverage:+coverage}
for preset in "${presets[@]}"; do
  build_preset "$preset"
  [ -z "$coverage" ] || find build/coverage -name '*.gcda' -delete
  stage "Testing ($preset)"
  ctest --preset "$preset" --parallel "$jobs"
done
if [ -n "$threads_alone" ]; then
  build_preset tsan tarnwickhdf_threads
  stage "Testing the program with threads (tsan)"
  ctest --preset tsan --tests-regex '^threads$'
fi
[ -z "$memcheck" ] || run_memcheck
[ -z "$coverage" ] || report_coverage
stage "All tests passed: ${presets[*]}"
