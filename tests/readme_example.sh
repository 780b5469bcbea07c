#!/bin/sh
# The README's C example compiles against the public header, which nothing else helps: as C11 and as C++20.
# usage: readme_example.sh C-COMPILER PROJECT-FOLDER
set -eu
for language in c:c11 c++:c++20; do
  awk '/^```c$/ {inside = 1; next} /^```/ {inside = 0} inside' "$2/README.md" |
    "$1" -std="${language#*:}" -Wall -Wextra -Wpedantic -Werror -fsyntax-only -I "$2/api" -x "${language%:*}" -
done
