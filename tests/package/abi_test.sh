#!/bin/bash
# The library's binary interface is that of the last release, or more; where the major version is another, it is another
# library. (What records are laid out like, api/record_layouts.inc holds at each compilation.)
#   abi_test.sh MEDIA_ADAPTER MEDIA_ADAPTER_SIM
set -eu
source_folder=$(realpath "$(dirname "$0")/../..")
library=$(realpath "$(dirname "$1")/libmediaadapter.so")
if ! tag=$(git -C "$source_folder" describe --tags --abbrev=0 --match 'v[0-9]*' 2>/dev/null); then
  echo "abi_test.sh: no release is tagged yet, so there is none to compare with"
  exit
fi
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir "$work/source"
git -C "$source_folder" archive "$tag" | tar -x -C "$work/source"
cmake -S "$work/source" -B "$work/build" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DMEDIA_ADAPTER_TOOLS=OFF \
  -DMEDIA_ADAPTER_TESTS=OFF -DMEDIA_ADAPTER_BENCH=OFF >"$work/log"
cmake --build "$work/build" --target mediaadapter -j "$(nproc)" >"$work/log" 2>&1 || { tail -30 "$work/log"; exit 1; }
old=$(realpath "$work/build/libmediaadapter.so")
if [ "$(objdump -p "$old" | grep SONAME)" != "$(objdump -p "$library" | grep SONAME)" ]; then
  echo "abi_test.sh: another library than that of $tag by its name"
  exit
fi
abidiff --no-added-syms --headers-dir1 "$work/source/api" --headers-dir2 "$source_folder/api" "$old" "$library" ||
  { echo "abi_test.sh: the interface of $tag is broken"; exit 1; }
