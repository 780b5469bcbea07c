#!/usr/bin/env bash
# Every example of the manual page and of --help does what it says it does, as far as its exit status tells: each one
# runs as it stands there, in a world that has what the examples speak of.
# usage: cli_examples_test.sh MEDIA_ADAPTER_SIM MEDIA_ADAPTER MANUAL-PAGE
# shellcheck source=tests/support/devices.sh
. "$(dirname "$0")/support/devices.sh" "$1" "$2"
manual=$3

# The one device, with its files, and the local ones.
make_world() {
  export HOME=$work/home PATH=$work/bin:$PATH
  mkdir -p home/backup home/pictures bin album
  printf '#!/bin/sh\nexec "%s" --interface 127.0.0.1 "$@"\n' "${tool[0]}" >bin/media-adapter
  printf '#!/bin/sh\ncat >/dev/null\n' >bin/mpg123
  chmod +x bin/*
  echo song | tee song.mp3 album/one.mp3 album/two.mp3 home/song.wav >cover.jpg
  echo secret >pw
  # Other tests may have devices in this network.
  export MEDIA_ADAPTER_PASSWORD_FILE=$work/pw MEDIA_ADAPTER_DEVICE=Lounge
  head -c 52 /dev/urandom >key
  make_volume Lounge.img
  mmd -i Lounge.img ::/music ::/tapes ::/recordings
  mcopy -i Lounge.img song.mp3 home/song.wav cover.jpg ::/music
  mcopy -i Lounge.img song.mp3 ::/tapes/1999.mp3
}

# The literal blocks of the page's examples, and the examples of --help, a line each, paragraphs with empty lines
# between; lines that go on are put together.
print_examples() {
  sed -n '/^\.Sh EXAMPLES/,/^\.Sh DESCRIPTION/p' "$manual" |
    awk '/^\.Bd/ {inside = 1; next} /^\.Ed/ {inside = 0; print ""} inside' | sed 's/\\e$/\\/' | sed ':a; /\\$/ {N; s/\\\n//; ba}'
  echo
  media-adapter --help | sed -n '/^Examples:/,/^$/ s/^  //p'
}

run_paragraph() { # FILE
  local example
  media-adapter agent # some end it; without one each example would search
  while read -r example; do
    bash -o pipefail -c "$example" >>examples.out 2>"$1.err" </dev/null || fail "example: $example: $(cat "$1.err")"
    echo "$example" >>examples.run
  done <"$1"
}

make_world
start_simulator 127.0.0.99,Lounge,secret
print_examples | awk -v RS= '{print > "paragraph" NR}'
for file in paragraph*; do run_paragraph "$file"; done
media-adapter agent --stop
[ ! -e failures ] && [ "$(wc -l <examples.run)" -gt 15 ] && echo "cli examples test: passed"
