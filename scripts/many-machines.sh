#!/usr/bin/env bash
# Plays a job of many machines on this one: four processes write a shard each, Dask reads all of them together.
set -euo pipefail
source "$(dirname "$0")/common.sh"
scripts/install-deps.sh build many-machines
build_preset release shard_writer
writer=build/release/examples/many-machines/shard_writer
out=build/many-machines
rm -rf "$out"
mkdir -p "$out"
stage "Writing four shards at once"
writers=()
for shard in 0 1 2 3; do
  "$writer" "$out/shard-$shard.h5" "$shard" 100000 &
  writers+=($!)
done
for pid in "${writers[@]}"; do wait "$pid"; done
stage "Reading them together"
"$python" examples/many-machines/combine.py "$out" 4
