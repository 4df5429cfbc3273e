#!/usr/bin/env bash
# Installs what is missing, builds and tests: plainly and under the address and undefined behaviour sanitizers.
# The program with threads runs under the thread sanitizer too, and memcheck.sh follows. `--plain` leaves all that out,
# `--tsan` runs everything under the thread sanitizer, `--long` runs the long variants. A warning of the compiler is an
# error, unless TARNWICKHDF_WARNINGS_AS_ERRORS=OFF is set.
set -euo pipefail
source "$(dirname "$0")/common.sh"
presets=(release asan)
threads_alone=yes
memcheck=yes
for option in "$@"; do
  case $option in
  --plain) presets=(release); threads_alone=no; memcheck=no ;;
  --tsan) presets+=(tsan); threads_alone=no ;;
  --long) export TARNWICKHDF_LONG_TESTS=1 ;;
  *) echo "unknown option: $option" >&2; exit 2 ;;
  esac
done
export TARNWICKHDF_WARNINGS_AS_ERRORS=${TARNWICKHDF_WARNINGS_AS_ERRORS:-ON}
scripts/install-deps.sh build test
for preset in "${presets[@]}"; do
  build_preset "$preset"
  stage "Testing ($preset)"
  ctest --preset "$preset" --parallel "$jobs"
done
if [ "$threads_alone" = yes ]; then
  build_preset tsan tarnwickhdf_threads
  stage "Testing the program with threads (tsan)"
  ctest --preset tsan --tests-regex '^threads$'
fi
[ "$memcheck" = no ] || scripts/memcheck.sh
stage "All tests passed: ${presets[*]}"
