#!/usr/bin/env bash
# Run in the booted kernel: the service on the nodes of the kernel itself. On the HCI user channel of a controller that is no
# maker's (an emulator's, behind hci0), with its rfkill entry, and no device root; and on the virtual board, with the
# kernel's wake locks.
. "$(dirname "$0")/common.sh"
readonly RFKILL=/sys/class/rfkill/rfkill0/state
export BTHAL_LOG=info

# furnish ROOT: what a service on the user channel needs; the coexistence driver is played.
furnish() {
  mkdir -p "$1/vendor/etc/bluetooth" "$1/data/vendor/bluetooth" "$1/data/vendor/ssrdump/coredump"
  echo 'UserialType = 0' >"$1/vendor/etc/bluetooth/bt_vendor.conf"
  # Between two clients no command of the service's own can be expected to work.
  BTHAL_ROOT=$1 bthal prop set persist.bluetooth.disable.accelerate.bt.on true
  BTHAL_ROOT=$1 bthal prop set ro.vendor.bluetooth.evb_bdaddr AA:BB:CC:DD:EE:FF
  BTHAL_ROOT=$1 bthal board --only coex >>"$LOGS/coex.log" 2>&1 &
  until_true 10 test -e "$1/dev/wbrc" || fail "no coexistence driver"
}

# emulate NUMBER: a controller, as hci<NUMBER>.
emulate() {
  btvirt -l1 >>"$LOGS/emulator.log" 2>&1 &
  emulator=$!
  disown  # whoever ends it says so
  until_true 10 hciconfig "hci$1" || fail "no hci$1"
}

# unplug PID NUMBER
unplug() {
  kill -KILL "$1"
  until_true 10 test ! -e "/sys/class/bluetooth/hci$2" || fail "hci$2 stays"
}

# client COMMAND...: a client from its beginning to its end. What it says is in client.log.
client() { timeout 30 bthal hci "$@" >"$LOGS/client.log" 2>&1; }
served() { client read_bd_addr 'expect success'; }
# refused TEXT: the next client gets no controller, and the service has said TEXT, died, and is there again.
refused() {
  forget
  ! client read_bd_addr || fail "served in spite of: $1"
  grep -q 'Host Open Userial Error' "$LOGS/client.log" || fail "the client is not told of: $1"
  until_true 20 told "userial_socket_open: $1" || fail "the service has not said: $1"
  until_true 20 told 'supervise: started' || fail "the service is not started again"
}
# told TEXT: the service or its supervisor has, since `forget`.
told() { tail -c "+$((heard + 1))" "$LOGS/supervise.log" | grep "$1"; }
forget() { heard=$(stat -c %s "$LOGS/supervise.log"); }
service() { pgrep -P "$supervisor"; }

# stay: a client that stays, and is told what to send by `tell`; `leave` ends it.
stay() {
  rm -f "$LOGS/orders"
  mkfifo "$LOGS/orders"
  bthal hci <"$LOGS/orders" >"$LOGS/staying.log" 2>&1 &
  staying=$!
  exec 5>"$LOGS/orders"
  tell read_bd_addr
  until_true 20 grep 'Read BD_ADDR, success' "$LOGS/staying.log" || fail "the client that stays is not served"
}
tell() { printf '%s\n' "$*" >&5; }
leave() {
  exec 5>&-
  wait "$staying" || true
}

power() { [ "$(cat "$RFKILL")" = "$1" ]; }
locked() { grep -w bthal_wakelock /sys/power/wake_lock; }
unlocked() { ! locked; }

say "no hci0"
furnish ''
bthal supervise >"$LOGS/supervise.log" 2>&1 &
supervisor=$!
refused 'there is no hci0, nor any other'

say "hci0 is there, down or up"
emulate 0
first=$emulator
client read_local_version read_bd_addr 'le_scan 0.2' 'expect success' || fail "not served"
power 0 || fail "no client, but the power is on"
echo 1 >"$RFKILL"
hciconfig hci0 up
served || fail "not served while hci0 was up"
power 0 || fail "the power is on after hci0 was up"

say "the service is killed in use"
stay
power 1 || fail "the power is off in use"
forget
kill -KILL "$(service)"
leave
until_true 20 told 'supervise: started' || fail "the service is not started again"
served || fail "not served after the service was killed"
power 0 || fail "the power is on after the service was killed"

say "another one has hci0"
mkdir -m 700 /run/second
furnish /run/second
echo 1 >"$RFKILL"
BTHAL_ROOT=/run/second bthal supervise >"$LOGS/second.log" 2>&1 &
second=$!
BTHAL_ROOT=/run/second stay
refused 'hci0 is busy: another process has its user channel'
tell read_local_version
until_true 20 grep 'Read Local Version Information, success' "$LOGS/staying.log" || fail "the other one has lost it"
leave
served || fail "not served after the other one has gone"
kill "$second"

say "hci0 goes in use"
stay
forget
unplug "$first" 0
until_true 20 told 'OnDataReady: hci0 has gone' || fail "the service has not noticed"
leave
until_true 20 told 'supervise: started' || fail "the service is not started again"
emulate 0
first=$emulator
served || fail "not served after hci0 has come back"

say "only hci1 is left, then the numbers have gaps"
emulate 1
unplug "$first" 0
refused 'there is no hci0, but hci1'
emulate 0
[ ! -e "$RFKILL" ] || fail "there is no gap"
hciconfig hci0 up
refused "hci0 is up: the kernel's own host stack has it"
echo 1 | tee /sys/class/bluetooth/hci0/rfkill*/soft >/dev/null
refused 'hci0 is blocked by rfkill'
echo 0 | tee /sys/class/bluetooth/hci0/rfkill*/soft >/dev/null
served || fail "not served without an rfkill entry"
kill "$supervisor"
wait "$supervisor" || true

say "the kernel's wake locks"
export BTHAL_ROOT=/run/device
mkdir -m 700 "$BTHAL_ROOT"
bthal board >"$LOGS/board.log" 2>&1 &
board=$!
until_true 20 test -e "$BTHAL_ROOT/sys/power/wake_unlock" || fail "no board"
ln -sf /sys/power/wake_lock /sys/power/wake_unlock "$BTHAL_ROOT/sys/power/"
unlocked || fail "locked before anything has happened"
bthal prop set persist.bluetooth.disable.accelerate.bt.on true
bthal supervise >"$LOGS/supervise.log" 2>&1 &
supervisor=$!
stay
# The end of the bring-up has released it, but the line is up until the controller sleeps for the first time.
until_true 20 grep 'line down' "$LOGS/board.log" || fail "the controller is never let sleep"
unlocked || fail "locked while the controller sleeps"
tell read_bd_addr
until_true 20 locked || fail "not locked while the controller is awake"
until_true 20 unlocked || fail "locked after the controller has been let sleep"
# A bring-up that does not come to its end.
leave
forget
kill -STOP "$board"
client read_bd_addr &
waiting=$!
until_true 20 locked || fail "not locked during a bring-up"
kill -KILL "$(service)"
until_true 20 told 'released the wake lock bthal_wakelock' || fail "the supervisor has not released the lock"
kill -CONT "$board"
wait "$waiting" || true
served || fail "not served after the service was killed"
until_true 20 unlocked || fail "locked at the end"
kill "$supervisor"
wait "$supervisor" || true
say "everything as it should be"
