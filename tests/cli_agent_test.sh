#!/usr/bin/env bash
# media-adapter with its agent: what a command does through it is what it does by itself, only at once.
# usage: cli_agent_test.sh MEDIA_ADAPTER_SIM MEDIA_ADAPTER
# Each test has a folder for an agent of its own. Needs a terminal (script), too.
# shellcheck source=tests/support/devices.sh
. "$(dirname "$0")/support/devices.sh" "$@"

alone() { run --no-agent "$@"; }
agent() { run agent "$@"; }
# use_agent NAME OPTION...: one that has searched
use_agent() {
  export XDG_RUNTIME_DIR=$work/run-$1
  mkdir "$XDG_RUNTIME_DIR"
  expect_code 0 "$1: start" agent "${@:2}"
  wait_until 100 is_ready
}
state() { run --json agent --status 2>/dev/null | jq -r ".$1"; }
is_ready() { [ "$(state ready)" = true ]; }
runs() { [ "$(state running)" = "$1" ]; }
# expect_through NUMBER WHAT: so many commands went through the agent in all
expect_through() { [ "$(state commands)" = "$1" ] || fail "$2: $(run --json agent --status) instead of $1 commands"; }
# is_quick COMMAND...: a tenth of a second, once in many times on a busy machine; a sanitizer takes its time
is_quick() {
  local start
  start=$(date +%s%N)
  "$@" >/dev/null
  [ $(($(date +%s%N) - start)) -lt $((${quick_milliseconds-100} * 1000000)) ]
}

make_files() {
  mkdir many here
  for i in $(seq 300); do echo "$i" >"many/file number $i.txt"; done
  head -c 3000000 /dev/urandom >BIG.BIN
  head -c 1500000 BIG.BIN >long.bin
  head -c 200000 BIG.BIN >small.bin
  make_volume agt-a.img
  mcopy -i agt-a.img -s many :: && mcopy -i agt-a.img small.bin ::
  make_volume agt-slow.img
  mcopy -i agt-slow.img BIG.BIN ::
}

# What a command can tell apart: streams, folder, environment, mask, words; and what one before it may have left behind.
surroundings() (
  cd here || exit
  umask 027
  export MEDIA_ADAPTER_DEVICE=agt-a
  rm -f got
  "$@" ls /many
  "$@" --json config get 0.0
  "$@" get /small.bin got && stat -c '%a %s' got
  printf 'pwd\ncd /many\npwd\nls /nope\nls\n' | "$@"
  echo "code $?"
  echo rest | { "$@" -c 'ls /small.bin' && cat; }
  "$@" ls >/dev/full
  echo "code $?"
  "$@" ls /many | head -1 | cut -f1
  "$@" --device agt-nobody ls
  echo "code $?"
  TZ=Pacific/Auckland "$@" get '/many/file number 7.txt' - && "$@" lpwd
)
test_sameness() {
  surroundings alone >alone.out 2>alone.err
  use_agent same
  is_ready || fail "not ready"
  surroundings run >through.out 2>through.err
  diff alone.out through.out >&3 && diff alone.err through.err >&3 || fail "through the agent it is another"
  expect_through 10 "same"
  wait_until 30 is_quick on agt-a ls /many
  expect_code 0 "stop" agent --stop
  expect_code 1 "stopped" agent --status 2>/dev/null
  [ ! -e "$XDG_RUNTIME_DIR/media-adapter/agent.socket" ] || fail "a socket is left"
}

# A signal, a client that is gone, and a pipe that is end the command as they would without the agent, which goes on.
test_interrupts() {
  use_agent interrupts
  interrupt "wait_until 50 runs 1" --device agt-slow get /BIG.BIN - >/dev/null 2>int.err
  wait_until 50 runs 0
  interruptible --device agt-slow get /BIG.BIN here/gone & local client=$!
  wait_until 50 runs 1
  kill -KILL $client
  wait_until 50 runs 0
  [ -z "$(find . -name gone -o -path './here/.media*')" ] || fail "left by a client that is gone"
  wait_until 100 is_ready
  on agt-slow get /BIG.BIN - | head -c 1 >/dev/null
  [ "${PIPESTATUS[0]}" = 141 ] || fail "broken pipe: ${PIPESTATUS[*]}"
  interrupt 'wait_until 200 runs 1; expect_code 1 "in use" on agt-slow --no-wait put small.bin / 2>busy.err' \
    --device agt-slow put long.bin / 2>put.err
  expect_text busy.err "another run of media-adapter works on it; nothing was sent"
  expect_text put.err "comes to its end first" "put: interrupted"
  expect_on_volume agt-slow.img long.bin long.bin
  expect_through 5 "interrupts"
  agent --stop
}

# Questions are asked at the terminal of the command, also when its streams are others.
test_questions() {
  use_agent questions
  type_after ask.tty "Password of agt-locked" 'secret\n' | terminal ask.tty agt-locked ls
  local command="'${tool[0]}' --interface 127.0.0.1 --device agt-locked --ask-password ls 2>pipe.err </dev/null | cat"
  type_after pipe.tty "Password:" 'secret\n' | script -qefc "$command" pipe.tty >/dev/null || fail "pipe: $(cat pipe.tty)"
  grep -q secret ask.tty pipe.tty && fail "the password was shown"
  expect_code 1 "forgotten" on agt-locked ls </dev/null 2>/dev/null
  expect_through 3 "questions"
  agent --stop
}

# A device that moved behind the agent's back, and one that was not there when it searched.
test_search_grows_old() {
  use_agent old
  alone --device agt-moves ip --yes 127.0.0.69 255.0.0.0 127.0.0.1 1
  expect_code 0 "moved" on agt-moves --json device >moved.out
  expect_code 0 "moved" on agt-moves connect
  start_simulator 127.0.0.68,agt-late
  expect_code 0 "late" on agt-late connect
  expect_through 3 "old"
  agent --stop
}

# Four commands at a time.
test_crowd() {
  use_agent crowd
  local clients=()
  for _ in 1 2 3 4; do
    interruptible --device agt-a test -s 60 >/dev/null &
    clients+=($!)
  done
  wait_until 200 runs 4
  expect_code 1 "busy" on agt-a --no-wait ls 2>busy-agent.err
  expect_text busy-agent.err "agent: runs other commands; nothing was sent"
  on agt-a ls >/dev/null 2>waiting.err & local waiting=$!
  wait_until 50 grep -qs "waiting: the agent runs other commands" waiting.err
  kill -INT "${clients[@]}"
  wait $waiting || fail "waiting: $(cat waiting.err)"
  expect_through 5 "crowd"
  agent --stop
}

# When it ends, and what it never takes over.
test_life() {
  export XDG_RUNTIME_DIR=$work/run-life
  mkdir "$XDG_RUNTIME_DIR"
  "${tool[@]}" --interface 127.0.0.1 --persist --device agt-a ls /small.bin >persist.out & local first=$!
  run agent & local second=$!
  wait $first $second || fail "two at once"
  expect_text persist.out small.bin
  expect_through 1 "persist"
  local keeper
  keeper=$(state process)
  expect_code 1 "second" agent --foreground 2>/dev/null
  cp "${tool[0]}" other && touch other
  expect_code 0 "other" ./other --interface 127.0.0.1 --device agt-a ls /small.bin >other.out
  expect_code 1 "other" ./other --interface 127.0.0.1 agent 2>other.err
  expect_text other.out small.bin
  expect_text other.err "agent: one of another version, or of another network, runs as process $keeper"
  expect_through 1 "other"
  kill -KILL "$keeper"
  run agent --idle 2
  [ "$(state process)" != "$keeper" ] || fail "a stale socket"
  interrupt "sleep 0.5" --device agt-a ls # while it waits for the search
  wait_until 100 eval '! run agent --status >/dev/null 2>&1'
  [ ! -e "$XDG_RUNTIME_DIR/media-adapter/agent.socket" ] || fail "a socket is left after the idle time"
  chmod 777 "$XDG_RUNTIME_DIR/media-adapter"
  expect_code 1 "open folder" agent 2>life.err
  expect_text life.err "no folder for its socket that only this user can look into"
}

make_files
start_simulator "127.0.0.61,agt-a 127.0.0.62,agt-locked,secret 127.0.0.63,agt-moves"
start_simulator 127.0.0.64,agt-slow --delay 5
# The thread sanitizer holds a signal back for as long as its process receives.
# shellcheck disable=SC2086  # a list
run_all test_sameness ${interrupts-test_interrupts test_crowd} test_questions test_search_grows_old test_life && echo "cli agent test: passed"
