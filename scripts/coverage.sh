#!/usr/bin/env bash
# Builds with coverage counters, runs the tests and reports line and branch coverage of the library, with the lines that
# no test reaches.
set -euo pipefail
source "$(dirname "$0")/common.sh"
scripts/install-deps.sh build test coverage
build_preset coverage
find build/coverage -name '*.gcda' -delete
stage "Testing (coverage)"
quietly ctest --preset coverage --parallel "$jobs"
stage "Coverage of the library"
gcovr --root . --filter 'tarnwick/' --filter 'tarnwickhdf/' --exclude-throw-branches --exclude-unreachable-branches \
  --print-summary build/coverage
