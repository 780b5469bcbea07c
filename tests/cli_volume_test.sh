#!/usr/bin/env bash
# media-adapter as a person runs it: nothing is lost on the way to a device's volume and back, whatever fails.
# usage: cli_volume_test.sh MEDIA_ADAPTER MEDIA_ADAPTER_SIM
# Needs mkfs.fat, mtools and script.
# shellcheck source=tests/support/cli.sh
. "$(dirname "$0")/support/cli.sh" "$1" "$2"

# In the background a shell's children ignore SIGINT.
interruptible() { exec env --default-signal=INT "$tool" --interface 127.0.0.1 --device "$@"; }

make_files() {
  for name in old.bin new.bin next.bin; do head -c 1500 /dev/urandom >$name; done
  mkdir new && mv new.bin new/old.bin
  head -c 400000 /dev/urandom >big.bin
  head -c 200000 /dev/urandom >slow.bin
  for image in full stuck dead slow killed shell turns names foreign; do make_volume $image.img; done
  head -c 8000000 /dev/zero | mcopy -i full.img - ::FILL.BIN
  head -c 100000 /dev/urandom | mcopy -i full.img - ::big.bin
  head -c 2000000 /dev/urandom | mcopy -i slow.img - ::BIG.BIN
  for device in stuck dead; do mcopy -i $device.img old.bin ::; done
}

# The old file goes first, so a full volume leaves no entry whose space the next file would share.
test_full_volume() {
  expect_code 1 "full" on vol-full put big.bin next.bin / 2>full.err
  expect_text full.err "put /big.bin: Not enough free memory to allocate (status 249): the volume is full, 390.6 KB are needed"
  expect_text full.err "the file that was there has been deleted"
  expect_on_volume full.img next.bin next.bin
  expect_not_on_volume full.img big.bin
  expect_clean full.img
}

# A device that refuses one write: the first of the deletion, one of the data, that of the entry, that of its chain.
test_refused_writes() {
  local after=$1 image=refused$1.img
  expect_code 1 "refused after $after" on vol-ref"$after" --keep-going -c 'put new/old.bin /' -c 'put next.bin /' 2>refused"$after".err
  expect_text refused"$after".err "put /old.bin: Protocol error (status 8)"
  expect_on_volume "$image" next.bin next.bin
  if [ "$after" = 0 ]; then expect_on_volume "$image" old.bin old.bin; else expect_not_on_volume "$image" old.bin; fi
  expect_clean "$image"
}

# A device that refuses every write once the entry stands: what it left cannot be deleted, so nothing more is written.
test_stuck_device() {
  expect_code 1 "stuck" on vol-stuck --keep-going -c 'put new/old.bin /' -c 'put next.bin /' -c 'mkdir /later' -c 'ls /' \
    >stuck.out 2>stuck.err
  expect_text stuck.err "put /old.bin: Protocol error (status 8): the file that was there has been deleted; /old.bin may be incomplete: delete it (rm) before anything else is written to this device"
  expect_text stuck.err "put /next.bin: Protocol error (status 8): nothing is written: /old.bin may be incomplete"
  [ "$(grep -c 'nothing is written' stuck.err)" = 2 ] || fail "not refused twice: $(cat stuck.err)"
  expect_text stuck.out old.bin
  grep -q 'next\|later' stuck.out && fail "written all the same: $(cat stuck.out)"
  kill "$stuck_simulator"
  start_simulator stuck2.log --device "$(device 127.0.0.83 vol-stuck stuck.img)"
  expect_code 0 "mended" on vol-stuck -c 'rm /old.bin' -c 'put next.bin /'
  expect_on_volume stuck.img next.bin next.bin
  expect_clean stuck.img
  kill "${simulators[-1]}"  # the shell that ends the others does not know of it
}

# A device that is switched off before it links the chain.
test_dead_device() {
  expect_code 1 "dead" on vol-dead put new/old.bin next.bin / 2>dead.err
  expect_text dead.err "put /old.bin: No response from device (status 253): asked \"vol-dead\" (127.0.0.84, "
  expect_text dead.err "/old.bin may be incomplete: delete it (rm)"
  kill "$dead_simulator"
  start_simulator dead2.log --device "$(device 127.0.0.84 vol-dead dead.img)"
  expect_code 0 "revived" on vol-dead -c 'rm /old.bin' -c 'put next.bin /'
  expect_on_volume dead.img next.bin next.bin
  expect_clean dead.img
  kill "${simulators[-1]}"  # the shell that ends the others does not know of it
}

# The first interrupt lets the running request end, the second does not.
test_interrupts() {
  interruptible vol-slow put slow.bin next.bin / 2>slow.err &
  local run=$!
  wait_for_change slow.img
  kill -INT $run
  expect_code 130 "interrupted" wait $run
  expect_text slow.err "the running request comes to its end first"
  expect_text slow.err "put: interrupted; what came after was not begun"
  expect_on_volume slow.img slow.bin slow.bin
  expect_not_on_volume slow.img next.bin
  expect_clean slow.img

  # A good local copy stays when a new one does not come to its end, and nothing lies beside it.
  mkdir kept
  echo good >kept/BIG.BIN
  interruptible vol-slow get /BIG.BIN kept &
  run=$!
  for _ in $(seq 200); do
    compgen -G 'kept/.media-adapter-*/BIG.BIN' >/dev/null && break
    sleep 0.1
  done
  kill -INT $run
  expect_code 130 "get interrupted" wait $run
  grep -qa good kept/BIG.BIN || fail "a good copy was replaced"
  [ "$(ls -A kept)" = BIG.BIN ] || fail "an interrupted get left: $(ls -A kept)"
}
test_second_interrupt() {
  interruptible vol-killed put slow.bin / 2>killed.err &
  local run=$!
  wait_for_change killed.img
  kill -INT $run
  wait_for killed.err "comes to its end first"
  kill -INT $run
  expect_code 130 "killed" wait $run
  expect_text killed.err "stopped at once: /slow.bin may be incomplete: delete it (rm)"
  expect_clean killed.img
}
test_interrupt_in_shell() {
  {
    wait_for shell.tty "vol-shell:/> "
    echo "put slow.bin next.bin /"
    wait_for_change shell.img
    printf '\003'
    wait_for shell.tty "put: interrupted"
    echo "ls /"
    sleep 1
    echo exit
    sleep 1
  } | script -qefc "exec '$tool' --interface 127.0.0.1 --device vol-shell shell" shell.tty >/dev/null || fail "shell: $(cat shell.tty)"
  expect_text shell.tty "back to the prompt"
  expect_text shell.tty "200000"
  expect_on_volume shell.img slow.bin slow.bin
  expect_not_on_volume shell.img next.bin
  expect_clean shell.img
}

# Two runs at once: the second waits, or fails when it may not; both files are there in the end.
test_two_writers() {
  on vol-turns put slow.bin / 2>first.err &
  local first=$!
  sleep 1
  expect_code 1 "not waiting" on vol-turns --no-wait put old.bin / 2>turns.err &
  expect_code 0 "waiting" on vol-turns put next.bin / 2>second.err
  expect_code 0 "first writer" wait $first
  wait_for turns.err "another run of media-adapter works on it"
  expect_text second.err "waiting: another run of media-adapter works on device \"vol-turns\""
  expect_on_volume turns.img slow.bin slow.bin
  expect_on_volume turns.img next.bin next.bin
  expect_not_on_volume turns.img old.bin
  expect_clean turns.img
}

# New names on both sides, times that come back, names that are one on the volume, names that no volume can hold.
test_names_and_times() {
  mkdir -p case/A case/a got taken/a
  for name in case/Song.mp3 case/SONG.MP3 case/A/x case/a/x 'case/what?' 'case/dot.'; do echo "$name" >"$name"; done
  touch -d '2021-03-04 05:06:08' old.bin
  expect_code 1 "names" on vol-names --keep-going -c 'put old.bin "/New Name.bin"' -c 'mkdir /d' -c 'put old.bin /d/a' \
    -c 'put next.bin /D/A' -c 'put -r case /d' -c 'put -r new /copy' -c 'put old.bin /d/nope/x' -c 'put old.bin /d/nope/' \
    -c 'get "/New Name.bin" got' -c 'get /d/a got/b' -c 'get -r /d/case got/tree' -c 'get /d/a got/tree' \
    -c 'get /d/a nowhere/x' -c 'mkdir /d. /.d "/ "' -c 'mkdir /nope/x' -c 'rm /d/nope/x /d/a/x' -c 'cd /d/a' \
    -c 'get /d/a taken' -c 'get /d/a /proc' >names.out 2>names.err
  expect_same old.bin "got/New Name.bin"
  expect_same next.bin got/b
  expect_same next.bin got/tree/a
  expect_on_volume names.img /copy/old.bin new/old.bin
  [ "$(stat -c %Y "got/New Name.bin")" = "$(stat -c %Y old.bin)" ] || fail "the time did not come back"
  expect_text names.err "case/Song.mp3: skipped: on the device it has the name of case/SONG.MP3, /d/case/Song.mp3"
  expect_text names.err "case/a: skipped: on the device it has the name of case/A"
  expect_text names.err 'case/what?: a volume cannot hold "?" in a name'
  expect_text names.err 'case/dot.: a volume cannot hold a name that ends in a dot'
  expect_text names.err 'mkdir /.d: a volume cannot hold a name of a dot'
  expect_text names.err 'mkdir /nope/x: Invalid path (status 244): there is no /nope on the device'
  expect_text names.err 'rm /d/nope/x: Invalid path (status 244): there is no folder /d/nope on the device'
  expect_text names.err 'rm /d/a/x: Invalid path (status 244): /d/a is a file on the device'
  expect_text names.err 'put, into /d/nope: Invalid path (status 244): there is no /d/nope on the device'
  expect_text names.err 'cd /d/a: a file on the device, not a folder'
  expect_text names.err 'get /d/a: skipped: a local folder has this name'
  expect_text names.err 'get /d/a: cannot write into /proc: '
  expect_text got/tree/SONG.MP3 case/SONG.MP3
  expect_text got/tree/A/x case/A/x
  expect_clean names.img
}

# Names beyond ASCII are the same here, on the device and on a PC, and what is printed can be typed back.
test_foreign_names() {
  mkdir -p foreign/Büro back
  echo 1 >"foreign/Grüße.txt"
  echo 2 >"foreign/Büro/Ä und Ö.bin"
  echo 3 >foreign/日本.txt
  printf 'x' >"$(printf 'foreign/\xfc')"
  echo 4 >plain
  mmd -i foreign.img ::/foreign ::/foreign/Büro
  mcopy -i foreign.img plain "$(printf '::/foreign/Tab \u009b.txt')"
  expect_code 1 "foreign" on vol-foreign --keep-going -c 'put -r foreign /' -c 'put plain /foreign/Ÿ' -c 'mkdir /Bücher' \
    -c 'ls /foreign' -c 'put plain "/foreign/Ça là.é"' -c 'get /foreign/Grüße.txt back/grüße' 2>foreign.err >foreign.out
  expect_text foreign.err 'put foreign/日本.txt: a volume cannot hold "日" in a name'
  expect_text foreign.err 'put foreign/\xfc: no valid UTF-8'
  expect_text foreign.err 'put /foreign/Ÿ: a volume cannot hold "Ÿ" in a name: its characters end at U+00FF'
  expect_text foreign.err 'mkdir /Bücher: the name of a new folder cannot hold "ü": only ASCII characters'
  expect_text foreign.out 'Tab \x9b.txt'
  expect_same back/grüße foreign/Grüße.txt
  mdir -b -i foreign.img ::/foreign >foreign.dir
  expect_text foreign.dir ::/foreign/Grüße.txt
  expect_on_volume foreign.img "/foreign/Büro/Ä und Ö.bin" "foreign/Büro/Ä und Ö.bin"
  expect_clean foreign.img
  # Every name as JSON gives it, in a script that copies it, deletes it and copies it to the device again.
  on vol-foreign --json ls /foreign | jq -r '.[] | select(.folder | not).name' >foreign.names
  [ "$(wc -l <foreign.names)" = 3 ] || fail "not three files: $(cat foreign.names)"
  while read -r name; do
    printf 'get "/foreign/%s" back\nrm "/foreign/%s"\n' "$name" "$name"
  done <foreign.names >foreign.script
  echo 'put -r back /' >>foreign.script
  expect_code 0 "names that were printed" on vol-foreign <foreign.script
  for name in Grüße.txt "Ça là.é" "$(printf 'Tab \u009b.txt')"; do
    [ -e "back/$name" ] || fail "no local file $name: $(ls back)"
    expect_on_volume foreign.img "/back/$name" "back/$name"
    expect_not_on_volume foreign.img "/foreign/$name"
  done
  # Tab goes as far as all names go, a character at a time: \303 begins both.
  echo 5 >Äa && echo 6 >Öb
  expect_code 0 "two more" on vol-foreign -c 'mkdir /two' -c 'put Äa Öb /two'
  {
    wait_for tab.tty "vol-foreign:/> "
    printf 'get /two/\t'
    sleep 0.5
    printf 'Ö\tback/tabbed\n'
    wait_for tab.tty "-> back/tabbed"
    echo exit
    sleep 0.5
  } | script -qefc "exec '$tool' --interface 127.0.0.1 --device vol-foreign shell" tab.tty >/dev/null || fail "tab: $(cat tab.tty)"
  expect_same back/tabbed Öb
}

make_files
for after in 0 2 5 6; do
  make_volume refused$after.img
  mcopy -i refused$after.img old.bin ::
  start_simulator refused$after.log --device "$(device 127.0.0.9$after vol-ref$after refused$after.img)" --refuse-write-after $after
done
start_simulator stuck.log --device "$(device 127.0.0.83 vol-stuck stuck.img)" --refuse-write-after 6 --refusals 1000
stuck_simulator=${simulators[-1]}
start_simulator dead.log --device "$(device 127.0.0.84 vol-dead dead.img)" --die-after-writes 6
dead_simulator=${simulators[-1]}
start_simulator slow.log --device "$(device 127.0.0.85 vol-slow slow.img)" --device "$(device 127.0.0.86 vol-killed killed.img)" \
  --device "$(device 127.0.0.87 vol-shell shell.img)" --device "$(device 127.0.0.88 vol-turns turns.img)" --delay 5
start_simulator fast.log --device "$(device 127.0.0.81 vol-full full.img)" --device "$(device 127.0.0.82 vol-names names.img)" \
  --device "$(device 127.0.0.89 vol-foreign foreign.img)"
for after in 0 2 5 6; do test_refused_writes $after & done
test_full_volume & test_stuck_device & test_dead_device & test_interrupts & test_second_interrupt &
test_interrupt_in_shell & test_two_writers & test_names_and_times & test_foreign_names &
wait_for_runs
[ ! -e failures ] && echo "cli volume test: passed"
