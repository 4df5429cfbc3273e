#!/usr/bin/env bash
# Measures the library against plain HDF5, h5py and PyTables, side by side, and writes docs/benchmarks.md with its pictures.
# `--quick` makes a short run that leaves docs/ alone; its report lies in build/bench/results.
set -euo pipefail
source "$(dirname "$0")/common.sh"
families=(files_groups small_arrays whole_arrays attributes extensible_arrays tables types memory)
report=docs
case ${1:-} in
"") ;;
--quick)
  export TARNWICKHDF_BENCH_QUICK=1
  report=build/bench/results
  ;;
*) echo "unknown option: $1" >&2; exit 2 ;;
esac
scripts/install-deps.sh build bench
build_preset bench "${families[@]/#/bench_}"

# Files in memory where the system has a place for them: the disk must not decide.
folder=build/bench/files
if [ -w /dev/shm ]; then folder=$(mktemp -d /dev/shm/tarnwickhdf-bench.XXXXXX); fi
mkdir -p "$folder" "$report/images" build/bench/results
trap 'rm -rf "$folder"' EXIT
export TARNWICKHDF_BENCH_DIR=$folder
for family in "${families[@]}"; do
  stage "Measuring: $family"
  quietly "build/bench/benchmarks/bench_$family" --benchmark_out="build/bench/results/$family.json" \
    --benchmark_out_format=json
done
stage "Measuring: h5py and PyTables"
"$python" benchmarks/peers.py >build/bench/results/peers.json
stage "Reporting"
"$python" benchmarks/report.py build/bench/results "$report"
stage "Done: $report/benchmarks.md"
