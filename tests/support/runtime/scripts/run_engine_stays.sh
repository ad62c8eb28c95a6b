#!/bin/bash
# Stands in for the engine: records how it was launched, says hello, and stays up until it
# is told to stop. The sleep runs as a child so that stopping must reach the whole group.
app_dir="$2"
echo "args=$* host=${ENGINE_HOST-unset} port=${ENGINE_PORT-unset}" >>"$app_dir/launches"
sleep 600 &
echo "$$ $!" >>"$app_dir/pids"
echo "engine: up"
printf 'engine: no line feed'
wait
