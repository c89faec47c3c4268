#!/usr/bin/env bash
# Runs kwdriver, the W3C WebDriver server for Qt 4.8 applications, under
# Wine. Builds what is missing first.
#   ./scripts/driver.sh [--port N] [--host ADDR] [--max-sessions N]
#                       [--log-level quiet|info|debug] [--hub URL]
# Listens on 127.0.0.1:4723 unless told otherwise; WebDriver clients on this
# machine use http://127.0.0.1:4723 with capabilities such as
#   {"platformName": "windows", "kw:app": "/path/to/app.exe"}
# Applications start on a virtual display when no DISPLAY is set. To attach
# (kw:attach), start the application in the same Wine prefix (printed at
# start). Ctrl+C or SIGTERM ends kwdriver, which closes every application it
# launched and leaves attached ones running.
# --hub URL also registers kwdriver with a Selenium Grid 4 hub as a relay node.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)

driver_args=()
hub=
port=4723 host=127.0.0.1 max_sessions=0 log_level=info
while [[ $# -gt 0 ]]; do
  case $1 in
    --port | --host | --max-sessions | --log-level)
      [[ $# -ge 2 ]] || { echo "driver.sh: $1 needs a value" >&2; exit 2; }
      case $1 in
        --port) port=$2 ;; --host) host=$2 ;; --max-sessions) max_sessions=$2 ;; --log-level) log_level=$2 ;;
      esac
      driver_args+=("$1" "$2"); shift 2 ;;
    --hub)
      [[ $# -ge 2 ]] || { echo "driver.sh: --hub needs a URL" >&2; exit 2; }
      hub=$2; shift 2 ;;
    -h | --help) sed -n '2,14p' "$0" | sed 's/^# \{0,1\}//'; exit 0 ;;
    *) echo "driver.sh: unknown option $1" >&2; exit 2 ;;
  esac
done

"$root/scripts/ensure-packages.sh"
build=$("$root/scripts/configure.sh" | tail -n 1)
if ! "$root/scripts/has-target.sh" "$build" kwdriver; then
  echo "driver.sh: no kwdriver target: its third-party sources are missing (scripts/ensure-sources.sh)" >&2
  exit 2
fi
targets=(kwdriver)
# The agent it loads into applications needs a Qt 4.8 SDK.
if "$root/scripts/has-target.sh" "$build" kwagent; then
  targets+=(kwagent)
else
  echo "driver.sh: no Qt 4.8 SDK (-DKW_QT_SDK=<folder> or ../shared/qt48-sdk): sessions cannot load the agent" >&2
fi
build_log=$(mktemp)
if ! cmake --build "$build" --target "${targets[@]}" >"$build_log" 2>&1; then
  cat "$build_log" >&2
  rm -f "$build_log"
  echo "driver.sh: the build failed" >&2
  exit 1
fi
rm -f "$build_log"

export KW_WINE_ROOT="${KW_WINE_ROOT:-$build/wine}"
echo "driver.sh: Wine prefix $KW_WINE_ROOT/driver (start applications to attach to there)" >&2

runner= hub_pid=
# kwdriver's own process: wine-run.sh itself once it has exec'd Wine, else
# its child (when it waits for the program to end its virtual display).
# Wine names the process after the program: its first argument.
driver_pid() {
  local pid name
  for pid in "$runner" $(ps -o pid= --ppid "$runner" 2>/dev/null); do
    name=$(tr '\0' '\n' <"/proc/$pid/cmdline" 2>/dev/null | head -n 1) || true
    if [[ $name == *kwdriver.exe ]]; then
      echo "$pid"
      return
    fi
  done
}

stop() {
  # Errors are ignored from here on (bash 5.2 fails a command substitution
  # in a trap that interrupted `wait`, and errexit would end the script).
  set +e
  trap '' INT TERM
  [[ -n $runner ]] || exit 130
  [[ -n $hub_pid ]] && kill "$hub_pid" 2>/dev/null
  # Wine turns SIGINT into Ctrl+C for the program (its console control
  # handler ends the sessions); SIGTERM would end the process at once.
  local pid
  pid=$(driver_pid)
  [[ -n $pid ]] && kill -INT "$pid" 2>/dev/null
  for _ in $(seq 100); do
    kill -0 "$runner" 2>/dev/null || break
    sleep 0.2
  done
  if kill -0 "$runner" 2>/dev/null; then
    echo "driver.sh: kwdriver did not end in 20 s, killing it" >&2
    [[ -n $pid ]] && kill -KILL "$pid" 2>/dev/null
    kill "$runner" 2>/dev/null
  fi
  wait "$runner" 2>/dev/null
  exit 0
}

# kwdriver runs in a session of its own, so that a Ctrl+C in the terminal
# reaches this script only, which passes it on to kwdriver alone (not to
# the applications kwdriver launched, which share its process group).
trap stop INT TERM
setsid "$root/cmake/wine-run.sh" --prefix driver --display-if-none "$build/bin/kwdriver.exe" \
  "${driver_args[@]}" </dev/null &
runner=$!

# With --hub, Selenium's own node in relay mode beside the server: it
# offers the hub --max-sessions slots for platformName "windows" and passes
# the sessions it is given on to kwdriver; it ends with this script.
if [[ -n $hub ]]; then
  "$root/scripts/grid-node.sh" --hub "$hub" --driver-url "http://$host:$port" --max-sessions "$max_sessions" \
    --host "$host" --log-level "$log_level" --watch $$ &
  hub_pid=$!
fi


status=0
wait "$runner" || status=$?
exit $status
