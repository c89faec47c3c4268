#!/usr/bin/env bash
# Builds everything and runs every test under Wine.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/ensure-packages.sh"
"$root/scripts/ensure-clients.sh" --no-browser  # the WebDriver tests' clients
build=$("$root/scripts/configure.sh" | tail -n 1)
cmake --build "$build"
ctest --test-dir "$build" --output-on-failure -j "$(nproc)"
if ! grep -q '^KW_QT_SDK:PATH=..*' "$build/CMakeCache.txt"; then
  echo "Real-Qt tests and the Qt wrapper classes SKIPPED: no Qt 4.8 SDK (-DKW_QT_SDK=<folder> or ../shared/qt48-sdk)"
fi
