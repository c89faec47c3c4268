#!/usr/bin/env bash
# Builds the wrappers DLLs and runs the demo host under Wine.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/ensure-packages.sh"
build=$("$root/scripts/configure.sh" | tail -n 1)
cmake --build "$build" --target kwQtWrappers kwSampleWrappers kwdemo_host
KW_WINE_ROOT="$build/wine" "$root/cmake/wine-run.sh" "$build/bin/kwdemo_host.exe"
