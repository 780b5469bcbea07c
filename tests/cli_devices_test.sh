#!/usr/bin/env bash
# media-adapter as a person runs it: finding devices on any network, and working on several of them.
# usage: cli_devices_test.sh MEDIA_ADAPTER MEDIA_ADAPTER_SIM [no-route]
# With no-route: in a network of its own, without a way out; ends with 77 where the system gives none (unshare, ip).
# Needs mkfs.fat, mtools and jq.
# shellcheck source=tests/support/cli.sh
. "$(dirname "$0")/support/cli.sh" "$1" "$2"

# Two devices with passwords of their own, and a third whose password is not known.
test_several_devices() {
  local several=("$tool" --interface lo --password-file passwords --device dev-a --device 127.0.0.112)
  mkdir got saved
  echo '{"format": 1, "settings": {"8.1": 7}}' >seven.json
  expect_code 0 "several" "${several[@]}" --keep-going >several.out 2>several.err <<'END'
put song /
ls /
get /song got
config set 8.1=5
config save saved
config load seven.json
search
END
  expect_text several.out $'dev-a\t----a\t5\t'
  expect_text several.out $'dev:b\t----a\t5\t'
  "${several[@]}" --json config get 8.1 >>several.out
  expect_text several.out '{"device":"dev:b","result":[{"element":"8.1","form":"number","value":7}]}'
  [ "$(grep -c $'\t127\\.0\\.0\\.11' several.out)" = 2 ] || fail "not two devices listed: $(cat several.out)"
  expect_same song got/dev-a/song
  expect_same song got/dev:b/song
  [ "$(ls saved)" = "$(printf 'dev-a.json\ndev:b.json')" ] || fail "saved: $(ls saved)"
}
test_one_of_several_fails() {
  expect_code 1 "one fails" "$tool" --interface 127.0.0.1 --password-file passwords --device dev-a --device dev-c \
    --device dev-nobody --device dev:b --keep-going -c 'ls /only' -c 'mkdir /x' -c 'config set 1.0=127.0.0.119' >one.out 2>one.err </dev/null
  expect_text one.err "device dev-nobody: not found"
  expect_text one.err "dev-c: ls /only: Invalid password (status 3)"
  expect_text one.err "--device: this command works on one device; several are given"
  expect_text one.err "dev-a: config set: several devices cannot have one address"
  [ "$(cut -f1,5 one.out)" = "$(printf 'dev-a\tf\ndev:b\tf')" ] || fail "not both others: $(cat one.out)"
}

# Options win over the environment, and that over the file.
test_defaults() {
  export XDG_CONFIG_HOME=$work/mine
  mkdir -p mine/media-adapter broken/media-adapter
  printf '# mine\nMEDIA_ADAPTER_DEVICE = dev-a\nMEDIA_ADAPTER_INTERFACE=127.0.0.2x\n' >mine/media-adapter/config
  echo 'DEVICE=dev-a' >broken/media-adapter/config
  export MEDIA_ADAPTER_INTERFACE=lo MEDIA_ADAPTER_PASSWORD_FILE=passwords
  "$tool" connect & local from_file=$!
  MEDIA_ADAPTER_DEVICE=dev-c "$tool" --device dev:b --json device >defaults.out & local from_option=$!
  MEDIA_ADAPTER_DEVICE=dev-nobody expect_code 1 "environment" "$tool" connect 2>defaults.err
  expect_text defaults.err "device dev-nobody: not found"
  wait $from_file || fail "the file's device and the environment's interface"
  wait $from_option || fail "option"
  expect_text defaults.out '"name":"dev:b"'
  XDG_CONFIG_HOME=broken expect_code 2 "broken file" "$tool" connect 2>defaults.err
  expect_text defaults.err "config: line 1: no KEY=VALUE of a known key"
  unset MEDIA_ADAPTER_INTERFACE MEDIA_ADAPTER_PASSWORD_FILE
  expect_code 1 "no device" "$tool" --interface 127.0.0.1 --device 127.0.0.118 ls 2>defaults.err
  expect_text defaults.err "device 127.0.0.118: not found"
}

# No default route, so a broadcast has no way out but from an interface's own address.
test_no_route() {
  # shellcheck disable=SC2016
  unshare -rn bash -c '
    ip link set lo up
    "$1" search 2>silent.err >silent.out; echo "$?" >silent.code
    "$2" --device "$3" >route.log & for _ in $(seq 100); do grep -q ready route.log && break; sleep 0.05; done
    "$1" --all ls / >route.out 2>route.err; echo "$?" >route.code
    kill $!' route "$tool" "$simulator" "$(device 127.0.0.114 dev-d d.img)"
  expect_text silent.err "no device answered; searching by interface lo (127.0.0.1)"
  expect_text silent.err "search: no device answered by lo (127.0.0.1). Is the device switched on"
  [ "$(cat silent.code route.code)" = "$(printf '0\n0')" ] || fail "without a route: $(cat route.err)"
  expect_text route.out $'dev-d\t----a\t5\t'
}
if [ "${3-}" = no-route ]; then
  unshare -rn ip link set lo up || exit 77
  make_volume d.img
  mmd -i d.img ::only
  echo song | mcopy -i d.img - ::song
  test_no_route
  [ ! -e failures ] && echo "cli devices test: passed, without a route"
  exit
fi

for image in a b c; do
  make_volume $image.img
  mmd -i $image.img ::only
  echo f | mcopy -i $image.img - ::only/f
done
echo song >song
printf 'dev:b:two\ndev-a:one\n' >passwords
start_simulator devices.log --device "$(device 127.0.0.111 dev-a a.img one)" --device "$(device 127.0.0.112 dev:b b.img two)" \
  --device "$(device 127.0.0.113 dev-c c.img three)"
test_several_devices & test_one_of_several_fails & test_defaults &
wait_for_runs
[ ! -e failures ] && echo "cli devices test: passed"
