#!/usr/bin/env bash
# The commands of scripts/ as a user runs them.
#   scripts_test.sh <case> <source tree> <build tree>
set -uo pipefail
case_name=$1 root=$2 build=$3
fail=0
failed() { echo "FAIL: $*"; fail=1; }

case $case_name in
  target_detection)
    # Whether the build tree has a target is asked before each script.sh run:
    # it must give the same answer every time, not now and then a wrong one.
    for run in $(seq 20); do
      "$root/scripts/has-target.sh" "$build" kwQtWrappers || failed "run $run: the target kwQtWrappers was not found"
    done
    ! "$root/scripts/has-target.sh" "$build" kw_no_such_target 2>/dev/null || failed "a target that does not exist was found"
    ;;
  *) echo "unknown case $case_name"; exit 2 ;;
esac
[[ $fail -eq 0 ]] && echo "$case_name passed"
exit $fail
