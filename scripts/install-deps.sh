#!/usr/bin/env bash
# Installs the Debian packages that a job needs and that are missing. Usage: install-deps.sh build|test|bench|docs...
set -euo pipefail

declare -A packages=(
  [build]="g++ cmake ninja-build pkg-config libhdf5-dev libboost-dev nlohmann-json3-dev"
  [demo]="python3 python3-h5py python3-matplotlib hdf5-tools"
  [test]="libgtest-dev python3 python3-h5py python3-numpy python3-tables python3-pandas hdf5-tools dpkg-dev"
  [format]="clang-format-14"
  [lint]="clang-tidy-14 clang-tools-14 python3"
  [memcheck]="valgrind"
  [bench]="libbenchmark-dev python3 python3-h5py python3-tables python3-matplotlib"
  [docs]="doxygen python3"
  [package]="dpkg-dev file"
  [clean-root]="debootstrap"
  [coverage]="gcovr"
  [many-machines]="python3-h5py python3-dask python3-distributed python3-numpy"
)

missing=()
for set in "$@"; do
  for package in ${packages[$set]}; do
    dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q '^install ok' || missing+=("$package")
  done
done
[ "${#missing[@]}" -gt 0 ] || exit 0

echo "== Installing missing packages: ${missing[*]}"
as_root=()
[ "$(id -u)" -eq 0 ] || as_root=(sudo)
export DEBIAN_FRONTEND=noninteractive
log=$(mktemp)
trap 'rm -f "$log"' EXIT
"${as_root[@]}" apt-get update -qq >"$log" 2>&1 || { cat "$log" >&2; exit 1; }
"${as_root[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}" >"$log" 2>&1 || { cat "$log" >&2; exit 1; }
