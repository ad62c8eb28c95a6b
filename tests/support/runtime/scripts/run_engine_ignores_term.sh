#!/bin/bash
# An engine that ignores the polite request to stop; only a kill ends it.
app_dir="$2"
trap '' TERM
echo "args=$*" >>"$app_dir/launches"
sleep 600 &
echo "$$ $!" >>"$app_dir/pids"
echo "engine: ignoring SIGTERM"
while true; do wait; done
