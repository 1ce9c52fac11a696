#!/usr/bin/env bash
# Run in the booted kernel: bluetoothd and the kernel's host stack over the service, the controller being the virtual board.
# What a desktop does, ROUNDS times; then the service and the bridge are killed under it.
. "$(dirname "$0")/common.sh"
readonly MONITOR=C2:22:5A:00:00:02 HEADSET=00:22:5A:00:00:04
readonly ROUNDS=${ROUNDS:-3}
export BTHAL_ROOT=/run/device

# ctl COMMAND...: one question to bluetoothd.
ctl() { timeout 20 bluetoothctl "$@" </dev/null; }
powered() { ctl show | grep 'Powered: yes'; }
unpowered() { ctl show | grep 'Powered: no'; }
found() { ctl devices | grep "$1"; }
# is DEVICE PROPERTY [yes|no]: what bluetoothd knows of it.
is() { ctl info "$1" | grep "$2: ${3:-yes}"; }

# tell COMMAND: to the bluetoothctl that stays, which is also the one that is asked to confirm a pairing.
tell() { printf '%s\n' "$*" >&5; }
# told TEXT: it has printed it since `forget`.
told() { tail -c "+$((heard + 1))" "$LOGS/ctl.log" | grep -a "$1"; }
forget() { heard=$(stat -c %s "$LOGS/ctl.log"); }

# attributes DEVICE: is told of its battery running down, and writes and reads its note, for which the link has to be
# encrypted.
attributes() {
  local path=/org/bluez/hci0/dev_${1//:/_}
  tell "menu gatt"
  forget
  tell "select-attribute $path/service0006/char0007"
  tell "notify on"
  until_true 15 told 'Notify started' || fail "notifications"
  until_true 15 told 'Attribute .*char0007 Value' || fail "no notification"
  tell "notify off"
  tell "select-attribute $path/service000a/char000b"
  forget
  tell 'write "0x68 0x65 0x6c 0x6c 0x6f"'
  until_true 15 told 'Attempting to write' || fail "writing"
  tell read
  until_true 15 told '68 65 6c 6c 6f' || fail "reading what was written"
  tell back
}

mkdir -m 700 "$BTHAL_ROOT"
mkdir -p /run/dbus /var/lib/bluetooth
dbus-daemon --system --fork
bthal board >"$LOGS/board.log" 2>&1 &
bthal supervise >"$LOGS/supervise.log" 2>&1 &
bthal bridge vhci >"$LOGS/bridge.log" 2>&1 &
bridge=$!
/usr/libexec/bluetooth/bluetoothd -d >"$LOGS/bluetoothd.log" 2>&1 &
until_true 20 ctl list || fail "no bluetoothd"
until_true 20 test -e /sys/class/bluetooth/hci0 || fail "no hci0"
until_true 20 eval 'ctl list | grep Controller' || fail "bluetoothd sees no controller"
mkfifo "$LOGS/ctl"
bluetoothctl --agent NoInputNoOutput <"$LOGS/ctl" >"$LOGS/ctl.log" 2>&1 &
exec 5>"$LOGS/ctl"
[ -e /sys/class/rfkill/rfkill0 ] || fail "the kernel gave no rfkill entry"

for round in $(seq "$ROUNDS"); do
  say "round $round"
  ctl power on >/dev/null || fail "power on"
  until_true 10 powered || fail "not powered"
  tell "scan on"
  for name in Thermometer 'Heart monitor' 'Door lock' Headset; do
    until_true 30 found "$name" || fail "$name is not found"
  done
  tell "scan off"
  ctl devices | sort -u
  for device in "$MONITOR" "$HEADSET"; do
    tell "pair $device"
    until_true 20 is "$device" Bonded || fail "$device is not bonded"
  done
  attributes "$MONITOR"
  for device in "$MONITOR" "$HEADSET"; do
    tell "disconnect $device"
    until_true 10 is "$device" Connected no || fail "$device stays connected"
  done
  tell "connect $MONITOR"
  until_true 20 is "$MONITOR" Connected || fail "not connected again"
  attributes "$MONITOR"
  for device in "$MONITOR" "$HEADSET"; do
    tell "remove $device"
    until_true 10 eval "! ctl devices | grep $device" || fail "$device is not removed"
  done
  ctl power off >/dev/null || fail "power off"
  until_true 10 unpowered || fail "still powered"
done

say "the service is killed"
ctl power on >/dev/null && until_true 10 powered || fail "power on"
pkill -KILL -f android.hardware.bluetooth-service
until_true 10 grep -q 'the service has gone' "$LOGS/bridge.log" || fail "the bridge has not noticed"
until_true 20 powered || fail "the adapter is not back"
say "the bridge is killed"
kill -KILL "$bridge"
until_true 10 test ! -e /sys/class/bluetooth/hci0 || fail "hci0 outlives its bridge"
bthal bridge vhci >"$LOGS/bridge.log" 2>&1 &
bridge=$!
until_true 20 powered || fail "the adapter is not back"
kill -TERM "$bridge"
wait "$bridge" || true
[ ! -e /sys/class/bluetooth/hci0 ] || fail "hci0 is left behind"
cat "$LOGS/bridge.log"
say "everything as it should be"
