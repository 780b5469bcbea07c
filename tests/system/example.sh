#!/usr/bin/env bash
# The example programs as a user runs them.
# usage: [python_library=FOLDER] example.sh SIMULATOR SEARCH_AND_READ...
# The other programs lie beside this one; the Python program runs where its interpreter can load the library as it is.
# shellcheck source=tests/support/devices.sh
. "$(dirname "$0")/../support/devices.sh" "$@"
example() { "${tool[@]::${#tool[@]}-1}" "${tool[-1]/search_and_read/$1}" "${@:2}"; }

right() { expect_code 0 right example search_and_read 127.0.0.1 example <<<secret | tr -d '\r' >right.out; }
wrong() { expect_code 1 wrong example search_and_read 127.0.0.1 example <<<wrong; }
no_interface() { expect_code 1 "no interface" example search_and_read 127.0.0.1x </dev/null; }
usage() {
  expect_code 2 usage example search_and_read 127.0.0.1 example more
  expect_code 2 "settings: usage" example settings 127.0.0.1 example 123456789012345678901234567890123
  expect_code 2 "copy_large: usage" example copy_large move 127.0.0.1 example file /
}
settings() {
  expect_code 0 settings example settings 127.0.0.1 example "new value" <<<secret | tr -d '\r' >settings.out
}
copies() {
  expect_code 0 put example copy_large put 127.0.0.1 example song.mp3 '\' <<<secret 2>put.err
  expect_code 0 get example copy_large get 127.0.0.1 example '\song.mp3' in <<<secret 2>get.err
  expect_same song.mp3 in/song.mp3
}
nothing_there() {
  expect_code 1 "get: nothing there" example copy_large get 127.0.0.1 example '\other' in <<<secret 2>none.err
  expect_text none.err "(244)"
}
python() {
  [ -n "${python_library-}" ] || return
  list() { LD_LIBRARY_PATH=$python_library python3 "$source_folder/examples/list_folder.py" 127.0.0.1 example "$@"; }
  expect_code 0 python list '\M'$'\303\274''sic' <<<secret >python.out
  expect_text python.out "   1234567  20" "  folder  20" "  a song.mp3"
  expect_code 1 "python: wrong password" list <<<wrong 2>python.err
  expect_text python.err "(3)"
}

mkdir in
head -c 1234567 /dev/urandom >song.mp3
make_volume example.img
mmd -i example.img ::$'M\303\274sic' ::$'M\303\274sic/live'
mcopy -i example.img song.mp3 ::$'M\303\274sic/a song.mp3'
start_simulator 127.0.0.44,example,secret
run_all right wrong no_interface usage settings copies nothing_there python
printf '%s\n' "1 found; the first is example at 127.0.0.44" "(0,2) text: example" "(8,4) number: 256" |
  diff - right.out || fail "$(cat right.out)"
printf '%s\n' "before: " "after: new value" | diff - settings.out || fail "$(cat settings.out)"
[ ! -e failures ]
