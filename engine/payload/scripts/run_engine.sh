#!/usr/bin/env bash
# Starts the Sayvo engine installed in a runtime directory (the "app" folder that
# bootstrap_runtime.sh builds, or a developer runtime of the same shape).
#
#   run_engine.sh --app-dir DIR
#
# Environment:
#   ENGINE_PORT                 port to listen on (default 8765)
#   ENGINE_HOST                 address to listen on: a loopback form (127.0.0.1, ::1,
#                               localhost) is honoured as given; anything else only with
#   SAYVO_ENGINE_ALLOW_REMOTE=1 (otherwise the engine binds 127.0.0.1: transcripts and the
#                               personal dictionary never leave the machine by accident)
#   SAYVO_ENGINE_ASR            recogniser (default pocketsphinx; replay:FILE, mock)
#   SAYVO_ENGINE_MODEL_DIR      speech model directory (default DIR/models/streaming)
#   SAYVO_ENGINE_DATA_DIR       learning store directory (default DIR/data)
set -euo pipefail

say() { printf 'run_engine: %s\n' "$*" >&2; }

app_dir=""
while [ $# -gt 0 ]; do
  case "$1" in
    --app-dir) app_dir="${2:-}"; shift 2 || { say "--app-dir needs a directory"; exit 2; } ;;
    --app-dir=*) app_dir="${1#--app-dir=}"; shift ;;
    *) say "unknown argument: $1"; exit 2 ;;
  esac
done
[ -n "$app_dir" ] || { say "usage: run_engine.sh --app-dir DIR"; exit 2; }
[ -d "$app_dir" ] || { say "no runtime at $app_dir"; exit 2; }

# Settings the bootstrap recorded; the caller's environment wins over them.
env_file="$app_dir/.venv/engine.env"
if [ -f "$env_file" ]; then
  while IFS='=' read -r key value; do
    case "$key" in
      SAYVO_ENGINE_MODEL_DIR | SAYVO_ENGINE_DATA_DIR | SAYVO_ENGINE_ASR)
        if [ -z "${!key:-}" ]; then export "$key=$value"; fi ;;
    esac
  done <"$env_file"
fi

binary=""
for candidate in "$app_dir/.venv/bin/sayvo-engine" "$app_dir/engine/bin/sayvo-engine"; do
  if [ -x "$candidate" ]; then binary="$candidate"; break; fi
done
[ -n "$binary" ] || { say "no sayvo-engine in $app_dir (.venv/bin or engine/bin)"; exit 2; }

host="127.0.0.1"
requested=$(printf '%s' "${ENGINE_HOST:-127.0.0.1}" | tr '[:upper:]' '[:lower:]')
case "$requested" in
  127.0.0.1 | ::1 | localhost) host="$requested" ;;
  *) if [ "${SAYVO_ENGINE_ALLOW_REMOTE:-0}" = "1" ]; then host="${ENGINE_HOST}"; fi ;;
esac
port="${ENGINE_PORT:-8765}"
models="${SAYVO_ENGINE_MODEL_DIR:-$app_dir/models/streaming}"
data="${SAYVO_ENGINE_DATA_DIR:-$app_dir/data}"
asr="${SAYVO_ENGINE_ASR:-pocketsphinx}"

say "starting $binary on $host:$port"
exec "$binary" --host "$host" --port "$port" --asr "$asr" --model-dir "$models" --data-dir "$data"
