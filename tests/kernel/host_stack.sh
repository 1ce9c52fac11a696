#!/usr/bin/env bash
# Run in the booted kernel: bluetoothd and the kernel's host stack over the service, the controller being the virtual board.
# What a desktop does, ROUNDS times; then the service and the bridge are killed under it.
. "$(dirname "$0")/common.sh"
. "$(dirname "$0")/../bluetoothd.sh"
readonly MONITOR=C2:22:5A:00:00:02 HEADSET=00:22:5A:00:00:04
readonly ROUNDS=${ROUNDS:-3}
export BTHAL_ROOT=/run/device

found() { ctl devices | grep "$1"; }
# attributes DEVICE: its battery's level, and its note.
attributes() {
  local path=/org/bluez/hci0/dev_${1//:/_}
  use "$path/service0006/char0007" "$path/service000a/char000b"
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
start_ctl "$LOGS"
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
  until_true 10 powered no || fail "still powered"
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
