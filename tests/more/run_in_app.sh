#!/usr/bin/env bash
# Runs a script inside one of Qt's example applications with kwscript under
# Wine on a virtual display, and checks what it printed.
#   run_in_app.sh <kwscript.exe> <application.exe> <script> <pattern>...
# Passes when kwscript exits with status 0, prints every pattern (grep -E)
# and never prints "NOT OK".
set -uo pipefail
here=$(cd "$(dirname "$0")" && pwd)
program=$1 application=$2 script=$3
shift 3
windows() { local path=Z:$1; echo "${path//\//\\}"; }
output=$("$here/../../cmake/wine-run.sh" --prefix script --display "$program" \
         --launch "$(windows "$application")" -- "$(windows "$script")" 2>&1)
status=$?
output=${output//$'\r'/}  # Wine's console ends lines with CR LF
echo "$output"
fail=0
[[ $status -eq 0 ]] || { echo "FAIL: exit status $status"; fail=1; }
for pattern in "$@"; do
  grep -qE -- "$pattern" <<<"$output" || { echo "FAIL: no line matches: $pattern"; fail=1; }
done
if grep -q "NOT OK" <<<"$output"; then echo "FAIL: a check failed"; fail=1; fi
exit $fail
