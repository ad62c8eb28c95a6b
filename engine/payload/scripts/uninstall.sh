#!/usr/bin/env bash
# Removes Sayvo: the engine runtime, the application and its saved preferences, and with
# --purge-shared the shared model folder beside the runtime. Started by the application
# from a temporary copy just before it quits, so it first waits for that process to end.
#
#   uninstall.sh --yes --wait-pid PID --install-root DIR --app PATH [--purge-shared]
#
# Every path is checked before anything is removed; an empty path, "/", the home folder
# (or a folder above it) and anything that does not look like Sayvo's are refused.
set -uo pipefail

log() { printf 'uninstall: %s\n' "$*"; }
refuse() { log "refusing: $*"; exit 3; }

yes=0
wait_pid=""
root=""
app=""
purge_shared=0
while [ $# -gt 0 ]; do
  case "$1" in
    --yes) yes=1; shift ;;
    --wait-pid) wait_pid="${2:-}"; shift 2 || refuse "--wait-pid needs a process id" ;;
    --install-root) root="${2-}"; shift 2 || refuse "--install-root needs a path" ;;
    --app) app="${2-}"; shift 2 || refuse "--app needs a path" ;;
    --purge-shared) purge_shared=1; shift ;;
    *) refuse "unknown argument $1" ;;
  esac
done
[ "$yes" = 1 ] || { log "nothing removed: pass --yes to confirm"; exit 2; }

absolute() {
  # The path with "..", "." and symbolic links resolved, whether or not it exists.
  realpath -m -- "$1" 2>/dev/null || printf '%s' "$1"
}

home=$(absolute "${HOME:-/nonexistent}")

# Refuses a path that must never be removed whole.
guard() {
  local label="$1" path="$2" resolved
  [ -n "$path" ] || refuse "the $label path is empty"
  case "$path" in /*) ;; *) refuse "the $label path $path is not absolute" ;; esac
  resolved=$(absolute "$path")
  [ "$resolved" != "/" ] || refuse "the $label path is the root folder"
  [ "$resolved" != "$home" ] || refuse "the $label path $path is the home folder"
  case "$home/" in "$resolved"/*) refuse "the $label path $path contains the home folder" ;; esac
}

guard "install root" "$root"
guard "application" "$app"

# The runtime must be one bootstrap_runtime.sh built (or nothing at all).
if [ -e "$root" ]; then
  [ -d "$root" ] || refuse "the install root $root is not a folder"
  if [ ! -e "$root/VERSION" ] && [ ! -d "$root/app/.venv" ] && [ -n "$(ls -A "$root" 2>/dev/null)" ]; then
    refuse "$root does not look like a Sayvo runtime (no VERSION, no app/.venv)"
  fi
fi

# The application is a program named for Sayvo, or a Sayvo .app bundle; any other folder
# (a source checkout called sayvo, say) is not ours to remove.
app_name=$(basename -- "$(absolute "$app")" | tr '[:upper:]' '[:lower:]')
case "$app_name" in
  sayvo*) ;;
  *) refuse "the application $app is not a Sayvo application" ;;
esac
if [ -d "$app" ]; then
  case "$app_name" in
    *.app) ;;
    *) refuse "the application $app is a folder but not a Sayvo application bundle" ;;
  esac
fi

shared="$(dirname -- "$(absolute "$root")")/shared"
if [ "$purge_shared" = 1 ]; then
  guard "shared models" "$shared"
fi

if [ -n "$wait_pid" ]; then
  case "$wait_pid" in *[!0-9]*) refuse "the process id $wait_pid is not a number" ;; esac
  limit="${SAYVO_UNINSTALL_WAIT_SECONDS:-60}"
  log "waiting for process $wait_pid to exit"
  waited=0
  while kill -0 "$wait_pid" 2>/dev/null; do
    if [ "$waited" -ge $((limit * 10)) ]; then
      log "process $wait_pid is still running after ${limit}s; nothing removed"
      exit 4
    fi
    sleep 0.1
    waited=$((waited + 1))
  done
fi

remove() {
  local label="$1" path="$2"
  if [ -e "$path" ] || [ -L "$path" ]; then
    if rm -rf -- "$path"; then log "removed $label: $path"; else log "could not remove $label: $path"; status=1; fi
  else
    log "no $label at $path"
  fi
}

# A program the package manager installed is the package manager's to remove: deleting it
# behind dpkg's back would leave a broken package.
owner=""
if command -v dpkg-query >/dev/null 2>&1; then
  owner=$(dpkg-query --search -- "$(absolute "$app")" 2>/dev/null | cut -d: -f1) || owner=""
fi

status=0
remove "runtime" "$root"
if [ -n "$owner" ]; then
  log "kept application: $app belongs to the package $owner; remove it with the package manager (apt remove $owner)"
else
  remove "application" "$app"
fi
config="${XDG_CONFIG_HOME:-$home/.config}"
remove "preferences" "$config/SayvoApp"
for plist in "$home"/Library/Preferences/com.sayvoapp*.plist; do
  [ -e "$plist" ] && remove "preferences" "$plist"
done
if [ "$purge_shared" = 1 ]; then
  remove "shared models" "$shared"
fi
log "done"
exit "$status"
