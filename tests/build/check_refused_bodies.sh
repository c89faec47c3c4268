#!/usr/bin/env bash
# Compiles never_runs.cpp once per case: case 0 must compile, each other case
# must fail with its own message (a body that could never run is refused by
# the build rather than answering calls with a code of its own).
#   check_refused_bodies.sh <c++ compiler> <source root> <never_runs.cpp>
set -uo pipefail
compiler=$1 root=$2 source=$3
compile() { "$compiler" -std=c++17 -fsyntax-only -DUNICODE -D_UNICODE -DKW_CASE="$1" -I"$root" "$source" 2>&1; }
status=0
if ! output=$(compile 0); then
  echo "FAIL: the control case does not compile:"; echo "$output"; exit 1
fi
for row in "1|a generated member that can never run" "2|a value result is a copy"; do
  case_number=${row%%|*} message=${row#*|}
  if output=$(compile "$case_number"); then
    echo "FAIL: case $case_number compiled"; status=1
  elif ! grep -q "$message" <<<"$output"; then
    echo "FAIL: case $case_number failed without \"$message\":"; echo "$output" | head -20; status=1
  else
    echo "ok: case $case_number refused: $message"
  fi
done
exit $status
