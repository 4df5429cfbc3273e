#!/usr/bin/env bash
# Installs what is missing, builds and tests: plainly and under the address and undefined behaviour sanitizers.
# `--plain` leaves the sanitizers out, `--tsan` adds the thread sanitizer, `--long` runs the long variants.
set -euo pipefail
source "$(dirname "$0")/common.sh"
presets=(release asan)
for option in "$@"; do
  case $option in
  --plain) presets=(release) ;;
  --tsan) presets+=(tsan) ;;
  --long) export TARNWICKHDF_LONG_TESTS=1 ;;
  *) echo "unknown option: $option" >&2; exit 2 ;;
  esac
done
scripts/install-deps.sh build test
for preset in "${presets[@]}"; do
  build_preset "$preset"
  stage "Testing ($preset)"
  ctest --preset "$preset" --parallel "$jobs"
done
stage "All tests passed: ${presets[*]}"
