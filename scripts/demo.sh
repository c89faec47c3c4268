#!/usr/bin/env bash
# Builds the wrappers DLLs and runs the demos under Wine: with a Qt 4.8 SDK
# the Qt demo first (a real Qt window driven by name, saved as
# qt_demo_before.png and qt_demo_after.png in the build folder), then the
# demo host against the module frame and the sample application, and last,
# with Qt's example applications beside the SDK, Qt's calculator driven from
# outside by kwscript (calculator_before.png and calculator_after.png).
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/ensure-packages.sh"
build=$("$root/scripts/configure.sh" | tail -n 1)
export KW_WINE_ROOT="$build/wine"
if "$root/scripts/has-target.sh" "$build" kwqt_demo; then
  cmake --build "$build" --target kwqt_demo
  (cd "$build" && "$root/cmake/wine-run.sh" --prefix demo --display "$build/bin/kwqt_demo.exe")
  echo "Pictures of the window: $build/qt_demo_before.png, $build/qt_demo_after.png"
  echo
else
  echo "The Qt demo was SKIPPED: no Qt 4.8 SDK (-DKW_QT_SDK=<folder> or ../shared/qt48-sdk)"
  echo
fi
cmake --build "$build" --target kwQtWrappers kwSampleWrappers kwdemo_host
"$root/cmake/wine-run.sh" "$build/bin/kwdemo_host.exe"

apps=$(sed -n 's/^KW_QT_APPS:PATH=//p' "$build/CMakeCache.txt")
if [[ -f $apps/calculator.exe ]] && "$root/scripts/has-target.sh" "$build" kwscript; then
  echo
  echo "Qt's calculator example, started and driven from outside by kwscript:"
  cmake --build "$build" --target kwscript
  windows() { local path="Z:$1"; echo "${path//\//\\}"; }
  (cd "$build" && "$root/cmake/wine-run.sh" --prefix demo --display "$build/bin/kwscript.exe" \
    --launch "$(windows "$apps/calculator.exe")" -- "$(windows "$root/programs/examples/calculator.js")")
else
  echo "The calculator driven from outside was SKIPPED: it needs a Qt 4.8 SDK and Qt's example applications"
fi
