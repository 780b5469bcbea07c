#!/bin/bash
# What scripts/package builds: the same bytes from another clone, folder, time zone and umask; Debian packages in which
# lintian finds no error, that install in a clean system, work there and leave nothing behind; a Windows archive that
# works.
#   packages_test.sh MEDIA_ADAPTER MEDIA_ADAPTER_SIM
# shellcheck source=tests/support/devices.sh
. "$(dirname "$0")/../support/devices.sh" "$2" "$1" || exit 1

must git clone -q "$source_folder" clone
must git clone -q clone "another clone"
must clone/scripts/package first
(
  umask 077
  mkdir tmp/deeper
  TMPDIR=$PWD/tmp/deeper TZ=Asia/Tokyo LC_ALL=C must "another clone/scripts/package" second
) || exit 1
diff -r first second || fail "two builds differ"
(cd first && sha256sum --quiet -c SHA256SUMS) || fail "checksums"
for file in libmediaadapter1 libmediaadapter-dev media-adapter; do
  [ "$(find first -name "${file}_*.deb" | wc -l)" = 1 ] || fail "no package $file"
done
must lintian --fail-on error --no-tag-display-limit first/*.deb

# A clean system, in which only root can install.
root=$work/root as_root=()
[ "$(id -u)" = 0 ] || as_root=(sudo)
trap 'kill $(cat simulators 2>/dev/null) 2>/dev/null; "${as_root[@]}" rm -rf "$work"' EXIT
# shellcheck source=/dev/null
must "${as_root[@]}" mmdebstrap --variant=apt "$(. /etc/os-release && echo "$VERSION_CODENAME")" "$root"
inside() { "${as_root[@]}" env -u TMPDIR DEBIAN_FRONTEND=noninteractive chroot "$root" "$@"; }
files() { # but for what apt and the running system keep for themselves
  (cd "$root" && "${as_root[@]}" find . -xdev | grep -vE '^\./(run|var/(lib/apt|cache|log))/' | sort)
}
"${as_root[@]}" cp /etc/resolv.conf "$root/etc/resolv.conf"
must inside apt-get update
"${as_root[@]}" mkdir "$root/packages"
files >before
"${as_root[@]}" cp first/*.deb "$root/packages"
must inside sh -c 'apt-get install -y --no-install-recommends /packages/*.deb'
[ "$(files | grep -c 'mediaadapter\|media[-_]adapter\|API_')" -gt 40 ] || fail "not installed"

# The installed tool and the installed simulator, in a network of their own.
make_volume volume.img
head -c 300000 /dev/urandom >song.mp3
mcopy -i volume.img song.mp3 ::
"${as_root[@]}" cp volume.img "$root/packages"
"${as_root[@]}" unshare -n sh -ec 'ip link set lo up; exec chroot "$0" sh -ec "$1"' "$root" '
  media-adapter-sim --device 127.0.0.11,lounge,/packages/volume.img &
  trap "kill $!" EXIT
  sleep 1
  media-adapter --interface 127.0.0.1 get /song.mp3 /packages' >session 2>&1 ||
  fail "the clean system: $(cat session)"
cmp song.mp3 "$root/packages/song.mp3" || fail "another file came"
inside sh -c "rm /packages/*"

must inside apt-get purge -y --autoremove libmediaadapter1 libmediaadapter-dev media-adapter
files >after
diff before after || fail "left behind"

for archive in first/*windows*.zip; do
  must unzip -q "$archive"
  tree=$(basename "$archive" .zip)
  for file in bin/mediaadapter.dll bin/media-adapter.exe lib/libmediaadapter.dll.a include/media_adapter.h; do
    [ -s "$tree/$file" ] || fail "no $file in $archive"
  done
  [[ $tree = *-windows ]] || continue  # the others are not for the Wine that is installed
  "$source_folder/tests/system/windows/wine.sh" "$work/wine" "$tree/bin/media-adapter.exe" --version >version 2>&1 ||
    fail "$archive: the tool does not start"
  expect_text version "media-adapter $(dpkg-deb -f first/media-adapter_*.deb Version | cut -d- -f1)"
done
[ ! -e failures ]
