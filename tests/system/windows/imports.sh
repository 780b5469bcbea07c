#!/bin/sh
# The library exports the functions that its header declares, and no binary needs what Windows does not bring along.
# Each says what it is, keeps its symbols beside it, and leaves nothing to be destroyed at the end of the process. The
# tool never lets the C++ library make a path from bytes, which goes by the user's region.
#   imports.sh HEADER FOLDER LIBRARY PROGRAM...: FOLDER has mediaadapter.def and mediaadapter.lib
set -eu
header=$1 folder=$2 library=$3
shift 2
fail() { echo "imports: $1"; exit 1; }

declared=$(grep -o 'API_[A-Za-z]*(' "$header" | tr -d '(' | sort -u)
exported=$(objdump -p "$library" | sed -n '/Name Pointer] Table/,$s/^\t\[ *[0-9]*\] //p' | sort)
[ "$exported" = "$declared" ] || fail "the library exports: $exported"
[ "$(echo "$exported" | wc -l)" -eq 15 ] || fail "not fifteen exports"
[ "$(grep -o 'API_.*' "$folder/mediaadapter.def" | sort)" = "$declared" ] || fail "mediaadapter.def has other names"
imported=$(llvm-nm "$folder/mediaadapter.lib" 2>/dev/null | grep -oE '__imp__?API_[A-Za-z]*$' | sed 's/__imp__*//' | sort)
[ "$imported" = "$declared" ] || fail "mediaadapter.lib has: $imported"

for file in "$@"; do
  others=$(objdump -p "$file" | sed -n 's/^\tDLL Name: //p' |
    grep -vixE '(advapi32|kernel32|user32|msvcrt|ws2_32|iphlpapi|shell32|mediaadapter)\.dll') || true
  [ -z "$others" ] || fail "$file needs $others"
  [ "$(objdump -p "$file" | grep -c '^\[Ordinal/Name Pointer')" -eq 0 ] || [ "$file" = "$library" ] || fail "$file exports"
  resources=$(llvm-readobj --coff-resources "$file")
  echo "$resources" | grep -q 'Type: VERSIONINFO' || fail "$file has no version"
  [ "$file" = "$library" ] || echo "$resources" | grep -q 'Type: MANIFEST' || fail "$file has no manifest"
  nm "$file.debug" | grep -q ' T ' || fail "$file.debug has no symbols"
done
destroyed=$(nm -C "$library.debug" | grep -E ' t (__tcf_|_GLOBAL__D)') || true  # the run-time has one for itself
[ -z "$destroyed" ] || fail "the end of the process destroys: $destroyed"
objects=$(find "$folder/parts/cli" -name '*.obj')
[ -n "$objects" ] || fail "no objects of the tool"
for object in $objects; do
  ! nm "$object" | grep -q path10_S_convertIc || fail "a path made from bytes: $object"
done
