#!/usr/bin/env bash
# The example program as a user runs it.
# usage: example.sh SIMULATOR PROGRAM...
# shellcheck source=tests/support/devices.sh
. "$(dirname "$0")/../support/devices.sh" "$@"
right() { expect_code 0 right "${tool[@]}" 127.0.0.1 example <<<secret | tr -d '\r' >right.out; }
wrong() { expect_code 1 wrong "${tool[@]}" 127.0.0.1 example <<<wrong; }
no_interface() { expect_code 1 "no interface" "${tool[@]}" 127.0.0.1x </dev/null; }
usage() { expect_code 2 usage "${tool[@]}" 127.0.0.1 example more; }
start_simulator 127.0.0.44,example,secret
run_all right wrong no_interface usage
printf '%s\n' "1 found; the first is example at 127.0.0.44" "(0,2) text: example" "(8,4) number: 256" |
  diff - right.out || fail "$(cat right.out)"
[ ! -e failures ]
