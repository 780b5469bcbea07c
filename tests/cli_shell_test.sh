#!/usr/bin/env bash
# media-adapter's shell at a terminal, and the completion of command lines by bash and zsh.
# usage: cli_shell_test.sh MEDIA_ADAPTER_SIM MEDIA_ADAPTER
# shellcheck source=tests/support/devices.sh
. "$(dirname "$0")/support/devices.sh" "$@"

completions=$source_folder/cli/completions history=$XDG_STATE_HOME/media-adapter/history
# keys TEXT: typed, and time to act on them
keys() {
  printf '%b' "$1"
  sleep "${2-0.4}"
}

# Two sessions: the second finds the lines of the first, without those that could hold a secret.
test_shell() {
  cd home || exit
  {
    type_after first.tty 'sh-a:/> ' ''
    keys 'ls /mus\t\n'                # /music/
    keys 'get --rec\t/music/deep .\n' # --recursive
    keys 'cd /mu\tde\t\npwd\n'        # folders one by one
    keys 'put loc\t/music/deep\n' 1   # a local name, quoted for its blank
    keys 'ls ; lls -d sub; ls "/no;where"\n'
    keys 'config set 8.14\tx\n'       # 8.14=, which is refused
    keys 'config set 9.3=topsecret\n'
    keys 'hunter2\n'
    keys ' lpwd\n'
    keys 'lcd sub; lpwd\n'
    keys '!echo said-$((40 + 2)); pwd | tail -c 4\n'
    keys 'dropped line\003'           # Ctrl-C
    keys 'device sh-\t\t\003'         # both
    keys 'put ../long.bin ../late.bin /\n' 0
    type_after first.tty '%' '\003'
    type_after first.tty 'put: interrupted; what came after' 'ls /\n'
    keys '\004' 1 # Ctrl-D
  } | terminal first.tty sh-a shell
  {
    type_after second.tty 'sh-a:/> ' ''
    keys '\033[A\n' 1 # up: the last line
    keys '\004'
  } | terminal second.tty sh-a shell
  expect_text first.tty 'sh-a:/music/deep> ' said-42 '/home/sub' $'sub\r' 'local file' 'no such command: hunter2' \
    'ls /no;where: Invalid path' 'sh-a  sh-b' '% of 1.9 MB done' ' 1000000 ' \
    'back to the prompt when the running request ends'
  [ -d deep ] || fail "no folder"
  [ "$(stat -c %a "$history")" = 600 ] || fail "history: $(stat -c %a "$history")"
  grep -qE 'topsecret|hunter2|dropped|^ lpwd' "$history" && fail "in the history: $(cat "$history")"
  expect_text "$history" 'ls /music/' 'cd /music/deep/' 'put "local file" /music/deep' 'config set 8.14=x' 'get --recursive /music/deep .'
  expect_text second.tty 'music'
  expect_volume ../sh-a.img 'music/deep/local file=local file' long.bin !late.bin
}

# offers_of_SHELL LINE: what it offers, a line each
offers_of_bash() {
  COMP_LINE=$1 COMP_POINT=${#1} COMP_WORDS=("${tool[0]}") COMP_CWORD=0 COMPREPLY=()
  _media_adapter "${tool[0]}" 2>/dev/null
  printf '%s\n' "${COMPREPLY[@]}"
}
offers_of_zsh() { # a quote before the word is not in PREFIX
  # shellcheck disable=SC2016  # it is zsh that expands
  zsh -fc 'compadd() { shift "${@[(i)--]}"; (( $# == 0 )) || print -rl -- "$@"; }
    complete() { source "$2"; }
    words=(${(z)1}) && words[1]=$3 && [[ $1 != *" " ]] || words+=("")
    CURRENT=$#words PREFIX=$4
    complete "$@"' zsh "$1" "$completions/_media-adapter" "${tool[0]}" "$(sed "s/.* //; s/^['\"]//" <<<"$1")"
}
# expect_offer LINE OFFER
expect_offer() {
  local offers
  for shell in bash zsh; do
    offers=$("offers_of_$shell" "media-adapter $1" | LC_ALL=C sort | paste -sd ' ')
    [ "$offers" = "$2" ] || fail "$shell: media-adapter $1: $offers"
  done
}
test_completion() {
  # shellcheck source=cli/completions/media-adapter.bash
  . "$completions/media-adapter.bash"
  compopt() { :; }
  cd home || exit
  export MEDIA_ADAPTER_INTERFACE=127.0.0.1
  expect_offer "ag" agent
  expect_offer "--device sh-a config " "get load save set"
  expect_offer "agent --sta" --status
  expect_offer "config set 9." "9.0= 9.1= 9.2= 9.3 9.5 9.6="
  expect_offer "put 'loc" "local file"
  expect_offer "--device sh" "" # nothing is searched for
  "${tool[@]}" agent
  wait_until 100 eval '"${tool[@]}" --json agent --status | grep -q true'
  expect_offer "--device sh" "sh-a sh-b"
  expect_offer "--device=sh-b ls /MU" ""
  expect_offer "--device=sh-a ls /MU" "/music/"
  expect_offer "--device sh-a get -r /music/d" "/music/deep/"
  expect_offer "--device sh-a --interface lo:1 ls /m" "" # another interface than the agent's
  expect_offer "ls /mu" "" # of two devices
  "${tool[@]}" agent --stop
}

mkdir -p home/sub
echo mine >'home/local file'
head -c 1000000 /dev/urandom | tee home/long.bin >home/late.bin
make_volume sh-a.img
mmd -i sh-a.img ::music ::music/deep
start_simulator "127.0.0.121,sh-a 127.0.0.122,sh-b" --delay 1
run_all test_shell test_completion && echo "cli shell test: passed"
