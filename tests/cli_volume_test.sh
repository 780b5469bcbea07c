#!/usr/bin/env bash
# media-adapter as a person runs it: nothing is lost on the way to a device's volume and back, whatever fails.
# usage: cli_volume_test.sh MEDIA_ADAPTER_SIM MEDIA_ADAPTER...
# Each test has a device of its own, vol-NAME with the volume vol-NAME.img. What needs a terminal (script), signals or
# names that Windows does not have is not run under Wine. Needs jq, too.
# shellcheck source=tests/support/devices.sh
. "$(dirname "$0")/support/devices.sh" "$@"

make_files() {
  for name in old.bin new.bin next.bin; do head -c 1500 /dev/urandom >$name; done
  mkdir new same && mv new.bin new/old.bin && cp -p old.bin same
  head -c 400000 /dev/urandom >big.bin
  head -c 200000 /dev/urandom >slow.bin
  for name in full stuck dead slow foreign later half ref0 ref1 ref2 ref5 ref6 move1 move4 move6 compared; do make_volume vol-$name.img; done
  { echo =MARK= && head -c 16000 /dev/urandom; } >mark.bin
  mcopy -i vol-compared.img mark.bin ::
  head -c 8000000 /dev/zero | mcopy -i vol-full.img - ::FILL.BIN
  head -c 100000 /dev/urandom | mcopy -i vol-full.img - ::big.bin
  head -c 2000000 /dev/urandom | mcopy -i vol-slow.img - ::BIG.BIN
  for name in stuck dead later ref0 ref1 ref2 ref5 ref6 move1 move4 move6; do TZ=UTC mcopy -m -i vol-$name.img old.bin ::; done
  mkdir G && (cd G && touch F{1..30}) # with its own two, all places of a cluster; the free ones hold something
  cp old.bin "A name that takes four places.bin"
  mcopy -i vol-half.img G/F{1..14} ::
  mcopy -i vol-later.img -s G big.bin :: && mdel -i vol-later.img ::/big.bin
}

# The old file goes first, so a full volume leaves no entry whose space the next file would share.
test_full_volume() {
  expect_code 1 "full" on vol-full put big.bin next.bin / 2>full.err
  expect_text full.err "put /big.bin: Not enough free memory to allocate (status 249): the volume is full, 390.6 KB are needed" \
    "the file that was there has been deleted"
  expect_volume vol-full.img next.bin !big.bin
}

# A device that refuses one write: one of the two of the deletion, one of the data, that of the entry, that of its chain.
test_refused_writes() { # WRITES: so many are done before it
  local name=vol-ref$1
  start_simulator "127.0.0.9$1,$name" --refuse-write-after "$1"
  expect_code 1 "$name" on "$name" --keep-going -c 'put new/old.bin /' -c 'put next.bin /' 2>"$name.err"
  expect_text "$name.err" "put /old.bin: Protocol error (status 8)"
  [ "$1" != 0 ] || expect_text "$name.err" "/old.bin is still there; nothing was written in its place"
  [ "$1" != 1 ] || expect_text "$name.err" "/old.bin is gone, and its space may not all be free again; nothing was written"
  [ "$1" != 1 ] || fsck.fat -a "$name.img" >"$name.fsck"
  expect_volume "$name.img" next.bin "$([ "$1" = 0 ] || echo !)old.bin"
}

# A device that refuses the sector with the first part of a long name: what is there under a part of it goes.
test_half_a_name() {
  start_simulator 127.0.0.94,vol-half --refuse-write-after 4
  expect_code 1 "half a name" on vol-half --keep-going -c 'put "A name that takes four places.bin" /' -c 'put next.bin /' 2>half.err
  expect_text half.err "Protocol error (status 8): /A name that t, which it left, has been deleted"
  expect_volume vol-half.img next.bin
}

# A move that fails half-way, in its data, its chain or the deletion of the source: one of the two is whole.
test_refused_moves() { # WRITES: so many are done before it
  local name=vol-move$1
  start_simulator "127.0.0.10$1,$name" --refuse-write-after "$1" --refusals 1000
  expect_code 1 "$name" on "$name" mv /old.bin /new.bin 2>"$name.err"
  if [ "$1" -lt 5 ]; then
    expect_text "$name.err" "mv /old.bin: Protocol error (status 8): " "/old.bin stays"
    expect_on_volume "$name.img" old.bin old.bin
  else
    expect_text "$name.err" "/old.bin is gone, and its space may not all be free again; /new.bin is whole"
    expect_on_volume "$name.img" new.bin old.bin
  fi
}

# What comes back of a copy is compared: the change of one byte on the volume costs the copy, not the source.
has_two_copies() { [ "$(grep -obUa =MARK= vol-compared.img | wc -l)" = 2 ]; }
test_changed_copy() {
  on vol-compared mv /mark.bin /copy.bin 2>compared.err &
  local run=$!
  wait_until 300 has_two_copies
  printf X | dd of=vol-compared.img bs=1 conv=notrunc seek="$(grep -obUa =MARK= vol-compared.img | tail -1 | cut -d: -f1)" 2>/dev/null
  expect_code 1 "a copy that is another" wait $run
  expect_text compared.err "mv /mark.bin: what came back of /copy.bin is not what went there; it was deleted: /mark.bin stays"
  expect_volume vol-compared.img mark.bin !copy.bin
}

# A device that refuses every write once the entry stands: what it left cannot be deleted, so nothing more is written.
# Size and time of the file are right then, but its space still counts as free: it is not taken for the whole.
test_stuck_device() {
  start_simulator 127.0.0.83,vol-stuck --refuse-write-after 6 --refusals 1000
  local stuck=$!
  expect_code 1 "stuck" on vol-stuck --keep-going -c 'put new/old.bin /' -c 'put next.bin /' -c 'mkdir /later' -c 'ls /' \
    >stuck.out 2>stuck.err
  expect_text stuck.err "put /old.bin: Protocol error (status 8): the file that was there has been deleted; /old.bin may be incomplete: delete it (rm) before anything else is written to this device" \
    "put /next.bin: Protocol error (status 8): nothing is written: /old.bin may be incomplete"
  expect_count 2 stuck.err 'nothing is written'
  expect_text stuck.out old.bin
  grep -q 'next\|later' stuck.out && fail "written all the same: $(cat stuck.out)"
  kill "$stuck"
  start_simulator 127.0.0.83,vol-stuck
  expect_code 1 "mended" on vol-stuck --keep-going -c 'get /old.bin .' -c 'sync -n new /' -c 'rm /old.bin' -c 'put next.bin /' \
    >stuck.out 2>stuck.err
  expect_text stuck.err "/old.bin was left incomplete by an earlier run" "get /old.bin: left incomplete"
  expect_text stuck.out "1 file copied, 1500 bytes, 0 skipped, 0 failed, "
  expect_volume vol-stuck.img next.bin
}

# What one run leaves half done the next ones know of: a folder until a PC has mended it, a volume until it is cleared.
# A folder that grew may list what its new cluster held before.
restart_later() {
  kill $!
  start_simulator 127.0.0.87,vol-later "$@"
}
test_later_runs() {
  start_simulator 127.0.0.87,vol-later --refuse-write-after 1 --refusals 1000
  expect_code 1 "half a folder" on vol-later mkdir /d 2>later.err
  restart_later
  expect_code 1 "behind half a folder" on vol-later put next.bin / 2>>later.err
  for _ in 1 2 3; do fsck.fat -a vol-later.img >later.fsck; done
  restart_later --refuse-write-after 1
  expect_code 1 "half grown" on vol-later --keep-going -c 'put next.bin /G' -c 'put next.bin /' 2>>later.err
  restart_later --refuse-write-after 1 --refusals 1000
  expect_code 1 "half a format" on vol-later format --yes 2>>later.err
  restart_later
  expect_code 1 "behind half a format" on vol-later --keep-going -c 'sync same /' -c 'format --yes' -c 'put next.bin /' >later.out 2>>later.err
  expect_text later.err "mkdir /d: Protocol error (status 8): the folder /d may be incomplete: have the volume checked" \
    "left by an earlier run: the folder /d may be incomplete" "put /next.bin: nothing is written: the folder /d may be" \
    "put /G/next.bin: Protocol error (status 8): the folder /G may be incomplete" "nothing is written: the folder /G may" \
    "left by an earlier run: the folder /G may" \
    "format: Protocol error (status 8): the volume may be cleared in part: format it again before anything else is" \
    "left by an earlier run: the volume may be" "sync /old.bin: nothing is written: the volume may be cleared in part"
  expect_volume vol-later.img next.bin !old.bin !d !G
}

# A device whose process is killed in the middle of a file: what it has acknowledged it keeps.
has_lines() { [ "$(wc -l <"$2")" -ge "$1" ]; }
test_dead_device() {
  start_simulator 127.0.0.84,vol-dead --delay 1 --log-writes writes
  local dead=$! first count
  expect_code 1 "dead" on vol-dead put big.bin next.bin / 2>dead.err &
  local run=$!
  wait_until 300 has_lines 300 writes
  kill -KILL "$dead"
  read -r first _ <writes
  count=$(wc -l <writes)
  [ "$(cat writes)" = "$(seq -f '%.0f 1' "$first" $((first + count - 1)))" ] || fail "not one sector after the other: $(cat writes)"
  [ "$count" -lt 782 ] || fail "not killed in the middle"
  tail -c +$((first * 512 + 1)) vol-dead.img | cmp -n $((count * 512)) - big.bin || fail "the device lost what it has acknowledged"
  wait $run
  expect_text dead.err "put /big.bin: No response from device (status 253): asked \"vol-dead\" (127.0.0.84, " \
    "/big.bin may be incomplete: delete it (rm)"
  start_simulator 127.0.0.84,vol-dead
  expect_code 0 "revived" on vol-dead put big.bin next.bin /
  expect_volume vol-dead.img big.bin next.bin
}

# The first interrupt lets the running request end, the second does not.
test_interrupts() {
  interrupt "wait_for_change vol-slow.img" --device vol-slow put slow.bin next.bin / 2>slow.err
  expect_text slow.err "the running request comes to its end first" "put: interrupted; what came after was not begun"
  expect_volume vol-slow.img slow.bin !next.bin

  # A good local copy stays when a new one does not come to its end, and nothing lies beside it.
  mkdir kept
  echo good >kept/BIG.BIN
  interrupt "wait_until 200 compgen -G 'kept/.media-adapter-*/BIG.BIN' >/dev/null" --device vol-slow get /BIG.BIN kept
  grep -qa good kept/BIG.BIN || fail "a good copy was replaced"
  [ "$(ls -A kept)" = BIG.BIN ] || fail "an interrupted get left: $(ls -A kept)"
}
test_second_interrupt() {
  # shellcheck disable=SC2016  # the run is known later
  interrupt 'wait_for_change vol-killed.img; kill -INT $run; wait_for killed.err "comes to its end first"' \
    --device vol-killed put slow.bin / 2>killed.err
  expect_text killed.err "stopped at once: /slow.bin may be incomplete: delete it (rm)"
  expect_clean vol-killed.img
}

# Two runs at once: the second waits, or fails when it may not; all files are there in the end.
test_two_writers() {
  on vol-turns put big.bin slow.bin / 2>first.err &
  local first=$!
  wait_for_change vol-turns.img
  expect_code 1 "not waiting" on vol-turns --no-wait put old.bin / 2>turns.err &
  expect_code 0 "waiting" on vol-turns put next.bin / 2>second.err
  expect_code 0 "first writer" wait $first
  wait_for turns.err "another run of media-adapter works on it"
  expect_text second.err "waiting: another run of media-adapter works on device \"vol-turns\""
  expect_volume vol-turns.img big.bin slow.bin next.bin !old.bin
}

# New names on both sides, names that are one on the volume, names that no volume can hold.
test_names() {
  mkdir -p case/A case/a got taken/a
  for name in case/Song.mp3 case/SONG.MP3 case/A/x case/a/x 'case/what?' 'case/dot.'; do echo "$name" >"$name"; done
  expect_code 1 "names" on vol-names --keep-going -c 'put old.bin "/New Name.bin"' -c 'mkdir /d' -c 'put old.bin /d/a' \
    -c 'put next.bin /D/A' -c 'put -r case /d' -c 'put -r new /copy' -c 'put old.bin /d/nope/x' -c 'put old.bin /d/nope/' \
    -c 'get "/New Name.bin" got' -c 'get /d/a got/b' -c 'get -r /d/case got/tree' -c 'get /d/a got/tree' \
    -c 'get /d/a nowhere/x' -c 'mkdir /d. /.d "/ "' -c 'mkdir /nope/x' -c 'rm /d/nope/x /d/a/x' -c 'cd /d/a' \
    -c 'get /d/a taken' -c 'get /d/a /proc' >names.out 2>names.err
  expect_same old.bin "got/New Name.bin"
  expect_same next.bin got/b
  expect_same next.bin got/tree/a
  expect_volume vol-names.img /copy/old.bin=new/old.bin
  expect_text names.err "case/Song.mp3: skipped: on the device it has the name of case/SONG.MP3, /d/case/Song.mp3" \
    "case/a: skipped: on the device it has the name of case/A" \
    'case/what?: a volume cannot hold "?" in a name' 'case/dot.: a volume cannot hold a name that ends in a dot' \
    'mkdir /.d: a volume cannot hold a name of a dot' \
    'mkdir /nope/x: Invalid path (status 244): there is no /nope on the device' \
    'rm /d/nope/x: Invalid path (status 244): there is no folder /d/nope on the device' \
    'rm /d/a/x: Invalid path (status 244): /d/a is a file on the device' \
    'put, into /d/nope: Invalid path (status 244): there is no /d/nope on the device' \
    'cd /d/a: a file on the device, not a folder' 'get /d/a: skipped: a local folder has this name' \
    'get /d/a: cannot write into /proc: '
  expect_text got/tree/SONG.MP3 case/SONG.MP3
  expect_text got/tree/A/x case/A/x
}

# Names beyond ASCII are the same here, on the device and on a PC, and what is printed can be typed back.
test_foreign_names() {
  mkdir -p foreign/Büro back
  echo 1 >"foreign/Grüße.txt"
  echo 2 >"foreign/Büro/Ä und Ö.bin"
  echo 3 >foreign/日本.txt
  printf 'x' >"$(printf 'foreign/\xfc')"
  echo 4 >plain
  mmd -i vol-foreign.img ::/foreign ::/foreign/Büro
  mcopy -i vol-foreign.img plain "$(printf '::/foreign/Tab \u009b.txt')"
  expect_code 1 "foreign" on vol-foreign --keep-going -c 'put -r foreign /' -c 'put plain /foreign/Ÿ' -c 'mkdir /Bücher' \
    -c 'ls /foreign' -c 'put plain "/foreign/Ça là.é"' -c 'get /foreign/Grüße.txt back/grüße' 2>foreign.err >foreign.out
  expect_text foreign.err 'put foreign/日本.txt: a volume cannot hold "日" in a name' 'put foreign/\xfc: no valid UTF-8' \
    'put /foreign/Ÿ: a volume cannot hold "Ÿ" in a name: its characters end at U+00FF' \
    'mkdir /Bücher: the name of a new folder cannot hold "ü": only ASCII characters'
  expect_text foreign.out 'Tab \x9b.txt'
  expect_same back/grüße foreign/Grüße.txt
  mdir -b -i vol-foreign.img ::/foreign >foreign.dir
  expect_text foreign.dir ::/foreign/Grüße.txt
  expect_volume vol-foreign.img "/foreign/Büro/Ä und Ö.bin=foreign/Büro/Ä und Ö.bin"
  # Every name as JSON gives it, in a script that copies it, deletes it and copies it to the device again.
  on vol-foreign --json ls /foreign | jq -r '.[] | select(.folder | not).name' >foreign.names
  expect_count 3 foreign.names ''
  # shellcheck disable=SC2016  # the last line of sed's
  sed 's#.*#get "/foreign/&" back\nrm "/foreign/&"#; $aput -r back /' foreign.names >foreign.script
  expect_code 0 "names that were printed" on vol-foreign <foreign.script
  for name in Grüße.txt "Ça là.é" "$(printf 'Tab \u009b.txt')"; do
    expect_volume vol-foreign.img "/back/$name=back/$name" "!/foreign/$name"
  done
  # Tab goes as far as all names go, a character at a time: \303 begins both.
  echo 5 >Äa && echo 6 >Öb
  expect_code 0 "two more" on vol-foreign -c 'mkdir /two' -c 'put Äa Öb /two'
  {
    type_after tab.tty "vol-foreign:/> " 'get /two/\t'
    sleep 0.5
    printf 'Ö\tback/tabbed\n'
    wait_for tab.tty "-> back/tabbed"
    leave_shell
  } | terminal tab.tty vol-foreign shell
  expect_same back/tabbed Öb
}

# A tree with names that look like patterns, a file that patterns do not see, and times of its own.
make_tree() {
  local name number=10
  mkdir '[x]'
  for name in '[x]/o1.bin' '[x]/o2.bin'; do echo "$name" >"$name"; done
  make_volume vol-tree.img
  mmd -i vol-tree.img ::/music ::/music/live ::/music/empty
  for name in a1.mp3 a2.MP3 b.txt live/a3.mp3 live/.hidden.mp3 "live/long name.mp3"; do
    head -c $((++number * 100)) /dev/urandom >item
    touch -d "2020-01-02 03:04:$((number * 2))" item
    mcopy -m -i vol-tree.img item "::/music/$name"
    cp item "${name##*/}"
  done
}

# Patterns on both sides, quoted or not; ls in its forms. What is deleted is what was meant.
test_patterns() {
  expect_code 1 "patterns" on vol-tree --keep-going >tree.out 2>tree.err <<'END'
put -r [[]x] /
ls -1 /music/*.mp3 /**/[!a]*.mp3
ls -d -1 /*/?1.* /**/live/** /music/**/**/a?.mp3
ls -1 -r -S /music
cd /music
ls -t -h live
ls -R -1 ../mus*
rm "/[x]/*.bin" /*/nothing* live/?3.mp3
ls -d -1 /[x] /[x]/o* "/mus*" /mu[r-t]ic
put "[x]/o*" [x]/o2* /music/empty
rm /[x]/o1*
ls -1 /[[]x] empty
get /[x]/*.bin copy.bin
get /**/live/.h* copied
get /music/*.mp3 copied
END
  expect_lines tree.out "/music/a1.mp3|/music/a2.MP3|/music/live/long name.mp3|/[x]/o1.bin|/music/a1.mp3|/music/a1.mp3|/music/a2.MP3|\
/music/live/a3.mp3|/music/live/a3.mp3|/music/live/long name.mp3|live|empty|a1.mp3|a2.MP3|b.txt|\
----a	1.6K	2020-01-02 03:04:32	long name.mp3|----a	1.5K	2020-01-02 03:04:30	.hidden.mp3|\
----a	1.4K	2020-01-02 03:04:28	a3.mp3|/music:|a1.mp3|a2.MP3|b.txt|empty|live||/music/empty:||/music/live:|\
.hidden.mp3|a3.mp3|long name.mp3|/[x]|/[x]/o1.bin|/[x]/o2.bin|/music|/[x]:|o2.bin||/music/empty:|o2.bin"
  expect_text tree.err "line 8: rm /[x]/*.bin: Invalid path (status 244): nothing on the device matches /[x]/*.bin" \
    "line 8: rm /*/nothing*: Invalid path" 'line 9: ls /mus*: ' 'line 10: put [x]/o*: no such local file' \
    "line 15: get: 2 items match, but copied is no folder"
  expect_count 5 tree.err ''
  expect_same copy.bin '[x]/o2.bin'
  expect_same copied .hidden.mp3
  look_at_tree
  change_tree
}

# What test_patterns has left.
look_at_tree() {
  expect_code 1 "looking" on vol-tree --keep-going >look.out 2>look.err <<'END'
tree --color=always /music
tree -L 1 -d -h / /nope
du -b -a /music
du -s -c -h /music/*
find /music -type f -size +1k -name "*.mp3" -newermt "2020-01-02 03:04:24"
find /music /[x] -iname A*.* -maxdepth 1
find / -mtime -1 -type f -mindepth 2 -name o*
cat /music/empty/* /[x]/o2.bin
cat /music
END
  is_windows && sed -i 's/|-- /├── /; s/`-- /└── /; s/|   /│   /' look.out
  diff - look.out <<END || fail "looking: not the output above"
$(printf '\033[01;34m/music\033[0m')
├── a1.mp3
├── a2.MP3
├── b.txt
├── $(printf '\033[01;34mempty\033[0m')
│   └── o2.bin
└── $(printf '\033[01;34mlive\033[0m')
    ├── .hidden.mp3
    └── long name.mp3

2 folders, 6 files
/
├── [   0]  [x]
└── [   0]  music

2 folders
1500	/music/live/.hidden.mp3
1600	/music/live/long name.mp3
3100	/music/live
11	/music/empty/o2.bin
11	/music/empty
1100	/music/a1.mp3
1200	/music/a2.MP3
1300	/music/b.txt
6711	/music
1.1K	/music/a1.mp3
1.2K	/music/a2.MP3
1.3K	/music/b.txt
11	/music/empty
3.1K	/music/live
6.6K	total
/music/live/.hidden.mp3
/music/live/long name.mp3
/music/a1.mp3
/music/a2.MP3
/music/empty/o2.bin
/[x]/o2.bin
[x]/o2.bin
[x]/o2.bin
END
  expect_text look.err "tree /nope: Invalid path (status 244): there is no /nope" "cat /music: a folder cannot go to standard output"
  expect_count 2 look.err ''
  on vol-tree --json -c 'tree /music/empty' -c 'du -s /music' -c 'cp /music/empty/o2.bin /music/empty/O3.bin' \
    -c 'find /music/empty -iname *3*' -c 'rm -r /music/empty/o3.*' | jq -c '.[] | del(.modified, .contents[]?.modified)' >look.json
  diff - look.json <<'END' || fail "JSON: not the output above"
{"path":"/music/empty","contents":[{"name":"o2.bin","folder":false,"attributes":"----a","size":11,"path":"/music/empty/o2.bin"}]}
{"path":"/music","size":6711,"files":6}
{"path":"/music/empty/o2.bin","to":"/music/empty/O3.bin","size":11,"ok":true,"status":0,"message":"Operation successful"}
{"name":"O3.bin","folder":false,"attributes":"----a","size":11,"path":"/music/empty/O3.bin"}
{"path":"/music/empty/O3.bin","ok":true,"status":0,"message":"Operation successful"}
END
}

# cp, mv and rm -r: every file is somewhere, whole, and the folders stay.
change_tree() {
  expect_code 1 "changing" on vol-tree --keep-going >change.out 2>change.err <<'END'
cp -v /music/a* /music/b.txt /[x]
mv -v /music/b.txt /music/live/B.TXT
mv -v /music/a1.mp3 /music/A1.mp3
mv "/music/live/long name.mp3" /music/x
cp /music/a2.mp3 /music/A2.MP3
cp -r /music /music/live
cp /music/A1.mp3 /[x]/a1.mp3 /music/empty
cp -n /music/a2.mp3 /music/A1.mp3
mv /music/a2.mp3 /music/A1.mp3
cp -r /music /copy
mv -r /copy/live /[x]
rm -r /
rm -r /copy
rm -r -f /music/l* /nope
find /
END
  expect_lines change.out "/music/a1.mp3 -> /[x]/a1.mp3|/music/a2.MP3 -> /[x]/a2.MP3|/music/b.txt -> /[x]/b.txt|\
/music/b.txt -> /music/live/B.TXT|/music/a1.mp3 -> /music/A1.mp3|/|/music|/music/live|/music/empty|\
/music/empty/o2.bin|/music/empty/A1.mp3|/music/A1.mp3|/music/x|/[x]|/[x]/a1.mp3|/[x]/o2.bin|/[x]/a2.MP3|\
/[x]/b.txt|/[x]/live|/[x]/live/B.TXT|/[x]/live/.hidden.mp3|/copy|/copy/live|/copy/empty"
  expect_text change.err "line 5: cp /music/a2.mp3: /music/A2.MP3 is the same file" \
    "line 6: cp /music: a folder cannot go into itself" \
    "line 7: cp /[x]/a1.mp3: not over /music/empty/a1.mp3, which has just come from /music/A1.mp3" \
    "line 11: mv /copy/live: A directory cannot be deleted (status 241): all files are moved; the device keeps" \
    "line 12: rm /: not the whole volume" \
    "line 13: rm /copy: A directory cannot be deleted (status 241): 4 files deleted; the device keeps the folder and the 2 in it" \
    "line 14: rm /music/live: A directory cannot be deleted"
  expect_count 7 change.err ''
  expect_volume vol-tree.img /music/A1.mp3=a2.MP3 "/music/x=long name.mp3" '/\[x]/live/.hidden.mp3=.hidden.mp3'
  MTOOLS_SKIP_CHECK=1 mdir -i vol-tree.img ::/music | grep -q 'A1 *mp3 *1200 2020-01-02 *3:04' || fail "the time did not go with the file"
}

make_files
make_tree
start_simulator 127.0.0.100,vol-compared --delay 50
start_simulator "127.0.0.85,vol-slow 127.0.0.86,vol-killed 127.0.0.88,vol-turns" --delay 5
start_simulator "127.0.0.81,vol-full 127.0.0.82,vol-names 127.0.0.89,vol-foreign 127.0.0.93,vol-tree"
is_windows || posix_tests="test_interrupts test_second_interrupt test_names test_foreign_names"
# shellcheck disable=SC2086  # words
run_all "test_refused_writes "{0,1,2,5,6} "test_refused_moves "{1,4,6} test_full_volume test_stuck_device test_later_runs test_half_a_name test_dead_device test_two_writers test_patterns test_changed_copy ${posix_tests-} &&
  echo "cli volume test: passed"
