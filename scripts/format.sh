#!/usr/bin/env bash
# Checks the formatting of the C++ sources; `--fix` rewrites them.
set -euo pipefail
source "$(dirname "$0")/common.sh"
scripts/install-deps.sh format
mode=(--dry-run --Werror)
[ "${1:-}" != --fix ] || mode=(-i)
stage "Formatting: clang-format ${mode[*]}"
git ls-files -z --cached --others --exclude-standard '*.h' '*.cpp' | xargs -0 clang-format-14 "${mode[@]}"
