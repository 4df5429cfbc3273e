#!/usr/bin/env bash
# The demo: real data goes into HDF5 files and comes back. Installs what is missing, builds, runs.
set -euo pipefail
source "$(dirname "$0")/common.sh"
scripts/install-deps.sh build demo
build_preset demo logger weather airports tree
programs=build/demo/examples
out=build/demo/files
rm -rf "$out"
mkdir -p "$out"
stage "logger: a day of samples, then an hour more in the same file"
"$programs/logger" "$out"
"$programs/logger" "$out" 360
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
stage "Drawing the weather"
"$python" examples/plot-weather.py "$out/weather.h5" "$out/weather.png"
stage "Done; the files lie in $out"
