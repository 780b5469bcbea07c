#!/bin/sh
# The README's C example compiles against the public header.
# usage: readme_example.sh C-COMPILER PROJECT-FOLDER
set -eu
awk '/^```c$/ {inside = 1; next} /^```/ {inside = 0} inside' "$2/README.md" |
  "$1" -std=c11 -Wall -Wextra -Wpedantic -Werror -fsyntax-only -I "$2/api" -x c -
