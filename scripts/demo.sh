#!/usr/bin/env bash
# The demo: real data goes into HDF5 files and comes back. Installs what is missing, builds, runs.
#   --many-machines   plays a job of many machines on this one instead: four processes write a shard each, Dask reads all
#                     of them together
set -euo pipefail
source "$(dirname "$0")/common.sh"

play_many_machines() {
  local writer=build/demo/examples/many-machines/shard_writer out=build/many-machines writers=() shard pid
  scripts/install-deps.sh build many-machines
  build_preset demo shard_writer
  rm -rf "$out"
  mkdir -p "$out"
  stage "Writing four shards at once"
  for shard in 0 1 2 3; do
    "$writer" "$out/shard-$shard.h5" "$shard" 100000 &
    writers+=($!)
  done
  for pid in "${writers[@]}"; do wait "$pid"; done
  stage "Reading them together"
  "$python" examples/many-machines/combine.py "$out" 4
}

case ${1:-} in
'') ;;
--many-machines) play_many_machines; exit 0 ;;
*) echo "unknown option: $1 (see --help)" >&2; exit 2 ;;
esac

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
