# Sourced by what is run in the booted kernel.
set -euo pipefail
. "$(dirname "$0")/../shell.sh"
readonly BUILD=${BUILD:-$PWD/build} LOGS=/run/logs
export PATH=$BUILD:$PATH
mkdir "$LOGS"

# What was not so, and what the processes said last, each into a file of its own.
fail() {
  say "FAILED: $*"
  tail -n 15 $LOGS/*.log || true
  exit 1
}
