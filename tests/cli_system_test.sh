#!/usr/bin/env bash
# media-adapter as a person runs it: files both ways, refusals, settings, hostile volumes, the terminal.
# usage: cli_system_test.sh MEDIA_ADAPTER_SIM MEDIA_ADAPTER...
# Each test has a device or two of its own; refusals come from the volume of cli-main that test_files has filled. What
# needs a terminal (script) or links is not run under Wine. Needs jq, too.
# shellcheck source=tests/support/devices.sh
. "$(dirname "$0")/support/devices.sh" "$@"

make_files() {
  head -c 3000000 /dev/urandom >BIG.BIN
  make_volume cli-slow.img
  mcopy -i cli-slow.img BIG.BIN ::
  echo secret >password

  mkdir -p "tree/Long Album Name/disc 1" tree/empty
  head -c 300000 /dev/urandom >"tree/Long Album Name/disc 1/Song Number One.mp3"
  : >tree/nothing
  echo coffee >tree/Café
  echo 1 >"tree/[Live]"
  touch -d '2021-03-04 05:06:08' "tree/[Live]"
  chmod a-w tree/Café
}

# Names that lead out of their folder or drive a terminal, and a folder that is its own child.
make_hostile_volume() {
  local image=cli-hostile.img name evil loop
  make_volume $image
  mmd -i $image ::EVIL ::EVIL/LOOPDIR ::EVIL/LINKDIR
  echo x >x
  for name in EVILSLSH.TXT CTRLBYTE.TXT GOOD.TXT LINKFILE.TXT LINKDIR/INNER.TXT; do mcopy -i $image x ::EVIL/$name; done
  LC_ALL=C sed -i 's#EVILSLSHTXT#../EVIL TXT#; s/CTRLBYTETXT/\x1b[31mREDTXT/' $image
  evil=$(LC_ALL=C grep -obUaP 'EVIL {7}\x10' $image | head -1 | cut -d: -f1)
  loop=$(LC_ALL=C grep -obUaP 'LOOPDIR {4}\x10' $image | head -1 | cut -d: -f1)
  dd if=$image bs=1 skip=$((evil + 26)) count=2 2>/dev/null | dd of=$image bs=1 seek=$((loop + 26)) conv=notrunc 2>/dev/null
}

# A script on standard input: a whole tree there and back, one file to standard output, lists for programs and people.
test_files() {
  mkdir files.tmp
  export TMPDIR=$work/files.tmp
  mkdir back
  expect_code 0 "files" on cli-main >files.out 2>files.err <<'END'
format --yes
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
  expect_same "back/[Live]" "tree/[Live]"
  [ "$(stat -c %Y "back/[Live]")" = "$(stat -c %Y "tree/[Live]")" ] || fail "the time did not come back"
  expect_text files.out "----a	0	" "/music"
  local name=Café
  is_windows && name='Caf\\xe9'
  expect_count 1 files.out $'^-r--a\t7\t.*\t'"$name$"
  expect_count 2 files.out 'Live]$'
  expect_count 1 files.out '^x$' # get -
  [ -s files.err ] && fail "notes without a terminal: $(cat files.err)"
  ls -d "$TMPDIR"/.media-adapter-* 2>/dev/null && fail "a temporary folder is left"
  expect_clean cli-main.img
}

# Refusals: the status with its text, the code, where a run stops, and what is looked at before anything is sent.
test_refusals() {
  expect_code 1 "stop" on cli-main -c 'ls /nope' -c 'mkdir /after' >stop.out 2>stop.err
  expect_text stop.err "media-adapter: ls /nope: Invalid path (status 244): there is no /nope on the device"
  expect_code 1 "go on" on cli-main --json --keep-going -c 'ls /after' -c 'rm /music' -c 'put tree /' -c 'get /music/nope' \
    -c 'put nope /' -c 'mkdir /j /j' -c 'ls /' >json.out 2>json.err
  expect_text json.out \
    '{"ok":false,"status":244,"message":"Invalid path","detail":"there is no /after on the device"}' \
    '[{"path":"/music","ok":false,"status":241,"message":"A directory cannot be deleted"}]' \
    '[{"local":"tree","ok":false,"status":null,' '{"path":"/j","ok":false,"status":236,' \
    '{"name":"j","folder":true,"attributes":"d----","size":0,"modified":"20'
  expect_count 7 json.out '' # a line for each command
  expect_not_on_volume cli-main.img /after
}

test_volume() {
  test_files
  test_refusals
}

# usage_case CODE WHAT ARGUMENT...: the messages in usage.err
usage_case() { expect_code "$1" "$2" "${tool[@]}" "${@:3}" </dev/null 2>>usage.err; }
test_usage() {
  local device=(--interface 127.0.0.1 --device cli-usage)
  usage_case 2 "slip in the last command" "${device[@]}" -c 'mkdir /slip' -c 'ls "'
  usage_case 2 "unknown command" frob
  usage_case 2 "format asks, before it looks for the device" --interface 127.0.0.1 --device cli-nobody format
  usage_case 2 "get into no folder" "${device[@]}" get /a /b /c
  usage_case 1 "no such device" --interface 127.0.0.1 --device cli-nobody ls
  usage_case 2 "several devices" --interface 127.0.0.1 ls
  is_windows && elsewhere=127.0.0.2x # Wine binds to any address
  usage_case 1 "an address of another machine" --interface "${elsewhere-198.51.100.7}" search
  expect_text usage.err "no such command: frob" "choose one by name, index, MAC or address with --device" \
    "no interface of this machine has this address (status 11)"
  expect_not_on_volume cli-usage.img /slip
}

# Settings: there and back, checked before sending, secrets only from files; then the device moves.
test_settings() {
  expect_code 1 "no password" on cli-locked config get </dev/null >config.out 2>config.err
  expect_text config.err "Invalid password (status 3)" "--password-file"
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
  expect_text config.err "8.4: must be a number from 256 to 2346" "config load large.json: line 1: the number 1e999 is too large"
  expect_count 2 config.err 'cli-main (02:.*) has the address 127.0.0.71 already' # nothing moves onto another device
  grep -q clear config.err && fail "a secret in a message"
  expect_count 2 config.out $'^8.1\tnumber\t11$' # nothing was sent with a bad neighbour
  grep -qxE $'[1-9][0-9]*\t[0-9]+\t[0-9]+' config.out || fail "no counters: $(cat config.out)"
  expect_text config.out $'10.0\tlist\t02005e000001,02005e000002' $'\tcli-locked\t127.0.0.74\t02:' \
    $'1.0\taddress\t127.0.0.74' $'1.0\taddress\t127.0.0.79'
}

# A device that lacks one element and never tells two: what it does not tell is neither shown nor saved, even when
# another device has just told it.
test_gaps() {
  expect_code 1 "gaps" run --password-file password --keep-going >gaps.out 2>gaps.err <<'END'
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
  expect_count 2 gaps.out $'^8.0\tnot told\t$'
  expect_text gaps.out $'8.2\tnot told\t'
  expect_text gaps.err "config get 8.0: the device does not tell it" "line 8: config set: Invalid element ID (status 2)"
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
  expect_text evil.err "LOOPDIR: skipped" "EVIL.TXT: skipped: no name for a local file"
}

# At a terminal: the bar, notes, a password asked for without echo; an interrupt ends a transfer at once.
test_terminal() {
  terminal bar.tty cli-slow "-c 'get /BIG.BIN .' -c 'test -s 3 15.0=1'" </dev/null
  LC_ALL=C grep -qE '\[#+ *\] [0-9]+% of 2.9 MB' bar.tty || fail "no progress bar"
  grep -q 'MB  [0-9.]* [KM]B/s  0:[0-9]* left' bar.tty || fail "no rate"
  LC_ALL=C.UTF-8 grep -qE ' [1-9][0-9]*  [▁█]+' bar.tty || fail "no plot: $(tail -c 500 bar.tty)"
  expect_text bar.tty "/BIG.BIN -> ./BIG.BIN, 2.9 MB"
  SECONDS=0
  expect_code 130 "interrupt" timeout --preserve-status -s INT 7 "${tool[@]}" --interface 127.0.0.1 --device cli-slow get /BIG.BIN - >/dev/null
  [ $SECONDS -le 8 ] || fail "an interrupted transfer went on"
  ls -d "$TMPDIR"/.media-adapter-* 2>/dev/null && fail "an interrupt left a temporary folder"
}

# The shell asks once for each device, and shows nothing of the answer.
test_prompt() {
  {
    type_after ask.tty "cli-asked:/> " 'connect\n'
    type_after ask.tty "Password of cli-asked" 'secret\n'
    type_after ask.tty connected 'device cli-gaps\nconnect\n'
    type_after ask.tty "Password of cli-gaps" 'secret\n'
    sleep 1
    printf 'device cli-asked\nconnect\n'
    leave_shell
  } | terminal ask.tty cli-asked shell
  expect_count 3 ask.tty '^connected'
  [ "$(grep -o 'Password of' ask.tty | wc -l)" = 2 ] || fail "not asked twice: $(cat ask.tty)"
  grep -q secret ask.tty && fail "the password was shown"
}

make_files
make_hostile_volume
start_simulator "127.0.0.71,cli-main 127.0.0.72,cli-locked,secret 127.0.0.73,cli-hostile 127.0.0.75,cli-asked,secret 127.0.0.77,cli-usage"
start_simulator 127.0.0.76,cli-slow --delay 5
start_simulator 127.0.0.70,cli-gaps,secret --unknown-element 8.2 --untold-element 8.0 --untold-element 2.0
is_windows || posix_tests="test_hostile_volume test_terminal test_prompt"
# shellcheck disable=SC2086  # words
run_all test_volume test_gaps test_usage test_settings ${posix_tests-} && echo "cli system test: passed"
