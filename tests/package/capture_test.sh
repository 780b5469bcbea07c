#!/bin/bash
# What Wireshark's dissector makes of a simulator's capture, on a network that loses and doubles datagrams; and that the
# dissector and docs/protocol.md know the same elements as the library.
#   capture_test.sh MEDIA_ADAPTER MEDIA_ADAPTER_SIM
# shellcheck source=tests/support/devices.sh
. "$(dirname "$0")/../support/devices.sh" "$2" "$1" || exit 1
dissector=$source_folder/tools/wireshark/media_adapter.lua

sed -nE 's/^    \{([0-9]+), ([0-9]+), (\w+), ([0-9]+), ([0-9]+),.*/\1.\2 \L\3\E \4 \5/p' \
  "$source_folder/protocol/element_table.cpp" | sort >table
sed -nE 's/\["([0-9.]+)"\] = \{"(\w+)", ([0-9]+), ([0-9]+)[^}]*\},? ?/\n\1 \2 \3 \4\n/gp' "$dissector" |
  grep -E '^[0-9]' | grep -vE '^1[56]\.' | sort >of_dissector
sed -nE 's/^\| ([0-9]+\.[0-9]+) \| ([a-z]+) \| ([0-9]+) \|.*/\1 \2 \3 \3/p
         s/^\| ([0-9]+\.[0-9]+) \| ([a-z]+) \| ([0-9]+)-([0-9]+) \|.*/\1 \2 \3 \4/p' \
  "$source_folder/docs/protocol.md" | grep -vE '^1[56]\.' | sort >of_page
[ "$(wc -l <table)" -gt 50 ] || fail "the element table cannot be read"
expect_same table of_dissector
expect_same table of_page

make_volume lounge.img
head -c 300000 /dev/urandom >song.mp3
mcopy -i lounge.img song.mp3 ::
echo secret >password
printf 'plain-text-of-the-secret' >key
start_simulator 127.0.0.61,lounge,secret --busy 1 --seed 3 --loss 0.03 --duplicate 0.03 --pcap capture
# Twice: an equal transfer request of the same number is another request.
on lounge --password-file password --tag 2 -c "get /song.mp3 $TMPDIR" -c "get /song.mp3 $TMPDIR" \
  -c 'config get' -c 'config set 10.2=@key' -c 'test -s 1' >output 2>&1 || fail "$(cat output)"
kill -KILL $!
wait $! 2>/dev/null

shark() { tshark -2 -X "lua_script:$dissector" -r capture "$@" 2>/dev/null; }
fields() { shark -Y "$1" -T fields -E occurrence=a "${@:2}"; }
count() { shark -Y "$1" | wc -l; }
shark -V >all
! grep -E 'Lua Error|Malformed|Size that no' all >wrong || fail "$(head wrong)"
[ "$(count frame)" = "$(count media_adapter)" ] || fail "datagrams that are not dissected"
grep -qF "Value (enciphered)" all && ! grep -qF "$(xxd -p -c 99 key)" all || fail "the secret"
[ "$(count media_adapter.no_response)" = 0 ] || fail "answers that are not found"
[ "$(count 'media_adapter.command == 40 && !media_adapter.retransmission')" = 2 ] || fail "not two transfers"

# Refused by a busy device and sent again after 3 s.
fields 'media_adapter.command == 33 && media_adapter.status == 0' -e media_adapter.time | head -1 >seconds
awk '$1 < 3 || $1 > 4 {exit 1}' seconds || fail "the time of an answer to a request that was sent twice: $(cat seconds)"
# A request's first sending, its repetition and its answer point at each other.
fields 'media_adapter.command == 32 && media_adapter.retransmission' -e media_adapter.original \
  -e media_adapter.response_in | head -1 >again
read -r first answer <again
[ "$(fields "frame.number == $answer" -e media_adapter.request_in)" -gt "$first" ] || fail "links: $(cat again)"
# What the host asks for again is what is missing before some packet, and comes later, once each.
[ "$(count media_adapter.gap)" -gt 0 ] || fail "no gap in the stream; another seed may lose packets"
[ "$(fields media_adapter.missing -e media_adapter.missing | wc -l)" -ge "$(count media_adapter.gap)" ] || fail "missing"
[ "$(fields 'media_adapter.element == "8.1"' -e media_adapter.element | wc -l)" -ge 2 ] || fail "no element by name"
[ ! -e failures ]
