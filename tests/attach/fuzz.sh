#!/usr/bin/env bash
# Random calls on four widget classes of Qt's line edits example (fuzz.js):
#   fuzz.sh <kwscript bin folder> <applications folder> <seed> <calls> [<wine prefix name>]
# With FUZZ_TRACE=1 the script prints each call before making it.
# Prints kwscript's output and its exit status as "status: N" (0: the
# script ended; 2: it hung; 4: the application crashed or ended).
set -uo pipefail
here=$(cd "$(dirname "$0")" && pwd)
bin=$1 apps=$2 seed=$3 calls=$4 prefix=${5:-attach}
export KW_WINE_ROOT=$bin/../wine
windows() { local path=Z:$1; echo "${path//\//\\}"; }
run() { "$here/../../cmake/wine-run.sh" --prefix "$prefix" --display-if-none "$@"; }
# Left out because blocking is what they are for: none of these classes has
# such a member today (QDialog::exec, QMenu::exec would be).
excluded='{exec: 1}'
classes=(QLineEdit QComboBox QLabel QGroupBox)
work=$(mktemp -d -p "$bin/.."); trap 'rm -rf "$work"' EXIT
{
  echo "var members = {"
  separator=
  for class in "${classes[@]}"; do
    echo "$separator$class:"
    (cd "$bin" && run ./kwscript.exe --members "$class" --json) | tr -d '\r'
    separator=,
  done
  echo "};"
  echo "var excluded = $excluded, seed = $seed, calls = $calls, trace = ${FUZZ_TRACE:-0};"
  cat "$here/fuzz.js"
} >"$work/fuzz.js"
run "$bin/kwscript.exe" --timeout 600 --launch "$(windows "$apps/lineedits.exe")" -- "$(windows "$work/fuzz.js")" \
  >"$work/out.txt" 2>&1
status=$?
tr -d '\r' <"$work/out.txt"
echo "status: $status"
