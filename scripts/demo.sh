#!/usr/bin/env bash
# The demo: real data goes into HDF5 files and comes back. Installs what is missing, builds, runs.
set -euo pipefail
source "$(dirname "$0")/common.sh"
scripts/install-deps.sh build demo
build_preset demo logger weather airports tarnwickhdf-tree
programs=build/demo/examples
tools=build/demo/tools
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
stage "tarnwickhdf-tree: a file that h5py wrote"
"$python" examples/foreign.py "$out/foreign.h5"
"$tools/tarnwickhdf-tree" "$out/foreign.h5"
stage "tarnwickhdf-tree: the weather file"
"$tools/tarnwickhdf-tree" "$out/weather.h5"
stage "Drawing the memory log"
"$python" "$tools/tarnwickhdf-plot-memory-log" "$out/memory.log" "$out/memory-log.png"
stage "Drawing the weather"
"$python" examples/plot-weather.py "$out/weather.h5" "$out/weather.png"
stage "Done; the files lie in $out"
