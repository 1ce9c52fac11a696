# Sourced by what is run in the booted kernel.
set -euo pipefail
readonly BUILD=${BUILD:-$PWD/build} LOGS=/run/logs
export PATH=$BUILD:$PATH
mkdir "$LOGS"

say() { printf '== %s\n' "$*"; }

# What was not so, and what the processes said last, each into a file of its own.
fail() {
  say "FAILED: $*"
  tail -n 15 $LOGS/*.log || true
  exit 1
}

# until_true SECONDS COMMAND...
until_true() {
  local end=$((SECONDS + $1))
  shift
  until "$@" >/dev/null 2>&1; do
    [ "$SECONDS" -lt "$end" ] || return 1
    sleep 0.05
  done
}
