#!/usr/bin/env bash
# Measures the library against plain HDF5, HDF5's C++ API, h5py and PyTables, side by side, and writes
# docs/benchmarks.md, docs/benchmarks-internal.md and their pictures: 15 minutes on a machine that does nothing else.
# Usage: bench.sh [--quick] [--long] [FILTER]
#   --quick  the smallest size of each row, one turn a side, to see that all rows run: 2 minutes
#   --long   with the sizes at which a single turn takes more than 3 seconds
#   FILTER   a regular expression for rows and sizes. bench.sh "tables/read/" measures one row at all its sizes,
#            bench.sh --quick "tables/read/" tries it, bench.sh "tables/read/8388608" measures one size.
# Only a run without --quick and FILTER writes to docs/; the others have their pages in build/bench/quick and
# build/bench/part.
set -euo pipefail
source "$(dirname "$0")/common.sh"
report=docs
options=()
for argument in "$@"; do
  case $argument in
    --quick) report=build/bench/quick ;;
    --long) ;;
    *) [ $report != docs ] || report=build/bench/part ;;
  esac
  options+=("$argument")
done
scripts/install-deps.sh build bench
build_preset bench tarnwickhdf_bench

# Files in memory where the system has a place for them: the disk must not decide.
TARNWICKHDF_BENCH_DIR=build/bench/files
if [ -w /dev/shm ]; then TARNWICKHDF_BENCH_DIR=$(mktemp -d /dev/shm/tarnwickhdf-bench.XXXXXX); fi
export TARNWICKHDF_BENCH_DIR
trap 'rm -rf "$TARNWICKHDF_BENCH_DIR"' EXIT
mkdir -p "$TARNWICKHDF_BENCH_DIR" "$report/images"
results=build/bench/results.json
stage "Measuring"
quietly "$python" benchmarks/bench.py build/bench/benchmarks/tarnwickhdf_bench $results "${options[@]}"
stage "Reporting"
rm -f "$report"/images/bench-*
"$python" benchmarks/report.py $results $report
stage "Done: $report/benchmarks.md"
