#!/usr/bin/env bash
# Runs a test beside simulated devices, on each of whose volumes there is "file", as in the test's working folder.
# usage: with_devices.sh SIMULATOR "ADDRESS,NAME[,PASSWORD] [OPTION...]"... -- COMMAND...
# shellcheck source=tests/support/devices.sh
. "$(dirname "$0")/../support/devices.sh" "$1"
head -c 100000 /dev/urandom >file
while shift && [ "$1" != -- ]; do
  IFS=', ' read -r _ name _ <<<"$1"
  make_volume "$name.img"
  mcopy -i "$name.img" file ::
  read -ra words <<<"$1"
  start_simulator "${words[@]}"
done
shift
"$@"
