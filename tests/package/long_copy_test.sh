#!/bin/bash
# A copy of more than 60 seconds, each way: the call gives up with 253, its request goes on, and the example waits for
# its end and has the true status.
#   long_copy_test.sh MEDIA_ADAPTER MEDIA_ADAPTER_SIM
example=$(find "$(realpath "$(dirname "$1")")" -name copy_large -type f)
# shellcheck source=tests/support/devices.sh
. "$(dirname "$0")/../support/devices.sh" "$2" "$example" || exit 1

copy() { # DIRECTION DEVICE FROM TO
  expect_code 0 "$1" "$example" "$1" 127.0.0.1 "${@:2}" </dev/null 2>"$1".err
  expect_text "$1".err "the call returned 253; waiting"
  tr '\r' '\n' <"$1".err >"$1".lines
}
put() {
  copy put slow-put long.bin '\'
  expect_on_volume slow-put.img long.bin long.bin
  expect_clean slow-put.img
}
get() {
  copy get slow-get '\song.mp3' in
  expect_same song.mp3 in/song.mp3
  sed '1,/waiting/d' get.lines | grep -q '^100 %' || fail "no progress after the call gave up: $(cat get.lines)"
}

mkdir in
head -c 170000 /dev/urandom >long.bin
head -c 2650000 /dev/urandom >song.mp3
make_volume slow-get.img
mcopy -i slow-get.img song.mp3 ::
start_simulator "127.0.0.63,slow-put 127.0.0.64,slow-get" --delay 100
run_all put get
