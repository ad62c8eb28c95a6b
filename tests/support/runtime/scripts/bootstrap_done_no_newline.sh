#!/bin/bash
# Succeeds, with its final DONE lacking a line feed.
while [ $# -gt 0 ]; do
  case "$1" in
    --install-root) root="$2"; shift 2 ;;
    --version) version="$2"; shift 2 ;;
    *) shift ;;
  esac
done
mkdir -p "$root/app/.venv"
printf '%s\n' "$version" >"$root/VERSION"
echo "PROGRESS 99 Almost there"
printf 'DONE'
