#!/usr/bin/env bash
# Makes the Debian packages, unpacks them into an empty folder, and builds and runs programs against what is there, one
# found with CMake and one with pkg-config. `--clean-root` installs them with apt in a fresh Debian root instead, which
# has neither the sources nor what this machine has (minutes, needs root).
set -euo pipefail
source "$(dirname "$0")/common.sh"
scripts/install-deps.sh build package
build_preset package
stage "Packing"
out=$PWD/build/package
rm -f "$out"/*.deb
quietly cpack --config "$out/CPackConfig.cmake" -B "$out"
ls "$out"/*.deb

root=$(mktemp -d)
trap 'rm -rf "$root"' EXIT

# Builds the consumer both ways below the folder $1 and runs both.
try_consumers='
set -euo pipefail
cd "$1"
cmake -S consumer -B by-cmake -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build by-cmake >/dev/null
by-cmake/consumer by-cmake.h5
g++ -std=c++17 consumer/consumer.cpp $(pkg-config --cflags --libs tarnwickhdf) -o by-pkg-config
./by-pkg-config by-pkg-config.h5
'

if [ "${1:-}" = --clean-root ]; then
  quietly scripts/install-deps.sh clean-root
  stage "Setting up a Debian root"
  mirror=$(apt-get indextargets --format '$(REPO_URI)' | head -1)
  quietly debootstrap --variant=minbase "$(. /etc/os-release && echo "$VERSION_CODENAME")" "$root" "$mirror"
  cp -r "$out"/*.deb examples/consumer "$root/tmp/"
  stage "Installing the packages there"
  quietly chroot "$root" env -i PATH="$PATH" DEBIAN_FRONTEND=noninteractive sh -c 'apt-get install -y --no-install-recommends /tmp/*.deb g++ cmake make pkg-config'
  stage "Building and running the consumers there"
  chroot "$root" env -i PATH="$PATH" DEBIAN_FRONTEND=noninteractive bash -c "$try_consumers" consumers /tmp
else
  stage "Unpacking into an empty folder"
  for package in "$out"/*.deb; do dpkg-deb -x "$package" "$root"; done
  libraries=$root/usr/lib/$(dpkg-architecture -qDEB_HOST_MULTIARCH)
  cp -r examples/consumer "$root/"
  stage "Building and running the consumers"
  CMAKE_PREFIX_PATH=$root/usr PKG_CONFIG_PATH=$libraries/pkgconfig LD_LIBRARY_PATH=$libraries \
    bash -c "$try_consumers" consumers "$root"
fi
stage "The packages work"
