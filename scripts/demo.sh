#!/usr/bin/env bash
# The demo: real data goes into HDF5 files and comes back. Installs what is missing, builds, runs.
set -euo pipefail
source "$(dirname "$0")/common.sh"
scripts/install-deps.sh build demo
stage "Configuring"
quietly cmake --preset release -DTARNWICKHDF_BUILD_TESTS=OFF
stage "Building"
quietly cmake --build --preset release --parallel "$jobs" --target weather airports tree
programs=build/release/examples
out=build/demo
rm -rf "$out"
mkdir -p "$out"
stage "weather: four years of weather go into a file and come back"
"$programs/weather" examples/data "$out"
stage "airports: 3,376 rows with text columns"
"$programs/airports" examples/data "$out"
stage "tree: a file that h5py wrote"
"$python" examples/foreign.py "$out/foreign.h5"
"$programs/tree" "$out/foreign.h5"
stage "tree: the weather file"
"$programs/tree" "$out/weather.h5"
stage "Drawing the memory log"
"$python" scripts/plot-memory-log.py "$out/memory.log" "$out/memory-log.png"
stage "Done; the files lie in $out"
