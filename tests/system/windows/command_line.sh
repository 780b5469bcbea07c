#!/usr/bin/env bash
# media-adapter.exe as a person runs it, under Wine, against a simulated device of the machine below.
# usage: command_line.sh MEDIA_ADAPTER SIMULATOR WINE...
set -eu
tool=$1 simulator=$2
shift 2
wine=("$@")
export LC_ALL=C.UTF-8  # in which Wine reads the names of local files
work=$(mktemp -d)
cd "$work"
mkfs.fat -C -F 16 -f 1 volume.img 32768 >/dev/null
"$simulator" --device 127.0.0.77,windows,volume.img,secret >simulator.log &
trap 'kill $!; rm -rf "$work"' EXIT
while ! grep -q ready simulator.log; do kill -0 $!; sleep 0.05; done

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
echo "command line test: passed"
