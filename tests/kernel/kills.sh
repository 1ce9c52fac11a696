#!/usr/bin/env bash
# Run in the booted kernel: the service and the bridge are killed KILLS times at random moments, while data goes through the
# kernel's hci0 and comes back. After each hci0 must be back and carry data, and nothing may be left behind. SEED repeats
# a run.
#
# The data is a raw socket's: where a controller goes under an L2CAP socket, this kernel touches what it has freed.
. "$(dirname "$0")/common.sh"
readonly KILLS=${KILLS:-5} SEED=${SEED:-$RANDOM}
readonly LONGEST_MOMENT_MS=600 PATIENCE=60
export BTHAL_ROOT=/run/device BTHAL_LOG=warning

# keep NAME COMMAND...: starts it anew whenever it ends, with the pause that systemd makes.
keep() {
  local log=$LOGS/$1.log
  shift
  while [ ! -e /run/enough ]; do
    "$@" >>"$log" 2>&1 || true
    sleep 0.1
  done
}

service() { pgrep -f '/android.hardware.bluetooth-service'; }
bridge() { pgrep -f '^bthal bridge'; }
echoed() { "$BUILD/tests/hci_echo" 20; }
moment() { sleep "$(printf '0.%03d' $((RANDOM % LONGEST_MOMENT_MS)))"; }

# strike VICTIM: it may just be starting anew; then that is what is killed.
strike() {
  local victim
  until_true "$PATIENCE" "$1" || fail "there is no $1 to kill"
  for victim in $("$1"); do kill -KILL "$victim" 2>/dev/null || true; done
}

# What there is besides files: processes, sockets, nodes and devices, without their numbers.
inventory() {
  {
    pgrep -l '^(bthal|android.hardwar|board)'
    find "$BTHAL_ROOT" /sys/class/bluetooth ! -type d \( ! -type f -o -name '*.new*' -o -name '*.tmp' \)
  } | sed -E '/hci[0-9]+:/d; s#^[0-9]+ ##; s#/(ttySAC|[0-9]+-)[0-9]+$#/\1N#; s#/[0-9]+-N#/N#' | sort
}
as_before() { [ "$(inventory)" = "$before" ]; }

mkdir -m 700 "$BTHAL_ROOT"
dmesg -n 1 # the kernel complains of data on a handle that is not its own
bthal board --patch-records 40 >/dev/null 2>"$LOGS/board.log" &
board=$!
until_true 20 test -e "$BTHAL_ROOT/sys/power/wake_unlock" || fail "no board"
ln -sf /sys/power/wake_lock /sys/power/wake_unlock "$BTHAL_ROOT/sys/power/"
# Once each: one that restarts the service itself lets it wait when it dies often.
keep supervise bthal supervise --once &
supervising=$!
keep bridge bthal bridge vhci &
bridging=$!
keep traffic nice "$BUILD/tests/hci_echo" 1000000000 &
traffic=$!
until_true "$PATIENCE" echoed || fail "no traffic"
before=$(inventory)

RANDOM=$SEED
say "$KILLS kills, SEED=$SEED"
for ((kill = 1; kill <= KILLS; ++kill)); do
  moment
  victims=(service bridge)
  strike "${victims[RANDOM % 2]}"
  # Now and then once more on the way up.
  if ((RANDOM % 4 == 0 && kill < KILLS)); then
    moment
    strike "${victims[RANDOM % 2]}"
    ((++kill))
  fi
  until_true "$PATIENCE" echoed || fail "kill $kill: hci0 is not back"
  until_true "$PATIENCE" as_before || fail "kill $kill: $(diff <(echo "$before") <(inventory))"
  ((kill % 50 != 0)) || say "$kill"
done

touch /run/enough
pkill -TERM -f '^bthal bridge'
wait "$bridging" "$traffic"
[ ! -e /sys/class/bluetooth/hci0 ] || fail "hci0 outlives its bridge"
pkill -TERM -f '^bthal supervise'
wait "$supervising"
[ -z "$(tr -d '[:space:]' </sys/power/wake_lock)" ] || fail "a wake lock is left"
kill "$board"
wait "$board" || true
until_true "$PATIENCE" eval '! pgrep -f "^bthal|/android.hardware"' || fail "left: $(ps -eo args=)"
say "everything as it should be"
