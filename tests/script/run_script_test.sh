#!/usr/bin/env bash
# Runs kwscript under Wine on a virtual display and checks what it printed.
#   run_script_test.sh <exit status> <kwscript.exe> <arguments...> -- <pattern>...
# Passes when kwscript exits with that status, prints every pattern (grep -E,
# in any order) and never prints "NOT OK".
set -uo pipefail
here=$(cd "$(dirname "$0")" && pwd)
want=$1; program=$2; shift 2
args=()
while [[ $# -gt 0 && $1 != -- ]]; do args+=("$1"); shift; done
shift
output=$("$here/../../cmake/wine-run.sh" --prefix script --display "$program" "${args[@]}" 2>&1)
status=$?
output=${output//$'\r'/}  # Wine's console ends lines with CR LF
echo "$output"
fail=0
[[ $status -eq $want ]] || { echo "FAIL: exit status $status, expected $want"; fail=1; }
for pattern in "$@"; do
  grep -qE -- "$pattern" <<<"$output" || { echo "FAIL: no line matches: $pattern"; fail=1; }
done
if grep -q "NOT OK" <<<"$output"; then echo "FAIL: a check failed"; fail=1; fi
exit $fail
