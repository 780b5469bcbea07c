#!/bin/bash
# An application outside the tree that fetches the sources' archive works with a device; it has neither programs nor an
# installation that are not its own. What was installed goes away again.
#   embedding_test.sh MEDIA_ADAPTER MEDIA_ADAPTER_SIM
# shellcheck source=tests/support/devices.sh
. "$(dirname "$0")/../support/devices.sh" "$2" "$1" || exit 1
build=${tool[0]%/*}

must cmake --install "$build" --prefix "$work/prefix"
must "$source_folder/scripts/package" --source "$work/dist"
mkdir fetched
cp "$source_folder/examples/search_and_read.c" fetched/app.c
cat >fetched/CMakeLists.txt <<END
cmake_minimum_required(VERSION 3.25)
project(app C)
include(FetchContent)
FetchContent_Declare(MediaAdapter URL $(find "$work/dist" -name '*.tar.gz'))
FetchContent_MakeAvailable(MediaAdapter)
add_executable(app app.c)
target_link_libraries(app PRIVATE MediaAdapter::MediaAdapter)
END
must cmake -S fetched -B fetched/build -DCMAKE_BUILD_TYPE=Release
must cmake --build fetched/build
[ "$(find fetched/build -type f -perm -u+x -not -path '*/CMakeFiles/*' -not -name '*.so*' -not -path '*-src/*' | wc -l)" = 1 ] ||
  fail "more programs than the application's: $(find fetched/build -type f -perm -u+x)"
must cmake --install fetched/build --prefix "$work/other"
[ ! -e other ] || fail "the application installs what is not its own"

start_simulator 127.0.0.62,lounge,secret
fetched/build/app 127.0.0.1 lounge <<<secret >output 2>&1 || fail "$(cat output)"
expect_text output "(0,2) text: lounge"

must cmake --build "$build" --target uninstall
[ -z "$(find prefix -type f -o -type l)" ] || fail "left behind: $(find prefix -type f -o -type l)"
[ ! -e failures ]
