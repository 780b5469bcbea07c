#!/usr/bin/env bash
# sync, and put and get where they compare: a second run copies nothing, an interrupted one goes on where it was, what
# fails is told and keeps nothing else from its place, and no part of a file is ever taken for the whole.
# usage: cli_sync_test.sh MEDIA_ADAPTER_SIM MEDIA_ADAPTER...
# Each test has a device of its own. The clock is one that is changed twice a year. Needs jq and script.
# shellcheck source=tests/support/devices.sh
. "$(dirname "$0")/support/devices.sh" "$@"
export TZ=CET-1CEST,M3.5.0,M10.5.0/3
at() { touch -d "$1" "${@:2}"; }

make_files() {
  mkdir -p t/a/b t/empty many slow refused
  echo one >t/one
  head -c 30000 /dev/urandom >t/a/two.bin
  echo three >t/a/b/three
  echo no >t/a/no.tmp
  at '2021-03-04 05:06:09.7' t/one # between two steps
  at '2021-10-31 02:30:00' t/a/two.bin # an hour that comes twice
  at '1970-05-06 07:08:10' t/a/b/three # before all times of a volume
  for name in a b c; do head -c 3000 /dev/urandom | tee refused/$name.bin >many/x$name; done
  head -c 150000 /dev/urandom | tee slow/1 slow/2 >slow/3
  head -c 2000000 /dev/urandom >z
  for name in main refused slow; do make_volume sync-$name.img; done
  mmd -i sync-main.img ::from ::from/sub
  TZ=UTC0 at '2021-03-28 02:30:00' gap # an hour that does not come
  TZ=UTC0 mcopy -m -i sync-main.img gap ::from/gap
  TZ=UTC0 mcopy -m -i sync-main.img refused/a.bin ::from/sub/a.bin
}

# line WORDS...: one line of the script, and what it printed is in `last` once it has come to its end.
lines=0
line() {
  : >main.out
  printf '%s\n' "$*" "pwd" >&4
  wait_until 300 grep -qx / main.out
  sed -n '$!p' main.out >last
  lines=$((lines + 1))
}
# expect_summary TEXT: how the last line ended
expect_summary() { grep -q "^$1, [0-9:]*$" last || fail "line $lines: not \"$1\": $(cat last main.err)"; }

test_both_ways() {
  mkfifo main.in
  expect_code 1 "both ways" on sync-main --keep-going <main.in >>main.out 2>main.err &
  local run=$!
  exec 4>main.in
  line sync -n t /e/f --exclude '"*.tmp"'
  expect_summary "dry run: 3 files copied, [0-9]* bytes, 0 skipped, 0 failed"
  expect_text last $'copy\t30000\t/e/f/a/two.bin' $'mkdir\t\t/e/f/empty'
  expect_not_on_volume sync-main.img /e
  line sync t /e/f --exclude '"*.tmp"'
  expect_summary "3 files copied, 30010 bytes, 0 skipped, 0 failed"
  expect_not_on_volume sync-main.img /e/f/a/no.tmp
  line sync t /E/F --exclude /a/no.tmp
  expect_summary "0 files copied, 0 bytes, 3 skipped, 0 failed"
  line sync --from-device /e/f back
  expect_summary "3 files copied, 30010 bytes, 0 skipped, 0 failed"
  diff -r -x no.tmp t back || fail "not the same"
  line sync --from-device /e/f back
  expect_summary "0 files copied, 0 bytes, 3 skipped, 0 failed"
  line sync back /e/f
  expect_summary "0 files copied, 0 bytes, 3 skipped, 0 failed"
  line sync --from-device /from hours
  expect_summary "2 files copied, 3000 bytes, 0 skipped, 0 failed"
  line sync --from-device /from hours
  expect_summary "0 files copied, 0 bytes, 2 skipped, 0 failed"

  # The same size and another time; another size and the same time; newer there, which only --update passes over.
  echo eno >t/one
  at '2021-03-04 05:06:11' t/one
  echo thr >t/a/b/three
  at '1970-05-06 07:08:10' t/a/b/three
  line put -r -n -s t/one t/a /e/f
  expect_text last $'copy\t4\t/e/f/one' $'copy\t4\t/e/f/a/b/three' $'copy\t3\t/e/f/a/no.tmp'
  expect_count 3 last ""
  line get -r -u /e/f/one t
  line put -u -v t/one back/a/two.bin /e/f
  expect_text last "1/2 t/one -> /e/f/one, 4 bytes" "2 files copied, 30004 bytes, 0 skipped, 0 failed"
  expect_on_volume sync-main.img /e/f/one t/one
  line put -u back/one /e/f
  expect_on_volume sync-main.img /e/f/one t/one
  [ "$(cat t/one)" = eno ] || fail "get -u replaced a newer file"

  # Nothing goes without --delete; what is excluded stays, and so do the device's folders.
  mkdir -p back/old
  touch back/old/keep.tmp back/new
  rm back/one
  line sync back /e/f
  expect_summary "2 files copied, 0 bytes, 2 skipped, 0 failed"
  expect_on_volume sync-main.img /e/f/one t/one
  line sync --delete --exclude '"*.tmp"' --exclude /a/ t /e/f
  expect_summary "0 files copied, 0 bytes, 1 skipped, 2 deleted, 0 failed"
  expect_not_on_volume sync-main.img /e/f/new
  expect_on_volume sync-main.img /e/f/old/keep.tmp back/old/keep.tmp
  touch back/old/gone
  line sync --delete --from-device /from back --exclude '"keep*"'
  expect_summary "2 files copied, 3000 bytes, 0 skipped, [0-9]* deleted, 0 failed"
  [ "$(cd back && find . -type f | sort | tr '\n' ' ')" = "./gap ./old/keep.tmp ./sub/a.bin " ] || fail "in back: $(find back)"

  # Names that are one on the volume, and a failure, after which nothing is deleted.
  echo 1 >many/XA
  line sync --delete many /e/f
  expect_text main.err "many/xa: skipped: on the device it has the name of many/XA" "sync: nothing is deleted"
  expect_summary "3 files copied, [0-9]* bytes, 0 skipped, 0 deleted, 1 failed"
  line put - /e/f/stdin
  line sync --delete nowhere /e/f
  expect_text main.err "put -: standard input holds the script" "sync: nowhere is no local folder"
  exec 4>&-
  wait $run
  expect_clean sync-main.img
}

# Standard input under a name; JSON; and a folder is no name.
test_standard_input() {
  expect_code 0 "put -" on sync-pipe --json -c 'put - /x.bin' -c "sync t /t" -c "sync t /t" <many/xb >pipe.out
  expect_on_volume sync-pipe.img /x.bin many/xb
  jq -s -e '.[0][0].path == "/x.bin" and .[0][0].local == "-" and .[0][0].action == "copy" and .[1].copied == 4
    and .[2].copied == 0 and .[2].skipped == 4 and .[2].items[0].message == "the same"' pipe.out >/dev/null || fail "$(cat pipe.out)"
  expect_code 1 "put - into a folder" on sync-pipe put - /t <many/xb 2>pipe.err
  expect_text pipe.err "a folder on the device; the last argument names the new file"
  expect_clean sync-pipe.img
}

# A device that refuses one file: the others go on.
test_refused_file() {
  expect_code 1 "refused" on sync-refused -c 'sync refused /' >refused.out 2>refused.err
  expect_text refused.out "2 files copied, 6000 bytes, 0 skipped, 1 failed, "
  expect_code 0 "the rest" on sync-refused -c 'sync refused /' >refused.out
  expect_text refused.out "1 file copied, 3000 bytes, 2 skipped, 0 failed, "
  expect_volume sync-refused.img a.bin=refused/a.bin b.bin=refused/b.bin c.bin=refused/c.bin
}

# An interrupt lets the running file end; the next run begins behind it. Then files change while they are copied: one
# grows, one gets other bytes within the same step of time.
test_interrupted() {
  at '2021-03-04 05:06:08' slow/2
  interrupt "wait_for_change sync-slow.img" --device sync-slow sync slow / >slow.out 2>slow.err
  expect_text slow.out "1 file copied, 150000 bytes, 0 skipped, 0 failed, "
  expect_not_on_volume sync-slow.img 2
  expect_code 1 "changed" on sync-slow -c 'sync slow / -v' >slow.out 2>slow.err &
  local run=$!
  wait_for_change sync-slow.img
  at '2021-03-04 05:06:09' slow/2
  wait_for slow.err "sync /2"
  wait_for_change sync-slow.img
  echo more >>slow/3
  expect_code 0 "the changed run" wait $run
  expect_count 2 slow.err "the local file was changed while it was copied"
  expect_count 1 slow.err "the copy has been deleted"
  expect_not_on_volume sync-slow.img 2
  terminal slow.tty sync-slow "sync slow /" </dev/null
  expect_text slow.tty "1/2 slow/2  146.5 KB  0% of 293.0 KB done  0:00" "49% of 293.0 KB done" " left" "2/2 slow/3 -> /3, 146.5 KB"
  for name in 1 2 3; do expect_on_volume sync-slow.img $name slow/$name; done
  mcopy -i sync-slow.img z ::
  interrupt "wait_until 200 compgen -G 'got/.media-adapter-*/z' >/dev/null" --device sync-slow sync --from-device / got
  expect_code 0 "the rest" on sync-slow sync --from-device / got >slow.out
  expect_text slow.out "1 file copied, 2000000 bytes, 3 skipped, 0 failed, "
  cp z slow
  expect_same slow got
  expect_clean sync-slow.img
}

make_files
start_simulator "127.0.0.131,sync-main 127.0.0.135,sync-pipe"
start_simulator 127.0.0.132,sync-refused --refuse-write-after 9
start_simulator 127.0.0.134,sync-slow --delay 3
run_all test_both_ways test_standard_input test_refused_file test_interrupted && echo "cli sync test: passed"
