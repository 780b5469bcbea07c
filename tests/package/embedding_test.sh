#!/bin/bash
# An application outside the tree, built by find_package, by pkg-config and by FetchContent from the sources' archive, works
# with a device each time. What was installed goes away again.
#   embedding_test.sh MEDIA_ADAPTER MEDIA_ADAPTER_SIM
# shellcheck source=tests/support/devices.sh
. "$(dirname "$0")/../support/devices.sh" "$2" "$1" || exit 1
build=${tool[0]%/*}

must cmake --install "$build" --prefix "$work/prefix"
must "$source_folder/scripts/package" --source "$work/dist"
application() { # FOLDER LINES: a project that gets MediaAdapter::MediaAdapter by these lines
  mkdir "$1"
  cp "$source_folder/examples/search_and_read.c" "$1/app.c"
  printf '%s\n' 'cmake_minimum_required(VERSION 3.25)' 'project(app C)' "$2" 'add_executable(app app.c)' \
    'target_link_libraries(app PRIVATE MediaAdapter::MediaAdapter)' >"$1/CMakeLists.txt"
  must cmake -S "$1" -B "$1/build" -DCMAKE_BUILD_TYPE=Release -DCMAKE_PREFIX_PATH="$work/prefix"
  must cmake --build "$1/build"
}
application found 'find_package(MediaAdapter 1.0 REQUIRED)'
application fetched "include(FetchContent)
FetchContent_Declare(MediaAdapter URL $(find "$work/dist" -name '*.tar.gz'))
FetchContent_MakeAvailable(MediaAdapter)"
[ "$(find fetched/build -type f -perm -u+x -not -path '*/CMakeFiles/*' -not -name '*.so*' -not -path '*-src/*' | wc -l)" = 1 ] ||
  fail "more programs than the application's: $(find fetched/build -type f -perm -u+x)"
must cmake --install fetched/build --prefix "$work/other"
[ ! -e other ] || fail "the application installs what is not its own"
libraries=$(dirname "$(find prefix -name 'libmediaadapter.so.1')")
mkdir -p asked/build
# shellcheck disable=SC2046
must cc found/app.c -o asked/build/app \
  $(PKG_CONFIG_PATH=$libraries/pkgconfig pkg-config --cflags --libs media-adapter) -Wl,-rpath,"$work/$libraries"

start_simulator 127.0.0.62,lounge,secret
for way in found fetched asked; do
  "$way/build/app" 127.0.0.1 lounge <<<secret >output 2>&1 || fail "$way: $(cat output)"
  expect_text output "(0,2) text: lounge"
done

must cmake --build "$build" --target uninstall
[ -z "$(find prefix -type f -o -type l)" ] || fail "left behind: $(find prefix -type f -o -type l)"
[ ! -e failures ]
