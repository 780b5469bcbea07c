#!/bin/sh
# The library exports the functions that its header declares, and needs nothing that Windows does not bring along.
#   imports.sh HEADER LIBRARY PROGRAM...
set -eu
header=$1 library=$2
shift
fail() { echo "imports: $1"; exit 1; }

declared=$(grep -o 'API_[A-Za-z]*(' "$header" | tr -d '(' | sort -u)
exported=$(objdump -p "$library" | sed -n '/Name Pointer] Table/,$s/^\t\[ *[0-9]*\] //p' | sort)
[ "$exported" = "$declared" ] || fail "the library exports: $exported"
[ "$(echo "$exported" | wc -l)" -eq 15 ] || fail "not fifteen exports"
for file in "$@"; do
  others=$(objdump -p "$file" | sed -n 's/^\tDLL Name: //p' |
    grep -vixE '(kernel32|user32|msvcrt|ws2_32|iphlpapi|mediaadapter)\.dll') || true
  [ -z "$others" ] || fail "$file needs $others"
done
