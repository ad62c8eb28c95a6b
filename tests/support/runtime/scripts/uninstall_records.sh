#!/bin/bash
# Writes each argument on a line of its own to standard output (the uninstall log) and to
# <install-root>/uninstall-args, then leaves without waiting for anyone.
root=""
prev=""
for arg in "$@"; do
  [ "$prev" = "--install-root" ] && root="$arg"
  prev="$arg"
done
printf '%s\n' "$0" "$@"
printf '%s\n' "$0" "$@" >"$root/uninstall-args"
echo "uninstall: error stream" >&2
