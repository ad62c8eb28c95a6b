#!/usr/bin/env bash
# Removes Sayvo: the engine runtime, the engine payload, the application, its saved
# preferences, its login item and the engine's learning store, and with --purge-shared the
# shared model folder beside the runtime. Started by the application from a temporary copy
# just before it quits, so it first waits for that process to end; it removes that copy too.
# A payload or program the package manager installed is left to it. Ends by saying what it
# kept and why. Running it again removes nothing more and succeeds.
#
#   uninstall.sh --yes --wait-pid PID --install-root DIR --app PATH [--payload DIR]
#                [--purge-shared]
#
# Every path is checked before anything is removed; an empty path, "/", the home folder
# (or a folder above it) and anything that does not look like Sayvo's are refused. The
# install root must carry the marker file bootstrap_runtime.sh leaves in it.
#
# SAYVO_UNINSTALL_WAIT_SECONDS (whole seconds, default 60) bounds the wait for the app.
set -uo pipefail

log() { printf 'uninstall: %s\n' "$*"; }
refuse() { log "refusing: $*"; exit 3; }

marker_name=".sayvo-runtime"

yes=0
wait_pid=""
root=""
app=""
payload=""
purge_shared=0
while [ $# -gt 0 ]; do
  case "$1" in
    --yes) yes=1; shift ;;
    --wait-pid) wait_pid="${2:-}"; shift 2 || refuse "--wait-pid needs a process id" ;;
    --install-root) root="${2-}"; shift 2 || refuse "--install-root needs a path" ;;
    --app) app="${2-}"; shift 2 || refuse "--app needs a path" ;;
    --payload) payload="${2-}"; shift 2 || refuse "--payload needs a path" ;;
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

# The runtime must be one bootstrap_runtime.sh built (its marker file), or nothing at all.
root_is_ours=0
if [ -e "$root" ] || [ -L "$root" ]; then
  [ -d "$root" ] && [ ! -L "$root" ] || refuse "the install root $root is not a folder"
  if [ -f "$root/$marker_name" ] && [ ! -L "$root/$marker_name" ]; then
    root_is_ours=1
  elif [ -n "$(ls -A "$root" 2>/dev/null)" ]; then
    refuse "$root does not look like a Sayvo runtime (no $marker_name marker)"
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

# The payload is the folder this script ships in: its scripts and its engine.
if [ -n "$payload" ]; then
  guard "payload" "$payload"
  if [ -e "$payload" ]; then
    [ -f "$payload/scripts/bootstrap_runtime.sh" ] && [ -d "$payload/engine" ] \
      || refuse "$payload does not look like a Sayvo engine payload"
  fi
fi

shared="$(dirname -- "$(absolute "$root")")/shared"
if [ "$purge_shared" = 1 ]; then
  guard "shared models" "$shared"
fi

limit=60
if [ -n "${SAYVO_UNINSTALL_WAIT_SECONDS:-}" ]; then
  if [[ "$SAYVO_UNINSTALL_WAIT_SECONDS" =~ ^[0-9]{1,6}$ ]]; then
    limit=$((10#$SAYVO_UNINSTALL_WAIT_SECONDS))
  else
    log "ignoring SAYVO_UNINSTALL_WAIT_SECONDS: not a whole number of seconds; waiting ${limit}s"
  fi
fi

if [ -n "$wait_pid" ]; then
  case "$wait_pid" in '' | *[!0-9]*) refuse "the process id $wait_pid is not a number" ;; esac
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

status=0
kept=()

keep() { kept+=("$1"); }

remove() {
  local label="$1" path="$2"
  if [ -e "$path" ] || [ -L "$path" ]; then
    if [ ! -w "$(dirname -- "$path")" ]; then
      keep "$label at $path: its folder belongs to another user (a system package installed it; remove the package to delete it)"
    elif rm -rf -- "$path"; then
      log "removed $label: $path"
    else
      log "could not remove $label: $path"
      status=1
    fi
  else
    log "no $label at $path"
  fi
}

# A file the package manager installed is the package manager's to remove: deleting it
# behind dpkg's back would leave a broken package.
package_of() {
  command -v dpkg-query >/dev/null 2>&1 || return 0
  dpkg-query --search -- "$(absolute "$1")" 2>/dev/null | head -n 1 | cut -d: -f1 || true
}

remove_unless_packaged() {
  local label="$1" path="$2" owner
  owner=$(package_of "$path")
  if [ -n "$owner" ]; then
    keep "$label: $path belongs to the package $owner; remove it with the package manager (apt remove $owner)"
  else
    remove "$label" "$path"
  fi
}

remove "runtime" "$root"
if [ -n "$payload" ]; then
  remove_unless_packaged "engine payload" "$payload"
fi
remove_unless_packaged "application" "$app"

config="${XDG_CONFIG_HOME:-$home/.config}"
remove "preferences" "$config/SayvoApp"
for entry in com.sayvoapp.Sayvo.desktop sayvo.desktop; do
  remove "login item" "$config/autostart/$entry"
done
for plist in "$home"/Library/Preferences/com.sayvoapp*.plist; do
  [ -e "$plist" ] && remove "preferences" "$plist"
done

# The engine's learning store when it ran outside a runtime: what the user dictated.
data="${XDG_DATA_HOME:-$home/.local/share}/SayvoApp/engine"
for part in learning.sqlite3 learning.sqlite3-wal learning.sqlite3-shm; do
  [ -e "$data/$part" ] && remove "learning store" "$data/$part"
done
rmdir -- "$data" 2>/dev/null

if [ "$purge_shared" = 1 ]; then
  if [ "$root_is_ours" = 1 ]; then
    remove "shared models" "$shared"
  elif [ -e "$shared" ]; then
    keep "shared models at $shared: no Sayvo runtime at $root vouches for the folder beside it"
  fi
elif [ -e "$shared" ]; then
  keep "shared models at $shared: pass --purge-shared to remove them"
fi

# Temporary copies of this script (this one, wherever it was put, and any an earlier run left
# behind) and the log older versions wrote to /tmp: only this user's own plain files.
tmp="${TMPDIR:-/tmp}"
[ -d "$tmp" ] || tmp=/tmp
self=()
case "$(basename -- "$0")" in sayvo-uninstall-*.sh) self=("$0") ;; esac
for leftover in ${self[@]+"${self[@]}"} "$tmp"/sayvo-uninstall-*.sh /tmp/sayvo_uninstall.log; do
  if [ -f "$leftover" ] && [ ! -L "$leftover" ] && [ -O "$leftover" ]; then
    rm -f -- "$leftover" && log "removed temporary file: $leftover"
  fi
done

state="${XDG_STATE_HOME:-$home/.local/state}/SayvoApp"
if [ -d "$state" ]; then
  keep "this log in $state: delete the folder once you have read it"
fi
for item in ${kept[@]+"${kept[@]}"}; do
  log "kept $item"
done
log "done"
exit "$status"
