#!/usr/bin/env bash
# media-adapter as a person runs it: finding devices on any network, and working on several of them.
# usage: cli_devices_test.sh MEDIA_ADAPTER_SIM MEDIA_ADAPTER [no-route]
# With no-route: in a network of its own, without a way out; ends with 77 where the system gives none (unshare, ip).
# Each device's volume holds the folder "only" with the file "f".
if [ "${3-}" = no-route ]; then
  unshare -rn ip link set lo up || exit 77
  exec unshare -rn "$0" "$1" "$2" inside
fi
# shellcheck source=tests/support/devices.sh
. "$(dirname "$0")/support/devices.sh" "$1" "$2"

# Two devices with passwords of their own, and a third whose password is not known.
test_several_devices() {
  local several=("${tool[@]}" --interface lo --password-file passwords --device dev-a --device 127.0.0.112)
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
  "${several[@]}" --json config get 8.1 >>several.out
  expect_text several.out $'dev-a\t----a\t5\t' $'dev:b\t----a\t5\t' \
    '{"device":"dev:b","result":[{"element":"8.1","form":"number","value":7}]}'
  expect_count 2 several.out $'\t127\\.0\\.0\\.11'
  expect_same song got/dev-a/song
  expect_same song got/dev:b/song
  [ "$(ls saved)" = "$(printf 'dev-a.json\ndev:b.json')" ] || fail "saved: $(ls saved)"
}
test_one_of_several_fails() {
  expect_code 1 "one fails" run --password-file passwords --device dev-a --device dev-c \
    --device dev-nobody --device dev:b --keep-going -c 'ls /only' -c 'mkdir /x' -c 'config set 1.0=127.0.0.119' >one.out 2>one.err </dev/null
  expect_text one.err "device dev-nobody: not found" "dev-c: ls /only: Invalid password (status 3)" \
    "--device: this command works on one device; several are given" \
    "dev-a: config set: several devices cannot have one address"
  [ "$(cut -f1,5 one.out)" = "$(printf 'dev-a\tf\ndev:b\tf')" ] || fail "not both others: $(cat one.out)"
}

# Options win over the environment, and that over the file.
test_defaults() {
  export XDG_CONFIG_HOME=$work/mine
  mkdir -p mine/media-adapter broken/media-adapter
  printf '# mine\nMEDIA_ADAPTER_DEVICE = dev-a\nMEDIA_ADAPTER_INTERFACE=127.0.0.2x\n' >mine/media-adapter/config
  echo 'DEVICE=dev-a' >broken/media-adapter/config
  export MEDIA_ADAPTER_INTERFACE=lo MEDIA_ADAPTER_PASSWORD_FILE=passwords
  "${tool[@]}" connect & local from_file=$!
  MEDIA_ADAPTER_DEVICE=dev-c "${tool[@]}" --device dev:b --json device >defaults.out & local from_option=$!
  MEDIA_ADAPTER_DEVICE=dev-nobody expect_code 1 "environment" "${tool[@]}" connect 2>defaults.err
  expect_text defaults.err "device dev-nobody: not found"
  wait $from_file || fail "the file's device and the environment's interface"
  wait $from_option || fail "option"
  expect_text defaults.out '"name":"dev:b"'
  XDG_CONFIG_HOME=broken expect_code 2 "broken file" "${tool[@]}" connect 2>defaults.err
  expect_text defaults.err "config: line 1: no KEY=VALUE of a known key"
  unset MEDIA_ADAPTER_INTERFACE MEDIA_ADAPTER_PASSWORD_FILE
  expect_code 1 "no device" run --device 127.0.0.118 ls 2>defaults.err
  expect_text defaults.err "device 127.0.0.118: not found"
}

# No default route, so a broadcast has no way out but from an interface's own address.
test_no_route() {
  expect_code 0 "silent" "${tool[@]}" search 2>silent.err
  expect_text silent.err "no device answered; searching by interface lo (127.0.0.1)" \
    "search: no device answered by lo (127.0.0.1). Is the device switched on"
  start_simulator 127.0.0.114,dev-d
  expect_code 0 "without a route" "${tool[@]}" --all ls / >route.out
  expect_text route.out $'dev-d\td----\t0\t'
}

for name in dev-a dev:b dev-c dev-d; do
  make_volume "$name.img"
  mmd -i "$name.img" ::only
  echo f | mcopy -i "$name.img" - ::only/f
done
echo song >song
printf 'dev:b:two\ndev-a:one\n' >passwords
if [ "${3-}" = inside ]; then
  ip link set lo up
  run_all test_no_route && echo "cli devices test: passed, without a route"
  exit
fi
start_simulator "127.0.0.111,dev-a,one 127.0.0.112,dev:b,two 127.0.0.113,dev-c,three"
run_all test_several_devices test_one_of_several_fails test_defaults && echo "cli devices test: passed"
