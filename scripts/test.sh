#!/usr/bin/env bash
# Builds everything and runs every test under Wine.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/ensure-packages.sh"
build=$("$root/scripts/configure.sh" | tail -n 1)
cmake --build "$build"
ctest --test-dir "$build" --output-on-failure -j "$(nproc)"
