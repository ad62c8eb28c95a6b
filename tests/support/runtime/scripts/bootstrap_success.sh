#!/bin/bash
# A set-up that succeeds: reports progress and steps, builds the runtime, stamps it, DONE.
while [ $# -gt 0 ]; do
  case "$1" in
    --payload) payload="$2"; shift 2 ;;
    --install-root) root="$2"; shift 2 ;;
    --version) version="$2"; shift 2 ;;
    *) shift ;;
  esac
done
mkdir -p "$root/app/.venv" "$root/app/engine"
echo "args=--payload $payload --install-root $root --version $version" >>"$root/bootstrap-runs"
echo "PROGRESS 10 Checking"
echo "STEP mac run"
echo "STEP mac ok"
echo "free text from a tool"
echo "PROGRESS 42 Downloading models"
echo "STEP deps ok"
printf '%s\n' "$version" >"$root/VERSION"
echo "PROGRESS 100"
echo "DONE"
