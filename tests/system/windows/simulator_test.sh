#!/usr/bin/env bash
# The simulator as a Windows program, and the tool beside it, both under Wine.
#   simulator_test.sh WINE.SH HOME SIMULATOR TOOL
# Wine binds a UDP socket to 127.0.0.1 or to all addresses, never to another one of this machine, so the device is there,
# alone.
wine=$1 home=$2 windows_simulator=$3 program=$4
# shellcheck source=tests/support/devices.sh
. "$(dirname "$0")/../../support/devices.sh" none "$wine" "$home" "$program"
device() { exec env -u DISPLAY WINEDEBUG=-all WINEPREFIX="$home" wine "$windows_simulator" "$@"; }

make_volume win-sim.img
(device --device 127.0.0.1,win-sim,win-sim.img,secret --log-writes writes --pcap capture.pcap --verbose) >sim.log 2>&1 3>&- &
started=$!
echo $started >>simulators
wait_for sim.log ready 300
[ ! -e failures ] || exit 1

echo secret >password
head -c 30000 /dev/urandom >file
on win-sim --password-file password -c 'put file /' -c 'mkdir /folder' -c 'config set 8.1=11' -c 'config get 8.1' \
  -c 'get /file copy' >out 2>err || fail "the tool: $(cat err)"
expect_text out $'8.1\tnumber\t11'
expect_same file copy
expect_on_volume win-sim.img file file
expect_clean win-sim.img
expect_text sim.log "win-sim <- 127.0.0.1:" "win-sim -> 127.0.0.1:"
grep -qvxE '[0-9]+ [12]' writes && fail "the log of writes: $(head writes)"
[ "$(xxd -p -l 4 capture.pcap)" = d4c3b2a1 ] || fail "no capture"

make_volume other.img
(device --device 127.0.0.1,other,other.img) >other.log 2>&1 && fail "two devices on one address"
expect_text other.log "device other: cannot bind 127.0.0.1:14001"
(device --device 127.0.0.2,other,win-sim.img) >other.log 2>&1 && fail "two devices on one image"
expect_text other.log "win-sim.img: is in use by another simulated device"
(device --device 127.0.0.2,other,nope.img) >other.log 2>&1 && fail "a device without an image"
expect_text other.log "nope.img: cannot be opened for reading and writing"

kill -INT $started
expect_code 0 "Ctrl-C" wait $started
[ ! -e failures ]
