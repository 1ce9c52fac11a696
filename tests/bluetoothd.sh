# Sourced by what has bluetoothd use the controller, behind what says how to `fail`.

# ctl COMMAND...: one question to bluetoothd.
ctl() { timeout 20 bluetoothctl "$@" </dev/null; }
powered() { ctl show | grep "Powered: ${1:-yes}"; }
# is DEVICE PROPERTY [yes|no]: what bluetoothd knows of it.
is() { ctl info "$1" | grep "$2: ${3:-yes}"; }

# start_ctl FOLDER: a bluetoothctl that stays, which is also the one that is asked to confirm a pairing.
start_ctl() {
  ctl_log=$1/ctl.log
  mkfifo "$1/ctl"
  bluetoothctl --agent NoInputNoOutput <"$1/ctl" >"$ctl_log" 2>&1 &
  exec 5>"$1/ctl"
}
# tell COMMAND: to the bluetoothctl that stays. hears TEXT WHAT: it prints TEXT from then on, or WHAT has failed.
tell() {
  heard=$(stat -c %s "$ctl_log")
  printf '%s\n' "$*" >&5
}
hears() { until_true 60 eval "tail -c +$((heard + 1)) '$ctl_log' | grep -a '$1'" || fail "$2"; }

# use LEVEL NOTE: is told of a battery running down, and writes and reads a note, for which the link has to be encrypted.
use() {
  tell "menu gatt"
  tell "select-attribute $1"
  tell "notify on"
  hears 'Value:' "no notification"
  tell "notify off"
  hears 'Notify stopped' "it does not stop"
  tell "select-attribute $2"
  tell 'write "0x68 0x65 0x6c 0x6c 0x6f"'
  hears 'Attempting to write' "writing"
  tell read
  hears '68 65 6c 6c 6f' "reading what was written"
  tell back
}
