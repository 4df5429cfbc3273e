#!/usr/bin/env bash
# Runs the programs of the demo and the tests under Valgrind's memcheck: no error, and no leak.
set -euo pipefail
source "$(dirname "$0")/common.sh"
scripts/install-deps.sh build test demo memcheck
out=build/memcheck
rm -rf "$out"
mkdir -p "$out"

check() {
  stage "memcheck: $(basename "$1") ${*:2}"
  quietly valgrind --quiet --error-exitcode=1 --leak-check=full --errors-for-leak-kinds=definite,possible \
    --suppressions=tests/memcheck.supp "$@"
}

build_preset release
examples=build/release/examples
check "$examples/weather" examples/data "$out"
check "$examples/airports" examples/data "$out"
check build/release/tools/tarnwickhdf-tree "$out/weather.h5"
# Valgrind brings an allocator of its own, which the C library can't count.
check build/release/tests/tarnwickhdf_tests --gtest_filter=-Heap.*
stage "No error and no leak"
