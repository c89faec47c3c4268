#!/usr/bin/env bash
# The commands of scripts/ as a user runs them.
#   scripts_test.sh <case> <source tree> <build tree> [<applications folder>]
set -uo pipefail
case_name=$1 root=$2 build=$3 apps=${4:-}
here=$(cd "$(dirname "$0")" && pwd)
fail=0
failed() { echo "FAIL: $*"; fail=1; }
# script.sh as a user runs it, without a display of their own, in the build
# tree under test; its Wine prefix apart from the one the script_* tests
# share, so that only this test's programs keep it and its display. Output
# through a file: an application kept running holds its output handles open.
wine_root=$build/wine/scripts_test
export KW_WINE_TEMPLATE=${KW_WINE_TEMPLATE:-$build/wine/.template}
work=$(mktemp -d)
# Whatever a failed case left running in the test's own prefix ends with it.
trap 'rm -rf "$work"; [[ ! -d $wine_root/script ]] || WINEPREFIX=$wine_root/script wineserver -k 2>/dev/null' EXIT
script_sh() {
  (cd "$work" && env -u DISPLAY -u WINEPREFIX KW_BUILD_DIR="$build" KW_WINE_ROOT="$wine_root" \
    "$root/scripts/script.sh" "$@") >"$work/out.txt" 2>&1
  local status=$?
  output=$(tr -d '\r' <"$work/out.txt")
  echo "\$ script.sh $*"; echo "$output"
  return $status
}
# Waits until every Wine program of the prefix has ended, then gives what
# they wrote last, and the display's end, the time to arrive.
prefix_ended() {
  WINEPREFIX=$1 wineserver -w
  for _ in $(seq 50); do [[ -e $1/.kw-display ]] || break; sleep 0.2; done
  sleep 0.5
}
# A command line kwscript printed, run from the checkout as a user would.
as_printed() {
  [[ -n $1 ]] || return 1
  (cd "$root" && export KW_BUILD_DIR="$build" && eval "$1") >"$work/out.txt" 2>&1
}
no_x_noise() {
  local text
  text=$(tr -d '\r' <"$work/out.txt")
  ! grep -q "X connection to" <<<"$text" || failed "X noise reached the user after $1: $(grep "X connection to" <<<"$text")"
}

case $case_name in
  target_detection)
    # Whether the build tree has a target is asked before each script.sh run:
    # it must give the same answer every time, not now and then a wrong one.
    for run in $(seq 20); do
      "$root/scripts/has-target.sh" "$build" kwQtWrappers || failed "run $run: the target kwQtWrappers was not found"
    done
    ! "$root/scripts/has-target.sh" "$build" kw_no_such_target 2>/dev/null || failed "a target that does not exist was found"
    ;;
  launched)
    calculator="$apps/calculator.exe"
    # A launched run ends with the application, and nothing of the X server
    # it ran on reaches its output, also once the display has gone.
    script_sh --launch "$calculator" -- "$root/programs/examples/calculator.js" ||
      failed "the launched run exited with $?"
    grep -q "^12 × 7 = 84$" <<<"$output" || failed "the launched run did not compute 84"
    prefix_ended "$wine_root/script"
    no_x_noise "a launched run"

    # --keep: the application and its display stay; kwscript says how to run
    # a script in it and how to end it, and both commands work as printed.
    script_sh --launch "$calculator" --keep -- "$root/programs/examples/calculator.js" ||
      failed "the kept run exited with $?"
    pid=$(sed -n 's/^kwscript: the application keeps running as process \([0-9]*\)$/\1/p' <<<"$output")
    attach=$(sed -n 's/^kwscript: run a script in it: \(.*\) FILE$/\1/p' <<<"$output")
    end=$(sed -n 's/^kwscript: end it: \(.*\) (its display ends with the prefix.s last program)$/\1/p' <<<"$output")
    [[ -n $pid && $attach == *"DISPLAY=:"*"WINEPREFIX="*"./scripts/script.sh --attach $pid" ]] ||
      failed "no pid and attach command printed"
    [[ $end == *"WINEPREFIX="*" $pid" ]] || failed "no command that ends it printed"
    display=$(sed -n 's/.*DISPLAY=:\([0-9]*\) .*/\1/p' <<<"$attach")
    sleep 5  # longer than the Wine prefix lingers once kwscript is gone
    as_printed "${attach:+$attach $here/read_display.js}" || failed "attaching as printed failed"
    cat "$work/out.txt"
    grep -q "^the display reads: 84" "$work/out.txt" || failed "the kept application did not answer"
    no_x_noise "attaching to the kept application"
    as_printed "$end" || failed "ending it as printed failed"
    prefix_ended "$wine_root/script"
    [[ -n $display && ! -e /tmp/.X$display-lock ]] || failed "the display :$display did not end with the application"
    as_printed "${attach:+$attach $here/read_display.js}"
    grep -q "no process matches \"$pid\"" "$work/out.txt" || failed "the application did not end"
    ;;
  *) echo "unknown case $case_name"; exit 2 ;;
esac
[[ $fail -eq 0 ]] && echo "$case_name passed"
exit $fail
