#!/usr/bin/env bash
# Text in and out of the tool where code page 1252 is in force and the user's region has another: arguments, local names
# and patterns, what is typed, and folders of the user that have no name in the code page. Run by in_locale.sh.
#   text_test.sh SIMULATOR WINE.SH HOME TOOL
# shellcheck source=tests/support/devices.sh
. "$(dirname "$0")/../../support/devices.sh" "$@"
unset LC_ALL

# type_to LOG CODE ARGUMENT...: the tool at a console of Wine, which draws as it likes. Enter is \r. It has to end with CODE
# and leave the console as it was. LOG.txt is the text of it. A shell between would be interrupted with it: exec.
type_to() {
  local log=$1 home=${tool[1]} folder=${tool[2]%/*}
  script -qefc "exec env -u DISPLAY WINEDEBUG=-all WINEPREFIX=$home wine $folder/same_console.exe $folder/media-adapter.exe \
    --interface 127.0.0.1 --device locked ${*:3}" "$log" >/dev/null || fail "$log: $? $(cat -v "$log")"
  sed 's/\x1b\[1C/ /g; s/\x1b\[[?0-9;]*[a-zA-Z]//g' "$log" >"$log.txt"
  expect_text "$log.txt" "the same console, exit code $2"
}

test_names() {
  mkdir -p a back
  echo wrong >a/b.mp3
  echo coffee >Café.mp3
  echo tea >Tee.mp3
  echo other >ф.mp3
  {
    expect_code 2 "an argument that loses a character" on text put a⁄b.mp3 /
    MEDIA_ADAPTER_DEVICE=ф expect_code 2 "so does a variable" run ls
    expect_code 1 "patterns, one file without a name" on text put '*.mp3' nope '[x]*' /
    expect_code 0 "another folder's" on text put "Z:${work//\//\\}\\a\\*" /b.mp3
  } 2>names.err
  expect_code 0 "back" on text --json -c 'get /C* /Tee.mp3 back' -c 'lcd back' -c 'put Caf?.mp3 /again' -c 'ls /' >names.out
  expect_text names.err 'a?b.mp3: has a character that code page 1252 does not have' \
    'MEDIA_ADAPTER_DEVICE has a character' 'put ?.mp3: no such local file' 'put nope: no such local file' \
    'put [x]*: no such local file'
  [ "$(wc -l <names.err)" = 5 ] || fail "$(cat names.err)"
  expect_same back/Café.mp3 Café.mp3
  expect_same back/Tee.mp3 Tee.mp3
  [ "$(ls back)" = $'Café.mp3\nTee.mp3' ] || fail "in back: $(ls back)"
  expect_text names.out '"name":"Caf\\xe9.mp3"'
  expect_on_volume text.img again Café.mp3
  expect_on_volume text.img b.mp3 a/b.mp3
}

# Folders of the user: for temporary files, and of settings. Wine has short names on its own drive only.
test_folders() {
  local folder="${tool[1]}/drive_c/Папка пользователя"
  mkdir -p "$folder/media-adapter"
  echo MEDIA_ADAPTER_DEVICE=temp >"$folder/media-adapter/config"
  echo here >here
  on temp put here /
  "${tool[@]:0:2}" cmd /c "set TMP=C:\\${folder##*/}&& set APPDATA=C:\\${folder##*/}&& ${tool[2]//\//\\} \
    --interface 127.0.0.1 get /here -" >folders.out || fail "folders: $?"
  expect_same folders.out here
  rm -r "$folder/media-adapter"
  rmdir "$folder" || fail "left: $(ls -A "$folder")"
}

# A file on the device with the short name of a local file, which stays.
test_short_name() {
  local folder="${tool[1]}/drive_c/short.$$" short
  mkdir "$folder"
  echo long >"$folder/A long name.mp3"
  short=$("${tool[@]:0:2}" cmd /c "dir /x C:\\${folder##*/}" | grep -o '[^ ]* A long name' | cut -d ' ' -f 1)
  on temp put help.out "/$short"
  expect_code 1 "a short name" on temp get "/$short" "C:\\${folder##*/}" 2>short.err
  expect_text short.err "$short" "the local name is a short name of something else"
  [ "$(ls "$folder") $(cat "$folder"/*)" = "A long name.mp3 long" ] || fail "in the folder: $(ls "$folder")"
  rm -r "$folder"
}

# A password with a letter that the console's own code page has elsewhere; afterwards what is typed is shown again.
test_typed() {
  {
    type_after typed.tty 'Password of' 'sф\r'
    type_after typed.tty 'code page 1252' 'sécret\r'
    type_after typed.tty connected 'lcd nö\r'
    type_after typed.tty nö 'exit\r'
    sleep 2
  } | type_to typed.tty 0 -c connect -c shell
  expect_text typed.tty.txt connected 'locked:/> lcd nö' 'media-adapter: lcd n\xf6: No such file or directory'
  grep -q cret typed.tty && fail "the password was shown: $(cat typed.tty)"
}

# Ctrl-C while nothing is shown of what is typed.
test_interrupt() {
  {
    type_after interrupt.tty 'Password of' 'abc\003'
    sleep 2
  } | type_to interrupt.tty C000013A connect
}

"${tool[@]}" --help >help.out # alone: it makes Wine's home
expect_text help.out '%APPDATA%\media-adapter\config' '-c "mkdir -p /music/new"'
start_simulator "127.0.0.96,text 127.0.0.98,temp 127.0.0.97,locked,s"$'\xe9'"cret"
run_all test_names test_folders test_short_name test_typed test_interrupt && echo "text test: passed"
