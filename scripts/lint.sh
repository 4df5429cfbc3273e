#!/usr/bin/env bash
# Runs clang-tidy over the library's sources.
set -euo pipefail
source "$(dirname "$0")/common.sh"
scripts/install-deps.sh build lint
stage "Configuring"
quietly cmake --preset debug -DTARNWICKHDF_BUILD_TESTS=OFF -DTARNWICKHDF_BUILD_EXAMPLES=OFF
stage "clang-tidy"
printf '%s\0' tarnwick/*.cpp tarnwickhdf/*.cpp |
  xargs -0 -n 1 -P "$jobs" clang-tidy-14 -p build/debug --quiet 2> >(grep -v 'warnings generated' >&2 || true)
