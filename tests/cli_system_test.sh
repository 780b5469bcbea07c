#!/usr/bin/env bash
# media-adapter as a person runs it, against simulated devices on the loopback network.
# usage: cli_system_test.sh MEDIA_ADAPTER MEDIA_ADAPTER_SIM
# Needs mkfs.fat, mtools, jq and script. A run of the tool takes six seconds for its search, so the runs go side by side.
# shellcheck source=tests/support/cli.sh
. "$(dirname "$0")/support/cli.sh" "$1" "$2"

make_volumes() {
  for image in main locked slow hostile asked gaps; do
    truncate -s 32M $image.img
    mkfs.fat -F 16 -f 1 $image.img >/dev/null || exit 1
  done
  head -c 3000000 /dev/urandom >BIG.BIN
  mcopy -i slow.img BIG.BIN ::
  echo secret >password

  mkdir -p "tree/Long Album Name/disc 1" tree/empty
  head -c 300000 /dev/urandom >"tree/Long Album Name/disc 1/Song Number One.mp3"
  : >tree/nothing
  echo 1 >"tree/[Live]"

  # Names that lead out of their folder or drive a terminal, and a folder that is its own child.
  mmd -i hostile.img ::EVIL ::EVIL/LOOPDIR ::EVIL/LINKDIR
  echo x >x
  for name in EVILSLSH.TXT CTRLBYTE.TXT GOOD.TXT LINKFILE.TXT LINKDIR/INNER.TXT; do mcopy -i hostile.img x ::EVIL/$name; done
  LC_ALL=C sed -i 's#EVILSLSHTXT#../EVIL TXT#; s/CTRLBYTETXT/\x1b[31mREDTXT/' hostile.img
  local evil loop
  evil=$(LC_ALL=C grep -obUaP 'EVIL {7}\x10' hostile.img | head -1 | cut -d: -f1)
  loop=$(LC_ALL=C grep -obUaP 'LOOPDIR {4}\x10' hostile.img | head -1 | cut -d: -f1)
  dd if=hostile.img bs=1 skip=$((evil + 26)) count=2 2>/dev/null |
    dd of=hostile.img bs=1 seek=$((loop + 26)) conv=notrunc 2>/dev/null
}

# A script on standard input: a whole tree there and back, one file to standard output, lists for programs and people.
test_files() {
  mkdir back
  expect_code 0 "files" on cli-main >files.out 2>files.err <<'END'
# a comment, and an empty line

mkdir -p /music/new
put -r tree "x" \music\new
cd /music
ls new/tree
get -r new/tree back
get new/x -
cd new/tree
get -o back "[Live]" ../x
ls "[Live]"
cd ../..
rm new/x
ls -a new
pwd
END
  expect_same tree back/tree
  expect_text files.out "----a	0	"
  expect_same "back/[Live]" "tree/[Live]"
  [ "$(grep -c 'Live]$' files.out)" = 2 ] || fail "[Live] is not listed twice: $(cat files.out)"
  expect_text files.out "/music"
  [ "$(grep -cx x files.out)" = 1 ] || fail "get - did not print the file"
  [ -s files.err ] && fail "notes without a terminal: $(cat files.err)"
  ls -d "$TMPDIR"/.media-adapter-* 2>/dev/null && fail "a temporary folder is left"
  fsck.fat -n main.img >fsck.out || fail "fsck: $(cat fsck.out)"
}

# Refusals: the status with its text, the code, where a run stops, and what is looked at before anything is sent.
test_refusals() {
  expect_code 1 "stop" on cli-main -c 'ls /nope' -c 'mkdir /after' >stop.out 2>stop.err
  expect_text stop.err "media-adapter: ls /nope: Invalid path (status 244): there is no /nope on the device"
  expect_code 1 "go on" on cli-main --json --keep-going -c 'ls /after' -c 'rm /music' -c 'put tree /' -c 'get /music/nope' \
    -c 'put nope /' -c 'mkdir /j /j' -c 'ls /' >json.out 2>json.err
  expect_text json.out '{"ok":false,"status":244,"message":"Invalid path","detail":"there is no /after on the device"}'
  expect_text json.out '[{"path":"/music","ok":false,"status":241,"message":"A directory cannot be deleted"}]'
  expect_text json.out '[{"local":"tree","ok":false,"status":null,'
  expect_text json.out '{"path":"/j","ok":false,"status":236,'
  expect_text json.out '{"name":"j","folder":true,"attributes":"d----","size":0,"modified":"20'
  [ "$(wc -l <json.out)" = 7 ] || fail "not one line of JSON a command: $(cat json.out)"
}

test_usage() {
  expect_code 2 "slip in the last command" on cli-main -c 'mkdir /slip' -c 'ls "' 2>usage.err
  expect_code 2 "unknown command" "$tool" frob 2>>usage.err
  expect_code 2 "format asks" on cli-main format </dev/null 2>>usage.err
  expect_code 1 "no such device" on cli-nobody ls 2>>usage.err
  expect_code 2 "several devices" "$tool" --interface 127.0.0.1 ls 2>>usage.err
  expect_code 1 "an address of another machine" "$tool" --interface 198.51.100.7 search 2>>usage.err
  expect_code 2 "get into no folder" on cli-main get /a /b /c 2>>usage.err
  expect_text usage.err "no such command: frob"
  expect_text usage.err "choose one by name, index, MAC or address with --device"
}

# Settings: there and back, checked before sending, secrets only from files; then the device moves.
test_settings() {
  expect_code 1 "no password" on cli-locked config get </dev/null >config.out 2>config.err
  expect_text config.err "Invalid password (status 3)"
  expect_text config.err "--password-file"
  head -c 52 /dev/urandom >key
  echo '{"format": 1, "settings": {"8.1": 13, "8.4": 255, "9.3": "x"}}' >bad.json
  echo '{"format": 1, "settings": {"8.1": 1e999}}' >large.json
  echo '{"format": 1, "settings": {"1.0": "127.0.0.79"}}' >move.json
  on cli-locked --password-file password --keep-going >config.out 2>config.err <<'END'
config set "0.0=Caf\xe9 \\ bar" 8.1=11 10.0=02005e000001,02005e000002 9.3=@key
config save one.json
config load one.json
config save two.json
config get 0.0 8.1 10.0 9.6
config set 8.1=12 8.4=255
config set 9.3=clear
config load bad.json
config load large.json
config get 8.1
ip 127.0.0.71 255.0.0.0 127.0.0.1 1 --yes
config set 1.0=127.0.0.71
test --seconds 2 15.0=1
ip 127.0.0.74 255.0.0.0 127.0.0.1 1 --yes
search cli-locked
config get 1.0
config load move.json
config get 1.0
END
  cmp one.json two.json || fail "save, load, save gives another file"
  expect_text one.json '"0.0": "Caf\\xe9 \\\\ bar"'
  grep -q '"9.3"' one.json && fail "a secret in a settings file"
  expect_text config.err "8.4: must be a number from 256 to 2346"
  grep -q clear config.err && fail "a secret in a message"
  [ "$(grep -c $'^8.1\tnumber\t11$' config.out)" = 2 ] || fail "8.1 was sent with a bad neighbour: $(cat config.out)"
  expect_text config.out $'10.0\tlist\t02005e000001,02005e000002'
  grep -qxE $'[1-9][0-9]*\t[0-9]+\t[0-9]+' config.out || fail "no counters: $(cat config.out)"
  expect_text config.out $'cli-locked\t127.0.0.74\t'
  expect_text config.out $'1.0\taddress\t127.0.0.74'
  expect_text config.out $'1.0\taddress\t127.0.0.79'
  expect_text config.err "config load large.json: line 1: the number 1e999 is too large"
  [ "$(grep -c 'cli-main (02:.*) has the address 127.0.0.71 already' config.err)" = 2 ] || fail "moved onto another device"
}

# A device that lacks one element and never tells two: what it does not tell is neither shown nor saved, even when
# another device has just told it.
test_gaps() {
  expect_code 1 "gaps" "$tool" --interface 127.0.0.1 --password-file password --keep-going >gaps.out 2>gaps.err <<'END'
device cli-asked
config set 8.0=network 8.2=1 2.4=text
config get 8.0
device cli-gaps
config get
config get 8.0 8.1
config get 8.2
config set 8.2=1
config set 8.1=7
config save gaps.json
END
  [ "$(grep -c $'^8.0\tnot told\t$' gaps.out)" = 2 ] || fail "8.0 was told: $(cat gaps.out)"
  expect_text gaps.out $'8.2\tnot told\t'
  expect_text gaps.err "config get 8.0: the device does not tell it"
  expect_text gaps.err "line 8: config set: Invalid element ID (status 2)"
  jq -e '.settings | has("8.0") or has("8.2") or has("2.0") or ."8.1" != 7 | not' gaps.json >/dev/null || fail "gaps.json: $(cat gaps.json)"
}

test_hostile_volume() {
  mkdir -p evil/EVIL outside
  echo keep >outside/file
  ln -s ../../outside/file evil/EVIL/LINKFILE.TXT
  ln -s ../../outside evil/EVIL/LINKDIR
  expect_code 1 "hostile" on cli-hostile -c 'ls /EVIL' -c 'get -r / evil' >evil.out 2>evil.err
  expect_same x evil/EVIL/GOOD.TXT
  expect_text outside/file keep
  [ "$(find evil outside ! -type d | wc -l)" = 4 ] || fail "files went astray: $(find evil outside EVIL*)"
  LC_ALL=C grep -q $'[\x01-\x08\x0b-\x1f]' evil.out evil.err && fail "raw control bytes"
  expect_text evil.out '\x1b[31mRED.TXT'
  expect_text evil.err "LOOPDIR: skipped"
  expect_text evil.err "EVIL.TXT: skipped: no name for a local file"
}

# At a terminal: the bar, notes, a password asked for without echo; an interrupt ends a transfer at once.
test_terminal() {
  expect_code 0 "terminal" script -qec "exec '$tool' --interface 127.0.0.1 --device cli-slow get /BIG.BIN ." bar.tty >/dev/null </dev/null
  LC_ALL=C grep -qE '\[#+ *\] [0-9]+% of 2.9 MB' bar.tty || fail "no progress bar"
  expect_text bar.tty "/BIG.BIN -> ./BIG.BIN, 2.9 MB"
  SECONDS=0
  expect_code 130 "interrupt" timeout --preserve-status -s INT 7 "$tool" --interface 127.0.0.1 --device cli-slow get /BIG.BIN - >/dev/null
  [ $SECONDS -le 8 ] || fail "an interrupted transfer went on"
  ls -d "$TMPDIR"/.media-adapter-* 2>/dev/null && fail "an interrupt left a temporary folder"
}

# The shell asks once for each device, and shows nothing of the answer.
test_prompt() {
  {
    wait_for ask.tty "cli-asked:/> "
    echo connect
    wait_for ask.tty "Password of cli-asked"
    sleep 0.2
    echo secret
    wait_for ask.tty connected
    printf 'device cli-gaps\nconnect\n'
    wait_for ask.tty "Password of cli-gaps"
    sleep 0.2
    echo secret
    sleep 1
    printf 'device cli-asked\nconnect\n'
    sleep 1
    echo exit
    sleep 0.5
  } | script -qefc "exec '$tool' --interface 127.0.0.1 --device cli-asked shell" ask.tty >/dev/null || fail "prompt: $(cat ask.tty)"
  [ "$(grep -c '^connected' ask.tty)" = 3 ] || fail "not connected three times: $(cat ask.tty)"
  [ "$(grep -o 'Password of' ask.tty | wc -l)" = 2 ] || fail "not asked twice: $(cat ask.tty)"
  grep -q secret ask.tty && fail "the password was shown"
}

make_volumes
start_simulator fast.log --device "$(device 127.0.0.71 cli-main main.img)" \
  --device "$(device 127.0.0.72 cli-locked locked.img secret)" --device "$(device 127.0.0.73 cli-hostile hostile.img)" \
  --device "$(device 127.0.0.75 cli-asked asked.img secret)"
start_simulator slow.log --device "$(device 127.0.0.76 cli-slow slow.img)" --delay 5
test_files
start_simulator gaps.log --device "$(device 127.0.0.70 cli-gaps gaps.img secret)" --unknown-element 8.2 --untold-element 8.0 \
  --untold-element 2.0
test_refusals & test_gaps & test_usage & test_settings & test_hostile_volume & test_terminal & test_prompt &
wait_for_runs
expect_not_on_volume main.img /after
expect_not_on_volume main.img /slip
[ ! -e failures ] && echo "cli system test: passed"
