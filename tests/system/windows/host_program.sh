#!/bin/sh
# Programs of the machine below Wine, for tests that run in Wine and cannot wait for them or end them.
#   host_program.sh run COMMAND...   says "group N" and becomes the command, for five minutes at most
#   host_program.sh stop N           ends it and says "stopped"
case $1 in
  run)
    shift
    echo "group $$"
    exec timeout 300 "$@" ;;  # timeout leads a process group of its own
  stop)
    kill -s KILL -- "-$2"
    while kill -s 0 -- "-$2" 2>/dev/null; do sleep 0.02; done
    echo stopped ;;
esac
