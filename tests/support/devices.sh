# What the scripts share that run a program beside simulated devices. Sourced as: . devices.sh SIMULATOR PROGRAM...
# The world is an empty folder, in which each device's volume is NAME.img; it goes at the end, and the simulators with it.
# Under Wine, PROGRAM is wine.sh with what it runs. Needs mkfs.fat, fsck.fat and mtools.
# shellcheck shell=bash
set -u
# shellcheck disable=SC2034  # it is for those that source this
source_folder=$(realpath "${BASH_SOURCE[0]%/*}/../..")
simulator=$(realpath "$1") tool=("${@:2}")
[ $# = 1 ] || tool[0]=$(realpath "$2")
is_windows() { [[ ${tool[0]} = *wine.sh ]]; }
work=$(mktemp -d)
cd "$work" || exit 1
export PATH=$PATH:/usr/sbin:/sbin MTOOLS_SKIP_CHECK=1 TMPDIR=$work/tmp LC_ALL=C.UTF-8
# Nothing of the user who runs the tests: neither settings nor locks nor notes, an agent or a history.
export XDG_RUNTIME_DIR=$work/run XDG_CONFIG_HOME=$work/config XDG_STATE_HOME=$work/state
unset MEDIA_ADAPTER_INTERFACE MEDIA_ADAPTER_DEVICE MEDIA_ADAPTER_PASSWORD_FILE
mkdir "$TMPDIR" "$XDG_RUNTIME_DIR" "$XDG_CONFIG_HOME" "$XDG_STATE_HOME"
# shellcheck disable=SC2046  # numbers
trap 'kill $(cat simulators 2>/dev/null) 2>/dev/null; rm -rf "$work"' EXIT

# fail TEXT...: also from a run in the background or with its output in a file
exec 3>&1
fail() { echo "FAILED: $*" | tee -a "$work/failures" >&3; }
must() { "$@" >must 2>&1 || { fail "$*: $(tail -n 30 must)"; exit 1; }; }
# expect_code CODE WHAT COMMAND...
expect_code() {
  local wanted=$1 what=$2 code=0
  shift 2
  "$@" || code=$?
  [ "$code" = "$wanted" ] || fail "$what: exit code $code, not $wanted"
}
# expect_text FILE TEXT...: a line with each text
expect_text() {
  local file=$1 text
  for text in "${@:2}"; do grep -qF -- "$text" "$file" || fail "$file: no \"$text\" in: $(head -c 2000 "$file")"; done
}
# expect_count NUMBER FILE PATTERN: so many lines
expect_count() { [ "$(grep -c -- "$3" "$2")" = "$1" ] || fail "$2: not $1 lines \"$3\" in: $(cat "$2")"; }
# expect_lines FILE "LINE|LINE...": these and no others
expect_lines() { diff <(tr '|' '\n' <<<"$2") "$1" >&3 || fail "$1: not the lines above"; }
expect_same() { diff -r "$1" "$2" >/dev/null || fail "$1 and $2 differ"; }
run() { "${tool[@]}" --interface 127.0.0.1 "$@"; }
on() { run --device "$@"; }
# In the background a shell's children ignore SIGINT.
interruptible() { exec env --default-signal=INT "${tool[@]}" --interface 127.0.0.1 "$@"; }
# interrupt WHEN ARGUMENT...: a run that is interrupted when this command has come to its end
interrupt() {
  interruptible "${@:2}" &
  local run=$!
  eval "$1"
  kill -INT $run
  expect_code 130 "interrupted: ${*:2}" wait $run
}
# terminal TEXT-FILE DEVICE COMMAND: standard input is what a person types
terminal() { timeout 60 script -qefc "exec '${tool[0]}' --interface 127.0.0.1 --device $2 $3" "$1" >/dev/null || fail "$1: $(cat "$1")"; }
# type_after FILE TEXT LINE: what a person types when a line of the terminal has this text
type_after() {
  wait_for "$1" "$2"
  sleep 0.2
  printf '%b' "$3"
}
leave_shell() {
  sleep 1
  echo exit
  sleep 1
}

# make_volume IMAGE
make_volume() { truncate -s 8M "$1" && mkfs.fat -F 16 -s 2 -f 1 "$1" >/dev/null || exit 1; }
# start_simulator "ADDRESS,NAME[,PASSWORD] ..." OPTION...: an empty volume is made where there is none. The hardware
# addresses are this run's own, since the tool locks devices by them.
mac=$(printf '02:%02x:%02x:%02x:%02x' $((RANDOM % 256)) $((RANDOM % 256)) $((RANDOM % 256)) $((RANDOM % 256)))
start_simulator() {
  local options=("${@:2}") device address name password log
  for device in $1; do
    IFS=, read -r address name password <<<"$device"
    [ -e "$name.img" ] || make_volume "$name.img"
    options+=(--device "$address,$name,$name.img,$password,$mac:$(printf %02x "${address##*.}")")
  done
  log=$(mktemp)
  setpriv --pdeathsig KILL "$simulator" "${options[@]}" >"$log" 2>&1 3>&- &
  echo $! >>simulators # and still $! behind the call
  wait_for "$log" ready 50
}
# Of a device's volume: expect_on_volume IMAGE PATH FILE: mcopy gives the file back
expect_clean() { fsck.fat -n "$1" >"$1.fsck" || fail "fsck: $(cat "$1.fsck")"; }
expect_on_volume() { mcopy -n -i "$1" "::$2" - 2>/dev/null | cmp -s - "$3" || fail "$1: $2 is not $3"; }
expect_not_on_volume() { ! mdir -i "$1" "::$2" >/dev/null 2>&1 || fail "$1: $2 is there"; }
# expect_volume IMAGE ITEM...: a sound one; an item is PATH=FILE, the name of a local file for that in the root, or !PATH
expect_volume() {
  local item
  for item in "${@:2}"; do
    if [[ $item = !* ]]; then expect_not_on_volume "$1" "${item#!}"; else expect_on_volume "$1" "${item%=*}" "${item#*=}"; fi
  done
  expect_clean "$1"
}
# wait_until TENTHS COMMAND...: until it succeeds
wait_until() {
  for _ in $(seq "$1"); do
    "${@:2}" && return
    sleep 0.1
  done
  fail "not in time: ${*:2}"
  return 1
}
# wait_for FILE TEXT [TENTHS]: until a line has this text
wait_for() { wait_until "${3-300}" grep -qsF -- "$2" "$1" || cat "$1"; }
# wait_for_change FILE: until it is written to
wait_for_change() {
  touch before."$BASHPID"
  wait_until 300 test "$1" -nt before."$BASHPID"
}
# run_all TEST...: side by side, since a run of the tool takes six seconds for its search. Fails when one of them did.
run_all() {
  local test runs=()
  for test; do
    $test &
    runs+=($!)
  done
  wait "${runs[@]}"
  [ ! -e "$work/failures" ]
}
