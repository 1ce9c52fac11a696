# Sourced by play and desktop: boards, services, bridges and stacks, in a folder that is gone afterwards.
set -euo pipefail
. "$(dirname "$0")/../shell.sh"
readonly HERE=$(cd "$(dirname "$0")" && pwd)
readonly EMULATOR=/tmp/bt-server-bredrle
export PATH=$HERE/../../build:$PATH
WORK=$(mktemp -d)
readonly WORK
children=()
party=

fail() {
  say "FAILED: $*"
  tail -n 15 "$WORK"/*.log || true
  exit 1
}

clear_up() {
  for ((i = ${#children[@]} - 1; i >= 0; i--)); do
    kill "${children[i]}" 2>/dev/null || true
    wait "${children[i]}" 2>/dev/null || true
  done
  children=()
}
trap 'clear_up; rm -rf "$WORK"' EXIT

# in_background NAME COMMAND...: until clear_up; what it prints is in NAME.log.
in_background() {
  local name=$1
  shift
  : >"$WORK/$name.log"  # at once: what an earlier one of this name said is not to be taken for its own
  "$@" >>"$WORK/$name.log" 2>&1 &
  children+=($!)
}

# device NAME pty|unix|vhci [OPTION...]: a board with these options and its service; NAME.host is the end for the host.
device() {
  local name=$1 bridge=("$2")
  [ "$2" = vhci ] || bridge+=("$WORK/$1.host")
  shift 2
  export BTHAL_ROOT=$WORK/$name
  rm -rf "$BTHAL_ROOT"
  mkdir -m 700 "$BTHAL_ROOT"
  in_background "$name.board" bthal board --patch-records 8 "$@"
  in_background "$name.service" bthal supervise
  in_background "$name.bridge" bthal bridge "${bridge[@]}" -v
  until_true 60 grep -q ' is there$' "$WORK/$name.bridge.log" || fail "no bridge of $name"
}

# central STACK WHERE NAME..., and peripheral STACK WHERE NAME [CENTRAL] beside it: until peripheral_ends STACK.
central() { node "$HERE/central.js" "$@" || fail "$1 as central"; }
peripheral() {
  node "$HERE/peripheral.js" "$@" &
  party=$!
  children+=("$party")
}
peripheral_ends() { wait "$party" || fail "$1 as peripheral"; }

# emulator: BlueZ's, at EMULATOR and its like.
emulator() {
  in_background emulator btvirt -s
  until_true 60 test -S "$EMULATOR" || fail "no emulator"
}

cd "$WORK"  # where one of the stacks keeps its keys
