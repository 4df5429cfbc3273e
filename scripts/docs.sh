#!/usr/bin/env bash
# Checks the written pages and makes the reference of the public headers in build/docs/html. A warning is an error.
set -euo pipefail
source "$(dirname "$0")/common.sh"
scripts/install-deps.sh docs
stage "Checking the links of the pages"
"$python" scripts/check-links.py
stage "Doxygen"
mkdir -p build/docs
TARNWICKHDF_VERSION=$(sed -n 's/^  VERSION //p' CMakeLists.txt) quietly doxygen docs/Doxyfile
stage "The reference lies in build/docs/html/index.html"
