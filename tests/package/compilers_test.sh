#!/bin/bash
# Without a preset, everything builds by g++ and by clang++ without a warning.
#   compilers_test.sh MEDIA_ADAPTER MEDIA_ADAPTER_SIM
set -eu
source_folder=$(realpath "$(dirname "$0")/../..")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
for compiler in g++ clang++; do
  cmake -S "$source_folder" -B "$work/$compiler" -DCMAKE_BUILD_TYPE=Release -DCMAKE_CXX_COMPILER=$compiler >"$work/log"
  cmake --build "$work/$compiler" -j "$(nproc)" >"$work/log" 2>&1 || { tail -30 "$work/log"; exit 1; }
  ! grep -A5 'warning:' "$work/log" || exit 1
done
