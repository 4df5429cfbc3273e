#!/usr/bin/env bash
# Builds and tests in other Debian releases, each with its own HDF5, compilers, CMake and Python, and reads the files of
# each release in all others. Needs root. Roots, builds and files stay in build/matrix for the next time.
#   scripts/matrix.sh [--compilers LIST] [--standards LIST] SUITE...
#     SUITE         a release of Debian: bullseye, bookworm, trixie, sid
#     --compilers   of the release, separated by commas: g++ (the default), clang++
#     --standards   of C++, separated by commas: 17 (the default), 20, 23
# A line a combination tells the tests that ran and those that were left out; the reason for each stands below.
set -euo pipefail
source "$(dirname "$0")/common.sh"

# What a release can't do, and why.
unable() { # SUITE COMPILER STANDARD
  case "$1 $2 $3" in
  "bullseye g++ 23" | "bullseye clang++ 23") echo "CMake 3.18 knows no C++23" ;;
  esac
}
# Tests that a release can't run: names of ctest's, cases of Google Test's, the reason.
left_out() { # SUITE
  case $1 in
  bullseye)
    names='example_foreign|tools|foreign|docs_coming-from-hdf5-h5py-pytables|docs_guide' cases='*H5py*'
    reason="h5py 2.10 takes no list of texts, gives no texts as str and knows no bit fields"
    ;;
  *) names='' cases='' reason='' ;;
  esac
}

compilers=g++
standards=17
suites=()
while [ $# -gt 0 ]; do
  case $1 in
  --compilers) compilers=$2; shift ;;
  --standards) standards=$2; shift ;;
  -*) echo "unknown option: $1" >&2; exit 2 ;;
  *) suites+=("$1") ;;
  esac
  shift
done
[ "${#suites[@]}" -gt 0 ] || { echo "which release of Debian? See --help." >&2; exit 2; }
[ "$(id -u)" -eq 0 ] || { echo "a root can be made by root only" >&2; exit 1; }
matrix=$PWD/build/matrix
rows=$matrix/rows
mkdir -p "$matrix"
: >"$rows"

# Runs a command in the sources of a suite's root. Its mounts end with it.
in_root() { # SUITE COMMAND...
  local root=$matrix/$1/root
  shift
  unshare --mount sh -c 'root=$1; shift; mount -t proc proc "$root/proc" && exec chroot "$root" env -i "$@"' in_root \
    "$root" PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root DEBIAN_FRONTEND=noninteractive LC_ALL=C.UTF-8 \
    sh -c 'cd /source && exec "$@"' in_root "$@"
}

make_root() { # SUITE
  local root=$matrix/$1/root
  if [ ! -e "$root/made" ]; then
    stage "$1: setting up a root"
    quietly scripts/install-deps.sh clean-root
    rm -rf "$root"
    mkdir -p "$root"
    local mirror
    mirror=$(apt-get indextargets --format '$(REPO_URI)' | head -1)
    quietly debootstrap --variant=minbase "$1" "$root" "$mirror"
    # Nobody minds a root that is lost with the machine, and a mirror may lag behind.
    echo force-unsafe-io >"$root/etc/dpkg/dpkg.cfg.d/unsafe-io"
    echo 'Acquire::Check-Valid-Until "false";' >"$root/etc/apt/apt.conf.d/old-lists"
    touch "$root/made"
  fi
  stage "$1: taking the sources along, installing what they need"
  mkdir -p "$root/source"
  find "$root/source" -mindepth 1 -maxdepth 1 ! -name build -exec rm -rf {} +
  tar -c --exclude=./build --exclude=./.git . | tar -x -m -C "$root/source"
  in_root "$1" scripts/install-deps.sh build test
  case $compilers in
  *clang*) quietly in_root "$1" apt-get install -y --no-install-recommends clang ;;
  esac
}

build_and_test() { # SUITE COMPILER STANDARD
  local build=build/$2-$3 in_source=$matrix/$1/root/source
  stage "$1: building with $2, C++$3"
  quietly in_root "$1" cmake -G Ninja -S . -B "$build" -DCMAKE_BUILD_TYPE=Release -DCMAKE_CXX_COMPILER="$2" \
    -DCMAKE_CXX_STANDARD="$3" -DTARNWICKHDF_WARNINGS_AS_ERRORS=ON -DCMAKE_INSTALL_PREFIX="/source/$build/installed"
  quietly in_root "$1" cmake --build "$build" --parallel "$jobs" -- -k 0
  stage "$1: testing"
  local log=$in_source/$build/tests.log
  local names cases reason
  left_out "$1"
  in_root "$1" env GTEST_FILTER="*${cases:+-$cases}" sh -c 'cd "$1" && ctest --verbose --parallel "$2" -E "^($3)\$"' \
    ctest "$build" "$jobs" "$names" >"$log" || { failures_of "$log" >&2; return 1; }
  tests=$(sed -n 's/^100% tests passed.* out of //p' "$log")
  passed=$(awk '/\[  PASSED  \]/ { sum += $5 } END { print sum }' "$log")
  skipped=$(skipped_of "$log")
  [ -z "$names" ] || skipped="${skipped:+$skipped; }$names|$cases: $reason"
}

# What Google Test and the Python programs have left out, with the reasons, each once.
skipped_of() { # LOG
  awk '{ sub(/^[0-9]+: /, "") }
    /: Skipped$/ { getline; sub(/^[0-9]+: /, ""); reason = $0 }
    /^\[  SKIPPED \] .* ms\)$/ { sub(/(\/[0-9]+)?(,.*)?$/, "", $4); print $4 ": " reason }
    /^skipped: / { sub(/^skipped: /, ""); print }' "$1" | sort -u | paste -sd ';' | sed 's/;/; /g'
}

failures_of() { # LOG
  grep -E '\*\*\*|Failure|\[  FAILED  \]|^The following|^\s+[0-9]+ - ' "$1"
  echo "all of it: $1"
}

# The package's consumers, one found by CMake and one by pkg-config, against what was installed.
try_consumers() { # SUITE COMPILER STANDARD
  local build=build/$2-$3
  stage "$1: installing, building and running the consumers"
  quietly in_root "$1" cmake --install "$build"
  quietly in_root "$1" env CXX="$2" bash -euo pipefail -c '
    installed=/source/$1/installed
    libraries=$(dirname "$(find "$installed" -name libtarnwickhdf.so)")
    export CMAKE_PREFIX_PATH=$installed PKG_CONFIG_PATH=$libraries/pkgconfig LD_LIBRARY_PATH=$libraries
    rm -rf "$1/consumers"
    mkdir "$1/consumers"
    cd "$1/consumers"
    cmake -S /source/examples/consumer -B by-cmake -DCMAKE_BUILD_TYPE=Release
    cmake --build by-cmake
    by-cmake/consumer by-cmake.h5
    "$CXX" -std=c++17 /source/examples/consumer/consumer.cpp $(pkg-config --cflags --libs tarnwickhdf) -o by-pkg-config
    ./by-pkg-config by-pkg-config.h5' consumers "$build"
}

# The files of each release, and of the demo outside, in this release: read by the examples, which know every value, and
# compared with this release's own.
read_files_of_others() { # SUITE BUILD
  local folder from
  for folder in "$matrix"/*/files build/demo/files; do
    [ -e "$folder/weather.h5" ] || continue
    from=$(basename "$(dirname "$folder")")
    [ "$from" != "$1" ] || continue
    stage "$1: reading the files of $from"
    rm -rf "$matrix/$1/root/source/others"
    cp -r "$folder" "$matrix/$1/root/source/others"
    quietly in_root "$1" bash -euo pipefail -c '
      "$1/examples/weather" examples/data others check
      "$1/examples/airports" examples/data others check
      for file in weather airports foreign; do
        own=$1/examples/files/$file.h5
        [ -e "$own" ] && [ -e "others/$file.h5" ] || continue
        h5diff "$own" "others/$file.h5"
        diff <("$1/tools/tarnwickhdf-tree" "$own") <("$1/tools/tarnwickhdf-tree" "others/$file.h5")
      done' read "$2"
    echo "$1 reads the files of $from" >>"$rows"
  done
}

declare -A last
for suite in "${suites[@]}"; do
  make_root "$suite"
  versions=$(in_root "$suite" sh -c 'dpkg-query -W -f="\${Version}" libhdf5-dev')
  for compiler in ${compilers//,/ }; do
    for standard in ${standards//,/ }; do
      reason=$(unable "$suite" "$compiler" "$standard")
      if [ -n "$reason" ]; then
        echo "$suite | ${versions%%[+-]*} | $compiler | $standard | left out: $reason" >>"$rows"
        continue
      fi
      build_and_test "$suite" "$compiler" "$standard"
      try_consumers "$suite" "$compiler" "$standard"
      name=$(in_root "$suite" "$compiler" -dumpversion)
      echo "$suite | ${versions%%[+-]*} | $compiler $name | $standard | $tests tests with $passed cases passed |" \
        "skipped: ${skipped:-none}" >>"$rows"
      last[$suite]=build/$compiler-$standard
    done
  done
  rm -rf "$matrix/$suite/files"
  cp -r "$matrix/$suite/root/source/${last[$suite]}/examples/files" "$matrix/$suite/files"
done
for suite in "${suites[@]}"; do
  read_files_of_others "$suite" "${last[$suite]}"
done
stage "Done"
cat "$rows"
