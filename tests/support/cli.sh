# What the tests of media-adapter share. Sourced as: . cli.sh MEDIA_ADAPTER MEDIA_ADAPTER_SIM
# shellcheck shell=bash
set -u
tool=$(realpath "$1") simulator=$(realpath "$2")
work=$(mktemp -d)
cd "$work" || exit 1
export MTOOLS_SKIP_CHECK=1 TMPDIR=$work/tmp LC_ALL=C.UTF-8
# Nothing of the user who runs the tests: neither settings nor locks.
export XDG_RUNTIME_DIR=$work/run XDG_CONFIG_HOME=$work/config
unset MEDIA_ADAPTER_INTERFACE MEDIA_ADAPTER_DEVICE MEDIA_ADAPTER_PASSWORD_FILE
mkdir "$TMPDIR" "$XDG_RUNTIME_DIR" "$XDG_CONFIG_HOME"
simulators=()
trap 'kill "${simulators[@]}" 2>/dev/null; rm -rf "$work"' EXIT

# fail TEXT...: also from a run in the background or with its output in a file
exec 3>&1
fail() { echo "FAILED: $*" | tee -a failures >&3; }
# expect_code CODE WHAT COMMAND...
expect_code() {
  local wanted=$1 what=$2 code=0
  shift 2
  "$@" || code=$?
  [ "$code" = "$wanted" ] || fail "$what: exit code $code, not $wanted"
}
# expect_text FILE TEXT: a line with this text
expect_text() { grep -qF -- "$2" "$1" || fail "$1: no \"$2\" in: $(head -c 2000 "$1")"; }
expect_same() { diff -r "$1" "$2" >/dev/null || fail "$1 and $2 differ"; }
on() {
  local device=$1
  shift
  "$tool" --interface 127.0.0.1 --device "$device" "$@"
}

start_simulator() {
  local log=$1
  shift
  "$simulator" "$@" >"$log" 2>&1 3>&- &
  simulators+=($!)
  for _ in $(seq 100); do
    grep -qs ready "$log" && return
    sleep 0.05
  done
  fail "simulator does not start: $(cat "$log")"
  exit 1
}

# make_volume IMAGE [SIZE]
make_volume() {
  truncate -s "${2:-8M}" "$1" && mkfs.fat -F 16 -s 2 -f 1 "$1" >/dev/null || exit 1
}
expect_clean() { fsck.fat -n "$1" >"$1.fsck" || fail "fsck: $(cat "$1.fsck")"; }
# expect_on_volume IMAGE PATH FILE: mcopy gives the file back
expect_on_volume() { mcopy -n -i "$1" "::$2" - 2>/dev/null | cmp -s - "$3" || fail "$1: $2 is not $3"; }
expect_not_on_volume() { ! mdir -i "$1" "::$2" >/dev/null 2>&1 || fail "$1: $2 is there"; }
# wait_for FILE TEXT: until a line has this text
wait_for() {
  for _ in $(seq 300); do
    grep -qsF -- "$2" "$1" && return
    sleep 0.1
  done
  fail "$1: no \"$2\" in time: $(cat "$1")"
}
# wait_for_change FILE: until it is written to
wait_for_change() {
  local before
  before=$(stat -c %y "$1")
  for _ in $(seq 600); do
    [ "$(stat -c %y "$1")" = "$before" ] || return
    sleep 0.05
  done
  fail "$1: not written in time"
}
# wait_for_runs: all that was started in the background but the simulators
wait_for_runs() {
  # shellcheck disable=SC2046
  wait $(jobs -p | grep -vxF "$(printf '%s\n' "${simulators[@]}")")
}
# A device's text for the simulator, with a hardware address of this run's own: the tool locks devices by it.
device() { # ADDRESS NAME IMAGE [PASSWORD]
  local numbers
  numbers=$(printf '02:%02x:%02x:%02x:%02x:%02x' $((RANDOM % 256)) $((RANDOM % 256)) $((RANDOM % 256)) $((RANDOM % 256)) "${1##*.}")
  echo "$1,$2,$3,${4-},$numbers"
}
