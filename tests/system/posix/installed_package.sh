#!/bin/sh
# Installs the project into a temporary folder, looks at what the library exports, and builds the example against what is
# there: by the CMake package and by the pkg-config file.
#   installed_package.sh CMAKE BUILD-FOLDER SOURCE-FOLDER
set -eu
cmake=$1 build=$2 source=$3
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT

"$cmake" --install "$build" --prefix "$folder/prefix" >"$folder/log"
"$cmake" -S "$source/examples" -B "$folder/build" -DCMAKE_PREFIX_PATH="$folder/prefix" >>"$folder/log"
"$cmake" --build "$folder/build" >>"$folder/log" || { cat "$folder/log"; exit 1; }

header=$folder/prefix/include/media_adapter.h
grep -o 'API_[A-Za-z]*(' "$header" | tr -d '(' | sort -u >"$folder/declared"
library=$(find "$folder/prefix" -name libmediaadapter.so)
nm -D --defined-only --format=posix "$library" | cut -d' ' -f1 | sort >"$folder/exported"
diff "$folder/declared" "$folder/exported"
[ "$(wc -l <"$folder/exported")" -eq 15 ]

package_file=$(find "$folder/prefix" -name media-adapter.pc)
ask() { PKG_CONFIG_PATH=${package_file%/*} pkg-config --define-variable=prefix="$folder/prefix" "$@" media-adapter; }
# shellcheck disable=SC2046  # lists of words
cc -std=c11 "$source/examples/search_and_read.c" -o "$folder/by_pkg_config" \
  $(ask --cflags) $(ask --libs) -Wl,-rpath,"$(ask --variable=libdir)"

for program in "$folder/build/search_and_read" "$folder/by_pkg_config"; do
  ldd "$program" | grep -q "$folder/prefix/.*libmediaadapter" || { echo "$program: not the installed library"; exit 1; }
  status=0
  "$program" 192.0.2.1 </dev/null 2>"$folder/message" || status=$?
  [ $status -eq 1 ] && grep -q "no address of this machine" "$folder/message"
done
for page in media-adapter media-adapter-sim; do
  [ -n "$(find "$folder/prefix" -name "$page.1*")" ] && [ -x "$folder/prefix/bin/$page" ]
done
