# Sourced by the scripts that play a whole device with others' programs, in the booted kernel and outside.
say() { printf '== %s\n' "$*"; }

# until_true SECONDS COMMAND...
until_true() {
  local end=$((SECONDS + $1))
  shift
  until "$@" >/dev/null 2>&1; do
    [ "$SECONDS" -lt "$end" ] || return 1
    sleep 0.05
  done
}
