#!/bin/sh
# Installs the project into a temporary folder, looks at what the library exports and needs, and builds the
# examples against what is there: by the CMake package and by the pkg-config file.
#   installed_package.sh CMAKE BUILD-FOLDER
set -eu
cmake=$1 build=$2
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
fail() { echo "installed package: $1"; exit 1; }

"$cmake" --install "$build" --prefix "$folder/prefix" >"$folder/log"
examples=$(find "$folder/prefix" -type d -name examples)
"$cmake" -S "$examples" -B "$folder/build" -DCMAKE_PREFIX_PATH="$folder/prefix" >>"$folder/log"
"$cmake" --build "$folder/build" >>"$folder/log" || fail "$(cat "$folder/log")"

header=$folder/prefix/include/media_adapter.h
grep -o 'API_[A-Za-z]*(' "$header" | tr -d '(' | sort -u >"$folder/declared"
library=$(find "$folder/prefix" -name libmediaadapter.so)
nm -D --defined-only --format=posix "$library" | cut -d' ' -f1 | sort >"$folder/exported"
diff "$folder/declared" "$folder/exported" || fail "the library exports other names than its header declares"
[ "$(wc -l <"$folder/exported")" -eq 15 ] || fail "not fifteen exports"
needed=$(ldd "$library" | grep -v 'linux-vdso\|ld-linux\|libc\.so\|libm\.so\|libgcc_s\.so\|libstdc++\.so') || true
[ -z "$needed" ] || fail "the library needs $needed"

package_file=$(find "$folder/prefix" -name media-adapter.pc)
ask() { PKG_CONFIG_PATH=${package_file%/*} pkg-config --define-variable=prefix="$folder/prefix" "$@" media-adapter; }
# shellcheck disable=SC2046  # lists of words
cc -std=c11 "$examples/search_and_read.c" -o "$folder/by_pkg_config" \
  $(ask --cflags) $(ask --libs) -Wl,-rpath,"$(ask --variable=libdir)"

for program in "$folder/build/search_and_read" "$folder/by_pkg_config"; do
  ldd "$program" | grep -q "$folder/prefix/.*libmediaadapter" || fail "$program: another library"
  status=0
  "$program" 127.0.0.2x </dev/null 2>"$folder/message" || status=$?
  [ $status -eq 1 ] || fail "$program: exit status $status"
  grep -q "no address of this machine" "$folder/message" || fail "$program: $(cat "$folder/message")"
done
for tool in media-adapter media-adapter-sim; do
  "$folder/prefix/bin/$tool" --help >>"$folder/log" || fail "no $tool"
  [ -n "$(find "$folder/prefix" -name "$tool.1*")" ] || fail "no manual page of $tool"
done
