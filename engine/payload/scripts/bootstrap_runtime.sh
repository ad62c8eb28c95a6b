#!/usr/bin/env bash
# Builds the Sayvo engine runtime under an install root, reporting its progress to the
# client one command per line:
#   STEP <id> run|ok|fail      PROGRESS <percent> <message>
#   NEED <token> <message>     DONE
#
#   bootstrap_runtime.sh --payload DIR --install-root DIR --version V
#                        [--engine-binary PATH] [--model-source DIR]
#
# The runtime it leaves:
#   ROOT/app/engine/bin/sayvo-engine   the engine
#   ROOT/app/.venv/bin/sayvo-engine    the engine as run_engine.sh starts it (a link)
#   ROOT/app/.venv/engine.env          settings for run_engine.sh
#   ROOT/app/models/streaming/         the PocketSphinx model (links to the payload's or the
#                                      system's copy)
#   ROOT/app/data/                     the learning store (kept across re-runs), 0700
#   ROOT/.sayvo-runtime                marks the folder as one this script built: the
#                                      uninstaller removes no other
#   ROOT/VERSION                       written last: its presence means "provisioned"
#
# --engine-binary (or SAYVO_ENGINE_BINARY) installs a freshly built engine instead of the
# payload's, for developer runtimes; --model-source (or SAYVO_MODEL_SOURCE) names the model
# to link. Otherwise the model is the payload's model/ folder when it has one (an application
# bundle carries its own), else the system's. Re-running is safe: every step replaces what an
# earlier run left.
set -uo pipefail

payload=""
root=""
version=""
engine_binary="${SAYVO_ENGINE_BINARY:-}"
model_source="${SAYVO_MODEL_SOURCE:-}"

usage() { echo "usage: bootstrap_runtime.sh --payload DIR --install-root DIR --version V [--engine-binary PATH] [--model-source DIR]" >&2; exit 2; }

while [ $# -gt 0 ]; do
  case "$1" in
    --payload) payload="${2:-}"; shift 2 || usage ;;
    --install-root) root="${2:-}"; shift 2 || usage ;;
    --version) version="${2:-}"; shift 2 || usage ;;
    --engine-binary) engine_binary="${2:-}"; shift 2 || usage ;;
    --model-source) model_source="${2:-}"; shift 2 || usage ;;
    *) echo "bootstrap: unknown argument: $1" >&2; usage ;;
  esac
done
[ -n "$payload" ] && [ -n "$root" ] && [ -n "$version" ] || usage
if [ -z "$model_source" ]; then
  if [ -d "$payload/model" ]; then
    model_source="$payload/model"
  else
    model_source=/usr/share/pocketsphinx/model/en-us
  fi
fi
# Links and the recorded settings must not depend on the directory this ran from.
root=$(realpath -m -- "$root")
model_source=$(realpath -m -- "$model_source")

current=""
step() { current="$1"; echo "STEP $1 run"; echo "PROGRESS $2 $3"; }
ok() { echo "STEP $current ok"; }
fail() { echo "bootstrap: $*"; echo "STEP $current fail"; exit 1; }
need() { echo "NEED $1 $2"; echo "STEP $current fail"; exit 3; }

app="$root/app"

# 1. The machine: a POSIX system with the tools this script uses.
step mac 2 "Checking this computer"
for tool in uname mkdir cp ln mv rm; do
  command -v "$tool" >/dev/null 2>&1 || fail "missing the command $tool"
done
[ -d "$payload" ] || fail "no payload at $payload"
echo "bootstrap: $(uname -sm), payload $payload, install root $root, version $version"
ok

# 2. The toolchain: the engine is a native program, so what it needs is its shared
# libraries (Qt WebSockets, PocketSphinx, SQLite).
step uv 10 "Checking the engine's libraries"
source_binary="${engine_binary:-$payload/engine/bin/sayvo-engine}"
[ -x "$source_binary" ] || fail "no engine program at $source_binary"
if command -v ldd >/dev/null 2>&1; then
  missing=$(ldd "$source_binary" 2>/dev/null | awk '/not found/ {print $1}' | tr '\n' ' ')
  if [ -n "$missing" ]; then
    need libraries "The engine needs these libraries: ${missing}(install qt6-websockets, libpocketsphinx3 and libsqlite3)"
  fi
fi
ok


# 3. Engine files, swapped in whole.
step copy 25 "Copying engine files"
# From here on the runtime is being changed: until VERSION is written again it does not
# count as provisioned. A folder that already holds something this script did not make is
# never taken over, since the uninstaller removes the install root whole (a runtime built
# before the marker existed is recognised by its VERSION or app/.venv).
marker="$root/.sayvo-runtime"
if [ -e "$root" ] && [ ! -e "$marker" ] && [ ! -e "$root/VERSION" ] && [ ! -e "$root/app/.venv" ] \
  && [ -n "$(ls -A "$root" 2>/dev/null)" ]; then
  fail "$root already holds files that are not a Sayvo runtime; choose an empty folder"
fi
mkdir -p "$root" || fail "cannot create $root"
printf 'Sayvo engine runtime, built by bootstrap_runtime.sh\n' >"$marker" || fail "cannot write to $root"
rm -f "$root/VERSION"
# Never replace a folder this script did not make (a source checkout's engine/, say).
if [ -e "$app/engine" ] && [ ! -e "$app/engine/bin/sayvo-engine" ]; then
  fail "$app/engine exists but is not an installed engine; not replacing it"
fi
rm -rf "$app/engine.new"
mkdir -p "$app/engine.new/bin" || fail "cannot write to $app"
if [ -d "$payload/engine" ]; then
  cp -R "$payload/engine/." "$app/engine.new/" || fail "cannot copy $payload/engine"
fi
cp "$source_binary" "$app/engine.new/bin/sayvo-engine" || fail "cannot copy $source_binary"
chmod 755 "$app/engine.new/bin/sayvo-engine"
rm -rf "$app/engine" && mv "$app/engine.new" "$app/engine" || fail "cannot install the engine files"
ok

# 4. The environment run_engine.sh starts from.
step venv 40 "Creating the engine environment"
rm -rf "$app/.venv.new"
mkdir -p "$app/.venv.new/bin" "$app/data" && chmod 700 "$app/data" || fail "cannot write to $app"
ln -s ../../engine/bin/sayvo-engine "$app/.venv.new/bin/sayvo-engine" || fail "cannot link the engine"
{
  echo "SAYVO_ENGINE_MODEL_DIR=$app/models/streaming"
  echo "SAYVO_ENGINE_DATA_DIR=$app/data"
} >"$app/.venv.new/engine.env"
rm -rf "$app/.venv" && mv "$app/.venv.new" "$app/.venv" || fail "cannot install the environment"
ok

# 5. The engine starts and knows its version.
step deps 50 "Checking the engine"
reported=$("$app/.venv/bin/sayvo-engine" --version 2>&1) || fail "the engine does not start: $reported"
echo "bootstrap: $reported"
ok

# 6. The streaming model: Debian's PocketSphinx US English model, linked not copied.
step models_stream 65 "Linking the speech model"
for part in en-us en-us.lm.bin cmudict-en-us.dict; do
  [ -e "$model_source/$part" ] \
    || need speech-model "The speech model is missing ($model_source/$part). Install the pocketsphinx-en-us package, then retry."
done
rm -rf "$app/models/streaming.new"
mkdir -p "$app/models/streaming.new" || fail "cannot write to $app/models"
for part in en-us en-us.lm.bin cmudict-en-us.dict; do
  ln -s "$model_source/$part" "$app/models/streaming.new/$part" || fail "cannot link $part"
done
rm -rf "$app/models/streaming" && mv "$app/models/streaming.new" "$app/models/streaming" \
  || fail "cannot install the speech model"
ok

# 7. The final pass runs on the same decoder; prove the model loads.
step models_final 80 "Loading the transcription model"
check_dir=$(mktemp -d) || fail "no temporary directory"
if ! out=$("$app/.venv/bin/sayvo-engine" --check --model-dir "$app/models/streaming" --data-dir "$check_dir" 2>&1); then
  rm -rf "$check_dir"
  fail "the speech model does not load: $out"
fi
rm -rf "$check_dir"
ok

# 8. The formatting pass is rule-based and built into the engine: nothing to fetch.
step models_gec 90 "Checking the formatting rules"
ok

# 9. Stamp the version last.
step finalize 97 "Finishing"
printf '%s\n' "$version" >"$root/VERSION.new" && mv "$root/VERSION.new" "$root/VERSION" \
  || fail "cannot write $root/VERSION"
ok
echo "PROGRESS 100 Ready"
echo "DONE"
