#!/bin/sh
# Runs a Windows program under Wine, without a desktop, in a Wine home of the build's own.
#   wine.sh HOME PROGRAM...
# Wine's services, which the first program starts, outlive it and keep its streams open: so the output goes by files.
set -u
home=$1
shift
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
env -u DISPLAY WINEDEBUG=-all WINEPREFIX="$home" wine "$@" >"$work/out" 2>"$work/err"
code=$?
cat "$work/out"
cat "$work/err" >&2
exit $code
