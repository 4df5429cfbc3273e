# Shared by the scripts: they run from the project's folder and say what they do, a line a stage.
cd "$(dirname "${BASH_SOURCE[0]}")/.."
jobs=$(nproc)
# Debian's own interpreter: the packages of install-deps.sh are there and in no other.
python=/usr/bin/python3

# The comment at the head of a script is its help.
for argument in "$@"; do
  if [ "$argument" = --help ]; then
    sed -n '2,/^[^#]/s/^# \{0,1\}//p' "scripts/$(basename "$0")"
    exit 0
  fi
done

stage() { printf '== [%4ss] %s\n' "$SECONDS" "$*"; }

# Runs a command quietly; shows what it printed only if it fails.
quietly() {
  local log
  log=$(mktemp)
  if ! "$@" >"$log" 2>&1; then
    cat "$log" >&2
    rm -f "$log"
    return 1
  fi
  rm -f "$log"
}

# Configures and builds a preset, quietly; the targets may be named. Where a script (test.sh) or the caller sets
# TARNWICKHDF_WARNINGS_AS_ERRORS, a warning is an error; the presets leave that to them, so that a user may come with a
# compiler that nobody has tried.
build_preset() {
  local preset=$1
  shift
  stage "Building ($preset)"
  quietly cmake --preset "$preset" \
    ${TARNWICKHDF_WARNINGS_AS_ERRORS:+-DTARNWICKHDF_WARNINGS_AS_ERRORS="$TARNWICKHDF_WARNINGS_AS_ERRORS"}
  quietly cmake --build --preset "$preset" --parallel "$jobs" ${1:+--target "$@"}
}
