#!/bin/bash
# An engine that stops on its own with the status written in <app-dir>/exit_status (7 when
# there is none).
app_dir="$2"
echo "args=$* host=${ENGINE_HOST-unset} port=${ENGINE_PORT-unset}" >>"$app_dir/launches"
echo "$$" >>"$app_dir/pids"
echo "engine: starting"
status=7
[ -f "$app_dir/exit_status" ] && status=$(cat "$app_dir/exit_status")
exit "$status"
