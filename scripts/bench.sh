#!/usr/bin/env bash
# Measures the library against plain HDF5, h5py and PyTables, side by side, and writes docs/benchmarks.md with its pictures.
# `--quick` makes a short run that leaves docs/ alone; its report lies in build/bench/quick. Families that are named are
# measured alone, and the report takes what the last run measured of the others.
set -euo pipefail
source "$(dirname "$0")/common.sh"
families=(files_groups small_arrays whole_arrays attributes extensible_arrays tables types memory)
report=docs
results=build/bench/results
if [ "${1:-}" = --quick ]; then
  export TARNWICKHDF_BENCH_QUICK=1
  results=build/bench/quick
  report=$results
  shift
fi
measured=("$@")
[ "$#" -gt 0 ] || measured=("${families[@]}" peers)
scripts/install-deps.sh build bench
build_preset bench "${families[@]/#/bench_}"

# Files in memory where the system has a place for them: the disk must not decide.
folder=build/bench/files
if [ -w /dev/shm ]; then folder=$(mktemp -d /dev/shm/tarnwickhdf-bench.XXXXXX); fi
mkdir -p "$folder" "$report/images" "$results"
trap 'rm -rf "$folder"' EXIT
export TARNWICKHDF_BENCH_DIR=$folder
for family in "${measured[@]}"; do
  stage "Measuring: $family"
  if [ "$family" = peers ]; then
    "$python" benchmarks/peers.py >"$results/peers.json"
  else
    quietly "build/bench/benchmarks/bench_$family" --benchmark_out="$results/$family.json" --benchmark_out_format=json
  fi
done
stage "Reporting"
"$python" benchmarks/report.py "$results" "$report"
stage "Done: $report/benchmarks.md"
