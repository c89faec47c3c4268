#!/usr/bin/env bash
# Builds the benchmark hosts and runs them under Wine: the one on the sample
# application and the type-name chains, then, with a Qt 4.8 SDK, the one on
# real Qt objects (on a virtual display, in a Wine prefix of its own). Each
# prints its figures as ratios of medians measured side by side in one
# process, and a summary; last, with Qt's example applications, what
# driving one from outside costs (programs/bench/attach_bench.sh), and what
# long random calls and many calls do to it (programs/bench/robust_bench.sh),
# and the WebDriver server's speed (programs/bench/webdriver_bench.py).
# Not a test:
# nothing here passes or fails on time.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/ensure-packages.sh"
build=$("$root/scripts/configure.sh" | tail -n 1)
export KW_WINE_ROOT="$build/wine"
targets=(kwbench_host)
qt=
if "$root/scripts/has-target.sh" "$build" kwqt_bench; then
  targets+=(kwqt_bench)
  qt=1
fi
cmake --build "$build" --target "${targets[@]}"
"$root/cmake/wine-run.sh" "$build/bin/kwbench_host.exe"
echo
if [[ -n $qt ]]; then
  "$root/cmake/wine-run.sh" --prefix bench_qt --display "$build/bin/kwqt_bench.exe"
else
  echo "The Qt benchmark was SKIPPED: no Qt 4.8 SDK (-DKW_QT_SDK=<folder> or ../shared/qt48-sdk)"
fi
echo
apps=$(sed -n 's/^KW_QT_APPS:PATH=//p' "$build/CMakeCache.txt")
if [[ -n $qt && -f $apps/calculator.exe ]]; then
  echo "Driving Qt's calculator example from outside:"
  cmake --build "$build" --target kwscript kwrotclient
  "$root/programs/bench/attach_bench.sh" "$build/bin" "$apps/calculator.exe" "$root/programs/bench"
  echo
  echo "Robustness: random calls, memory, the guard against destroyed objects:"
  "$root/programs/bench/robust_bench.sh" "$build/bin" "$apps"
  echo
  echo "The WebDriver server against ChromeDriver, bare HTTP and kwscript:"
  "$root/scripts/ensure-clients.sh"
  cmake --build "$build" --target kwdriver kwagent kwscript
  /usr/bin/python3 "$root/programs/bench/webdriver_bench.py" "$root" "$apps"
else
  echo "The attach benchmark was SKIPPED: it needs a Qt 4.8 SDK and Qt's example applications"
fi
