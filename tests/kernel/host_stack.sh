#!/usr/bin/env bash
# Run in the booted kernel: bluetoothd and the kernel's host stack over the service, the controller being the virtual board.
# What a desktop does, ROUNDS times; then the service and the bridge are killed under it.
set -euo pipefail
readonly BUILD=${BUILD:-$PWD/build} ROUNDS=${ROUNDS:-3}
export BTHAL_ROOT=/tmp/device PATH=$BUILD:$PATH

say() { printf '== %s\n' "$*"; }
fail() {
  say "FAILED: $*"
  tail -n 15 /tmp/bridge.log /tmp/bluetoothd.log || true
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

# ctl COMMAND...: one of bluetoothctl's, which must print nothing that failed.
ctl() { timeout 20 bluetoothctl --agent NoInputNoOutput "$@" </dev/null; }
powered() { ctl show | grep -q 'Powered: yes'; }
unpowered() { ctl show | grep -q 'Powered: no'; }
finds() { ctl devices | grep -q "$1"; }

mkdir -m 700 "$BTHAL_ROOT"
mkdir -p /run/dbus /var/lib/bluetooth
dbus-daemon --system --fork
bthal board >/tmp/board.log 2>&1 &
bthal supervise >/tmp/supervise.log 2>&1 &
bthal bridge vhci >/tmp/bridge.log 2>&1 &
bridge=$!
/usr/libexec/bluetooth/bluetoothd -d >/tmp/bluetoothd.log 2>&1 &
until_true 20 ctl list || fail "no bluetoothd"
until_true 20 test -e /sys/class/bluetooth/hci0 || fail "no hci0"
until_true 20 eval 'ctl list | grep -q Controller' || fail "bluetoothd sees no controller"
[ -e /sys/class/rfkill/rfkill0 ] || fail "the kernel gave no rfkill entry"

for round in $(seq "$ROUNDS"); do
  say "round $round"
  ctl power on >/dev/null || fail "power on"
  until_true 10 powered || fail "not powered"
  timeout 20 bluetoothctl --timeout 4 scan on </dev/null >/tmp/scan.log 2>&1 || true
  for name in Thermometer 'Heart monitor' 'Door lock'; do finds "$name" || { cat /tmp/scan.log; fail "$name is not found"; }; done
  ctl devices | sort -u
  ctl power off >/dev/null || fail "power off"
  until_true 10 unpowered || fail "still powered"
done

say "the service is killed"
ctl power on >/dev/null && until_true 10 powered || fail "power on"
pkill -KILL -f android.hardware.bluetooth-service
until_true 10 grep -q 'the service has gone' /tmp/bridge.log || fail "the bridge has not noticed"
until_true 20 powered || fail "the adapter is not back"
say "the bridge is killed"
kill -KILL "$bridge"
until_true 10 test ! -e /sys/class/bluetooth/hci0 || fail "hci0 outlives its bridge"
bthal bridge vhci >/tmp/bridge.log 2>&1 &
bridge=$!
until_true 20 powered || fail "the adapter is not back"
kill -TERM "$bridge"
wait "$bridge" || true
[ ! -e /sys/class/bluetooth/hci0 ] || fail "hci0 is left behind"
cat /tmp/bridge.log
say "everything as it should be"
