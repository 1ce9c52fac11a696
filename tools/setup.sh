# Sourced by run, test and .ci/run: installs what is missing, configures and builds. Debian 12.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

say() { printf '%s\n' "$*" >&2; }

# install PACKAGE...: apt-get for those that are not there yet, as root or through sudo.
install() {
  local missing=()
  for package in "$@"; do
    dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'ok installed' || missing+=("$package")
  done
  [ ${#missing[@]} -eq 0 ] && return
  local as_root=()
  if [ "$(id -u)" -ne 0 ]; then
    command -v sudo >/dev/null || {
      say "These packages are missing, and there is neither root nor sudo to install them: ${missing[*]}"
      exit 1
    }
    as_root=(sudo)
  fi
  say "Installing: ${missing[*]}"
  local log
  log=$(mktemp)
  # The lists of a fresh machine are empty or old; fetch them once, before the first install.
  if ! { "${as_root[@]}" apt-get update -q && "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
    apt-get install -y -q --no-install-recommends "${missing[@]}"; } >"$log" 2>&1; then
    tail -n 20 "$log" >&2
    say "apt-get could not install them; its whole output is in $log"
    exit 1
  fi
  rm -f "$log"
}

# build FOLDER TARGET... -- CMAKE_OPTION...: configures once, builds quietly, shows the output of a build that fails.
build() {
  local folder=$1 targets=()
  shift
  while [ $# -gt 0 ] && [ "$1" != -- ]; do
    targets+=("$1")
    shift
  done
  [ $# -gt 0 ] && shift
  mkdir -p "$folder"
  local log="$folder/build.log"
  [ -f "$folder/build.ninja" ] || say "Building in $folder (the first time takes some minutes)"
  if ! { cmake -S . -B "$folder" -G Ninja "$@" && cmake --build "$folder" --target "${targets[@]}"; } >"$log" 2>&1; then
    grep -E -A 12 'error|FAILED' "$log" | head -n 60 >&2 || tail -n 40 "$log" >&2
    say "The build failed; its whole output is in $log"
    exit 1
  fi
}

BUILD_PACKAGES=(g++ cmake ninja-build ccache android-libbase-dev android-liblog-dev libcli11-dev nlohmann-json3-dev)
TEST_PACKAGES=(libgtest-dev libgmock-dev libtinyxml2-dev tshark bluez)
