#!/usr/bin/env bash
# media-adapter.exe as a person runs it, under Wine, against simulated devices of the machine below.
# usage: command_line.sh MEDIA_ADAPTER SIMULATOR WINE...
set -eu
tool=$1 simulator=$2
shift 2
wine=("$@")
export LC_ALL=C.UTF-8  # in which Wine reads the names of local files
work=$(mktemp -d)
cd "$work"
export MTOOLS_SKIP_CHECK=1
for image in volume full slow; do mkfs.fat -C -F 16 -f 1 $image.img 32768 >/dev/null; done
head -c 33300000 /dev/zero | mcopy -i full.img - ::FILL.BIN
head -c 100000 /dev/urandom | mcopy -i full.img - ::big.bin
"$simulator" --device 127.0.0.77,windows,volume.img,secret >simulator.log &
"$simulator" --device 127.0.0.78,full,full.img --device 127.0.0.79,slow,slow.img --untold-element 8.0 --delay 5 >slow.log &
trap 'kill $(jobs -p) || :; rm -rf "$work"' EXIT
for log in simulator.log slow.log; do
  while ! grep -q ready $log; do sleep 0.05; done
done

fail() { echo "FAILED: $*"; exit 1; }
# run CODE ARGUMENTS...: the tool has to end with this code
run() {
  local wanted=$1 code=0
  shift
  "${wine[@]}" "$tool" "$@" || code=$?
  [ $code = "$wanted" ] || fail "exit code $code, not $wanted: $*"
}
expect_line() { grep -qP -- "$2" "$1" || fail "no \"$2\" in: $(cat "$1")"; }

echo secret >password
mkdir -p "tree/Long Folder" back outside
head -c 300000 /dev/urandom >"tree/Long Folder/Some Song.mp3"
: >tree/empty
echo coffee >tree/Café
chmod a-w tree/empty
run 0 --interface 127.0.0.1 --device windows --password-file password >out 2>err <<'END'
search
format --yes
mkdir -p /music/new
put -r tree /music
ls /music/tree
get -r music/tree back
config set 8.1=11 0.0=two\x20words
config get 8.1 0.0
ip 127.0.0.77 255.0.0.0 127.0.0.1 1 --yes
test --seconds 1
rm /music/tree/empty
ls /music/tree
END
expect_line out '^[0-9]+\twindows\t127\.0\.0\.77\t02:00:7f:00:00:4d$'
expect_line out '^-r--a\t0\t.*\tempty$'
expect_line out '^----a\t7\t.*\tCaf\\xe9$'
expect_line out '^8\.1\tnumber\t11$'
expect_line out '^0\.0\ttext\ttwo words$'
[ "$(grep -c 'Long Folder$' out)" = 2 ] || fail "not listed twice: $(cat out)"
[ ! -s err ] || fail "messages: $(cat err)"
diff -r tree back/tree
fsck.fat -n volume.img >fsck || fail "$(cat fsck)"

run 0 --interface 127.0.0.1 --device windows --password-file password \
  get "/music/tree/Long Folder/Some Song.mp3" - >copy
cmp copy "tree/Long Folder/Some Song.mp3"
run 1 --interface 127.0.0.2x search 2>err
expect_line err 'no interface of this machine has this address \(status 11\)'
run 2 frob 2>err

# What fails leaves nothing for the next file to share; names and times; what a device does not tell.
head -c 400000 /dev/urandom >big.bin
echo next >next.bin
touch -d '2021-03-04 05:06:08' next.bin
run 1 --interface 127.0.0.1 --device full --keep-going -c 'put big.bin next.bin /' -c 'put next.bin "/Another name"' \
  -c 'get "/Another name" back/renamed' -c 'config get 8.0 8.1' -c 'ip 127.0.0.79 255.0.0.0 127.0.0.1 1 --yes' >out 2>err
expect_line err 'put /big.bin: .*\(status 249\): the volume is full, 390.6 KB are needed; the file that was there has been deleted'
expect_line err 'the device slow .* has the address 127.0.0.79 already'
expect_line out '^8\.0\tnot told\t$'
cmp next.bin back/renamed
[ "$(stat -c %Y back/renamed)" = "$(stat -c %Y next.bin)" ] || fail "the time did not come back"
fsck.fat -n full.img >fsck || fail "$(cat fsck)"

# Two runs at once: the second waits.
"${wine[@]}" "$tool" --interface 127.0.0.1 --device slow put big.bin / 2>first.err &
first=$!
run 0 --interface 127.0.0.1 --device slow -c 'put next.bin /' 2>second.err
wait $first || fail "first writer: $(cat first.err)"
cat first.err second.err >both.err
expect_line both.err 'waiting: another run of media-adapter works on device "slow"'
mcopy -i slow.img ::big.bin - | cmp - big.bin
mcopy -i slow.img ::next.bin - | cmp - next.bin
fsck.fat -n slow.img >fsck || fail "$(cat fsck)"
echo "command line test: passed"
