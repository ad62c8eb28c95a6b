#!/bin/bash
# A set-up that takes its time, so a second start can be tried while it runs.
while [ $# -gt 0 ]; do
  case "$1" in
    --install-root) root="$2"; shift 2 ;;
    *) shift ;;
  esac
done
echo "run" >>"$root/bootstrap-runs"
echo "PROGRESS 1 Waiting"
sleep 600 &
echo "$$ $!" >>"$root/pids"
wait
