#!/usr/bin/env bash
# Makes the Debian packages, checks them with lintian, unpacks them into an empty folder, and builds and runs programs
# against what is there, one found with CMake and one with pkg-config. Then the library is part of somebody else's
# project, as static libraries, and is installed from there. `--clean-root` installs them with apt in a fresh Debian root instead, which
# has neither the sources nor what this machine has (minutes, needs root).
set -euo pipefail
source "$(dirname "$0")/common.sh"
scripts/install-deps.sh build package
scripts/check.sh pages
build_preset package
stage "Packing"
out=$PWD/build/package
rm -f "$out"/*.deb
quietly cpack --config "$out/CPackConfig.cmake" -B "$out"
ls "$out"/*.deb
stage "lintian"
lintian --allow-root --fail-on error "$out"/*.deb

root=$(mktemp -d)
trap 'rm -rf "$root"' EXIT

# Builds the consumer both ways below the folder $1 and runs both; $2 is another option of pkg-config.
try_consumers='
set -euo pipefail
cd "$1"
rm -rf by-cmake
cmake -S consumer -B by-cmake -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build by-cmake >/dev/null
by-cmake/consumer by-cmake.h5
g++ -std=c++17 consumer/consumer.cpp $(pkg-config --cflags --libs ${2:-} tarnwickhdf) -o by-pkg-config
./by-pkg-config by-pkg-config.h5
'

# Takes the library in as a part of another project, which wants static libraries and C++20 and installs its own program
# alone. Then the project asks for the library's installation too.
try_embedded() {
  local parent=$root/parent
  mkdir -p "$parent"
  cp -r examples/consumer "$parent/"
  cat >"$parent/CMakeLists.txt" <<END
cmake_minimum_required(VERSION 3.18)
project(parent LANGUAGES CXX)
set(CMAKE_CXX_STANDARD 20)
set(BUILD_SHARED_LIBS OFF)
include(FetchContent)
FetchContent_Declare(tarnwickhdf SOURCE_DIR $PWD)
FetchContent_MakeAvailable(tarnwickhdf)
add_executable(program consumer/consumer.cpp)
target_link_libraries(program PRIVATE tarnwickhdf::tarnwickhdf)
install(TARGETS program)
if(CMAKE_BUILD_TYPE)
  message(FATAL_ERROR "The library has set its parent's build type")
endif()
END
  stage "Building as a part of another project"
  quietly cmake -G Ninja -S "$parent" -B "$parent/build" -DCMAKE_INSTALL_PREFIX="$parent/installed"
  quietly cmake --build "$parent/build" --parallel "$jobs"
  quietly cmake --install "$parent/build"
  local installed
  installed=$(cd "$parent/installed" && find . -type f)
  [ "$installed" = ./bin/program ] || { echo "the library installed into its parent: $installed" >&2; exit 1; }
  "$parent/installed/bin/program" "$root/embedded.h5"
  stage "Building and running the consumers of static libraries"
  quietly cmake "$parent/build" -DTARNWICKHDF_INSTALL=ON
  quietly cmake --install "$parent/build"
  CMAKE_PREFIX_PATH=$parent/installed PKG_CONFIG_PATH=$(dirname "$(find "$parent/installed" -name tarnwickhdf.pc)") \
    bash -c "$try_consumers" consumers "$parent" --static
}

# An HDF5 package with the headers' word that deprecated functions were left out.
try_without_deprecated_symbols() {
  local hdf5=$root/hdf5
  mkdir -p "$hdf5"
  echo '#define H5_NO_DEPRECATED_SYMBOLS 1' >"$hdf5/H5pubconf.h"
  cat >"$hdf5/hdf5-config.cmake" <<END
add_library(hdf5-shared SHARED IMPORTED)
set_target_properties(hdf5-shared PROPERTIES IMPORTED_LOCATION $hdf5/libhdf5.so)
set(HDF5_INCLUDE_DIR $hdf5)
set(HDF5_shared_FOUND ON)
set(HDF5_C_FOUND ON)
END
  stage "Refusing an HDF5 without its deprecated symbols"
  if cmake -S . -B "$hdf5/build" -DHDF5_DIR="$hdf5" >"$hdf5/log" 2>&1 ||
    ! grep -q "HDF5 is needed with its deprecated symbols" "$hdf5/log"; then
    cat "$hdf5/log" >&2
    exit 1
  fi
}

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
  stage "Running the tools"
  LD_LIBRARY_PATH=$libraries "$root/usr/bin/tarnwickhdf-tree" "$root/by-cmake.h5"
  "$root/usr/bin/tarnwickhdf-plot-memory-log" --version
  stage "Checking the pages that are installed"
  pages=$root/usr/share/doc/tarnwickhdf
  "$python" scripts/pages.py links "$pages"
  ls "$pages/html/index.html" "$pages/examples/weather.cpp" >/dev/null
  try_embedded
  try_without_deprecated_symbols
fi
stage "The packages work"
