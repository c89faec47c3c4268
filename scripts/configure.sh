#!/usr/bin/env bash
# Configures the build tree (./build by default, or $KW_BUILD_DIR) once.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${KW_BUILD_DIR:-$root/build}
deps=$("$root/scripts/ensure-sources.sh" | tail -n 1)
if [[ ! -f "$build/build.ninja" ]]; then
  cmake -S "$root" -B "$build" -G Ninja \
    -DCMAKE_TOOLCHAIN_FILE="$root/cmake/toolchain-mingw-w64.cmake" -DKW_DEPS_DIR="$deps" "$@"
fi
echo "$build"
