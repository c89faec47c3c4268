#!/usr/bin/env bash
# Runs a scenario of driver commands against one of Qt's example
# applications under Wine on a virtual display.
#   run_scenario.sh <agent_session_client.exe> <application.exe> <scenario.jsonl> [prefix]
set -uo pipefail
here=$(cd "$(dirname "$0")" && pwd)
windows() { local path=Z:$(realpath "$1"); echo "${path//\//\\}"; }
exec "$here/../../cmake/wine-run.sh" --prefix "${4:-agent_scenarios}" --display "$1" \
     "$(windows "$2")" "$(windows "$3")"
