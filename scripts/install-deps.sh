#!/usr/bin/env bash
# Installs the Debian packages that jobs need and that are missing. Usage: install-deps.sh JOB..., for example build test.
# A job that it doesn't know is answered with those that there are.
set -euo pipefail
source "$(dirname "$0")/common.sh"

declare -A packages=(
  [build]="g++ cmake ninja-build pkg-config libhdf5-dev libboost-dev libdeflate-dev nlohmann-json3-dev"
  [demo]="python3 python3-h5py python3-matplotlib hdf5-tools"
  [test]="libgtest-dev python3 python3-h5py python3-msgpack python3-numpy python3-matplotlib python3-tables python-tables-data python3-pandas hdf5-tools dpkg-dev"
  [format]="clang-format-14"
  [lint]="clang-tidy-14 clang-tools-14 python3"
  [memcheck]="valgrind"
  [bench]="python3 python3-h5py python3-tables python3-matplotlib"
  [fuzz]="clang-14 libclang-rt-14-dev python3-h5py python3-msgpack python3-tables python-tables-data hdf5-tools"
  [docs]="doxygen python3"
  [package]="dpkg-dev file lintian python3"
  [clean-root]="debootstrap"
  [coverage]="gcovr"
  [many-machines]="python3-h5py python3-dask python3-distributed python3-numpy"
)

missing=()
for job in "$@"; do
  [ -n "${packages[$job]:-}" ] || { echo "unknown job: $job; there are: ${!packages[*]}" >&2; exit 2; }
  for package in ${packages[$job]}; do
    dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q '^install ok' || missing+=("$package")
  done
done
[ "${#missing[@]}" -gt 0 ] || exit 0

echo "== Installing missing packages: ${missing[*]}"
# sudo drops the environment, and a question of a package would be asked where nobody sees it.
as_root=(env DEBIAN_FRONTEND=noninteractive)
if [ "$(id -u)" -ne 0 ]; then
  command -v sudo >/dev/null || { echo "neither root nor sudo: install them as root, then run this again" >&2; exit 1; }
  as_root=(sudo "${as_root[@]}")
fi
log=$(mktemp)
trap 'rm -f "$log"' EXIT
# A machine that has just started may still be updating itself.
apt=("${as_root[@]}" apt-get -qq -o DPkg::Lock::Timeout=300)
"${apt[@]}" update >"$log" 2>&1 || { cat "$log" >&2; exit 1; }
"${apt[@]}" install -y --no-install-recommends "${missing[@]}" >"$log" 2>&1 || { cat "$log" >&2; exit 1; }
