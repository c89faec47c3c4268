#!/usr/bin/env bash
# Runs a JScript (.js) or VBScript (.vbs) file with kwscript against its demo
# form, under Wine on a virtual display. Builds what is missing first.
#   ./scripts/script.sh FILE        run a script
#   ./scripts/script.sh --members TYPE   what a script can call on a TYPE object
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
[[ $# -ge 1 ]] || { echo "usage: $0 FILE.js|FILE.vbs | --members TYPE" >&2; exit 2; }
"$root/scripts/ensure-packages.sh"
build=$("$root/scripts/configure.sh" | tail -n 1)
if ! cmake --build "$build" --target help | grep -q '^kwscript:'; then
  echo "kwscript needs a Qt 4.8 SDK (-DKW_QT_SDK=<folder> or ../shared/qt48-sdk)" >&2
  exit 2
fi
cmake --build "$build" --target kwscript >/dev/null
args=("$@")
[[ ${args[0]} == --members ]] || args[0]=$(cd "$(dirname "${args[0]}")" && pwd)/$(basename "${args[0]}")
KW_WINE_ROOT="$build/wine" exec "$root/cmake/wine-run.sh" --prefix script --display "$build/bin/kwscript.exe" "${args[@]}"
