# Sourced by run, test and .ci/run: installs what is missing, configures and builds. Debian 12.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

say() { printf '%s\n' "$*" >&2; }

# usage TEXT ARGUMENT...: prints it and ends, if that is all that is asked.
usage() {
  case ${2:-} in -h | --help)
    printf '%s\n' "$1"
    exit 0
    ;;
  esac
}

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

# What a failed configure or build said first: its log up to the next step, without the compiler's own command line.
first_error() {
  local log=$1
  awk '/^CMake Error/ { found = 1 }
       /^FAILED:/ { found = 1; print; getline; next }
       found && /^\[[0-9]+\/[0-9]+\]/ { exit }
       found' "$log" | head -n 40 | grep . || tail -n 40 "$log"
}

# watch_build LOG LAST: reads what the build says and shows how far it is: a bar on a terminal, else a line now and then.
# LAST tells how long the last time took.
watch_build() {
  local line done all shown=0 drawn='' bar
  while IFS= read -r line; do
    printf '%s\n' "$line" >>"$1"
    [[ $line =~ ^\[([0-9]+)/([0-9]+)\] ]] || continue
    done=${BASH_REMATCH[1]} all=${BASH_REMATCH[2]}
    if [ -t 2 ]; then
      printf -v bar '%*s' $((30 * done / all)) ''
      printf '\r  [%-30s] %d/%d files, %d s%s\e[K' "${bar// /#}" "$done" "$all" "$SECONDS" "$2" >&2
      drawn=yes
    elif [ $((10 * done / all)) -gt "$shown" ] && [ "$all" -ge 20 ]; then
      shown=$((10 * done / all))
      say "  $done/$all files, $SECONDS s$2"
    fi
  done
  [ -z "$drawn" ] || printf '\r\e[K' >&2
}

# build FOLDER TARGET... -- CMAKE_OPTION...: configures, builds, and shows how far it is, or the first error.
build() {
  local folder=$1 targets=() last='' log
  shift
  while [ $# -gt 0 ] && [ "$1" != -- ]; do
    targets+=("$1")
    shift
  done
  [ $# -gt 0 ] && shift
  mkdir -p "$folder"
  log="$folder/build.log"
  [ ! -f "$folder/build.took" ] || last=" (last time $(cat "$folder/build.took"))"
  SECONDS=0
  if ! cmake -S . -B "$folder" -G Ninja "$@" >"$log" 2>&1 ||
    ! NINJA_STATUS='[%f/%t] ' cmake --build "$folder" --target "${targets[@]}" 2>&1 | watch_build "$log" "$last"; then
    first_error "$log" >&2
    say "The build failed; its whole output is in $log"
    exit 1
  fi
  local files
  files=$(sed -nE 's/^\[[0-9]+\/([0-9]+)\].*/\1/p' "$log" | tail -n 1)
  [ -z "$files" ] || echo "$files files in $SECONDS s" >"$folder/build.took"
}

BUILD_PACKAGES=(g++ cmake ninja-build ccache android-libbase-dev android-liblog-dev flatbuffers-compiler
  libflatbuffers-dev libcli11-dev libedit-dev nlohmann-json3-dev nettle-dev)
TEST_PACKAGES=(libgtest-dev libgmock-dev libtinyxml2-dev tshark bluez man-db zsh fish)
