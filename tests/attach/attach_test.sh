#!/usr/bin/env bash
# Drives Qt's own example applications from outside with kwscript: one
# scenario per run, every process of it in one Wine prefix, each on a
# virtual display that ends with the prefix's last program.
#   attach_test.sh <scenario> <kwscript bin folder> <applications folder>
# A scenario passes when each step exits with the status it names and prints
# what it must (and nothing it must not).
set -uo pipefail
here=$(cd "$(dirname "$0")" && pwd)
scenario=$1 bin=$2 apps=$3

export KW_WINE_ROOT=$bin/../wine
windows() { local path=Z:$1; echo "${path//\//\\}"; }
fail=0
# A Windows program in the scenario's one Wine prefix, on its own virtual display when none is set.
run() { "$here/../../cmake/wine-run.sh" --prefix attach --display-if-none "$@"; }
log=$(mktemp); trap 'rm -f "$log"' EXIT
# step <expected status> <pattern that must appear|-> [!<pattern that must not>] -- kwscript arguments...
step() {
  local want=$1 must=$2 mustnot=
  shift 2
  [[ $1 == !* ]] && { mustnot=${1#!}; shift; }
  shift  # --
  # Into a file, not a pipe: an application launched with --keep inherits
  # the output handles and holds a pipe open for as long as it runs.
  run "$bin/kwscript.exe" "$@" >"$log" 2>&1
  local status=$?
  output=$(tr -d '\r' <"$log")
  echo "\$ kwscript $*"; echo "$output"
  # No program of the scenario may lose its X server while it runs.
  ! grep -q "X connection to" <<<"$output" || { echo "FAIL: X noise in the output"; fail=1; }
  [[ $status -eq $want ]] || { echo "FAIL: exit status $status, expected $want"; fail=1; }
  [[ $must == - ]] || grep -qE -- "$must" <<<"$output" || { echo "FAIL: no line matches: $must"; fail=1; }
  [[ -z $mustnot ]] || ! grep -qE -- "$mustnot" <<<"$output" || { echo "FAIL: a line matches: $mustnot"; fail=1; }
}
pid_of_kept() { sed -n 's/.*keeps running as process \([0-9]*\).*/\1/p' <<<"$output"; }
calculator=$(windows "$apps/calculator.exe")
script() { windows "$here/$1"; }

case $scenario in
  calculator)
    # 12 x 7 by button clicks; the display read back through the object
    # tree by a second attach; then a third attach closes the application.
    rm -f calculator_before.png calculator_after.png
    step 0 "12 × 7 = 84" -- --launch "$calculator" --keep -- "$(windows "$here/../../programs/examples/calculator.js")"
    pid=$(pid_of_kept)
    # Its pictures land in the folder kwscript started in, and differ.
    [[ -s calculator_before.png && -s calculator_after.png ]] || { echo "FAIL: no pictures in $PWD"; fail=1; }
    ! cmp -s calculator_before.png calculator_after.png || { echo "FAIL: the pictures are the same"; fail=1; }
    step 0 'QLineEdit text="84"' -- --tree --attach "$pid"
    step 0 'closing' -- --attach "$pid" "$(script close_app.js)"
    sleep 2
    step 5 "no process matches \"$pid\"" -- --attach "$pid" "$(script close_app.js)"
    ;;
  modal_dialog)
    step 0 "the label reads 42%" -- --launch "$(windows "$apps/standarddialogs.exe")" -- "$(script modal_dialog.vbs)"
    grep -q "modal dialogs left: True" <<<"$output" || { echo "FAIL: a modal dialog is left"; fail=1; }
    ;;
  faults)
    step 5 'no process matches "999999"' -- --attach 999999 "$(script close_app.js)"
    step 5 "is not a Qt 4.8 application" -- --launch 'C:\windows\notepad.exe' -- "$(script close_app.js)"
    step 5 'no process matches "notepad.exe"' -- --attach notepad.exe "$(script close_app.js)"
    step 5 "is not a 64-bit program \(its image is for machine 0x14c\)" -- \
      --launch "$(windows "$bin/fakeqt/kwprogram32.exe")" -- "$(script close_app.js)"
    step 5 "built by a compiler whose C\+\+ ABI differs" -- --launch "$(windows "$bin/fakeqt/kwfakeqtapp.exe")" -- "$(script close_app.js)"
    step 4 "the application ended during the script" '!not reached' -- --launch "$calculator" -- "$(script ends_app.js)"
    # A crash: the script's error names its line, then kwscript says where
    # it happened; status 4 within seconds, no crash debugger waiting.
    step 4 'crash\.js:2:1: script error .*the application crashed: exception 0xc0000005 in kwcrashapp\.exe\+0x' \
      '!not reached' -- --launch "$(windows "$bin/kwcrashapp.exe")" -- "$(script crash.js)"
    grep -qE "^kwscript: the application crashed: .*, while the script was in app.click" <<<"$output" ||
      { echo "FAIL: no crash report"; fail=1; }
    step 1 'endless\.js:2:.*E_ABORT.*the script did not finish within 3 s' -- \
      --timeout 3 --launch "$calculator" -- "$(script endless.js)"
    step 2 'the script did not finish within 2 s and does not stop' '!not reached' -- \
      --timeout 2 --launch "$calculator" -- "$(script hang.js)"
    # A script error and a selector mistake: reported with their place, and
    # the application answers the next attach.
    step 1 'bad_selector\.js:2:1: .*character 13: expected a value in double quotes' -- \
      --launch "$calculator" --keep -- "$(script bad_selector.js)"
    pid=$(pid_of_kept)
    # Attaching while a script runs there: refused, the first one unharmed.
    run "$bin/kwscript.exe" \
      --attach "$pid" "$(script slow.js)" >"${TMPDIR:-/tmp}/kw_slow_$$.txt" 2>&1 &
    slow=$!
    sleep 2
    step 3 "another script is attached to this application already" -- --attach "$pid" "$(script close_app.js)"
    wait $slow; status=$?
    grep -q "slow script done" "${TMPDIR:-/tmp}/kw_slow_$$.txt" && [[ $status -eq 0 ]] ||
      { echo "FAIL: the first script did not end well ($status)"; cat "${TMPDIR:-/tmp}/kw_slow_$$.txt"; fail=1; }
    rm -f "${TMPDIR:-/tmp}/kw_slow_$$.txt"
    step 0 'closing' -- --attach "$pid" "$(script close_app.js)"
    ;;
  remote_clients)
    # Published for other processes: a VBScript run by cscript and a C++
    # client of the Running Object Table call in; when the publication ends,
    # the C++ client's objects answer RPC_E_DISCONNECTED and the
    # application answers the next attach.
    step 0 "12 × 7 = 84" -- --launch "$calculator" --keep -- "$(windows "$here/../../programs/examples/calculator.js")"
    pid=$(pid_of_kept)
    work=$(mktemp -d); trap 'rm -rf "$work" "$log"' EXIT
    mkfifo "$work/publish.in" "$work/client.in"
    run "$bin/kwscript.exe" --publish --attach "$pid" <"$work/publish.in" >"$work/publish.txt" 2>&1 &
    publisher=$!
    exec 7>"$work/publish.in"
    await() { for _ in $(seq 100); do grep -q "$2" "$1" && return 0; sleep 0.2; done; echo "FAIL: no \"$2\" in $1"; cat "$1"; fail=1; }
    await "$work/publish.txt" "published as \"kwQtWrappers.$pid\""
    run cscript.exe //nologo "$(windows "$here/remote_client.vbs")" "$pid" >"$work/vbs.txt" 2>&1 7>&-
    cat "$work/vbs.txt"
    grep -q "remote display: 9" "$work/vbs.txt" || { echo "FAIL: the VBScript client did not read 9"; fail=1; }
    # (Without 7>&- the client would hold kwscript's input open itself.)
    run "$bin/kwrotclient.exe" "kwQtWrappers.$pid" <"$work/client.in" >"$work/client.txt" 2>&1 7>&- &
    client=$!
    exec 8>"$work/client.in"
    await "$work/client.txt" "holding the objects"
    exec 7>&-  # the publication ends with kwscript's input
    wait $publisher || { echo "FAIL: kwscript --publish ended with $?"; fail=1; }
    exec 8>&-
    wait $client || { echo "FAIL: the C++ client's objects were not disconnected"; fail=1; }
    cat "$work/publish.txt" "$work/client.txt"
    grep -q 'display: "9"' "$work/client.txt" || { echo "FAIL: the C++ client did not read 9"; fail=1; }
    step 0 'closing' -- --attach "$pid" "$(script close_app.js)"
    ;;
  examples)
    # Each example against its application, then what it claims read back
    # through the object tree by a second attach (the application still
    # answers), then the application ended.
    #   application|example|a line it prints|what the tree shows after it
    while IFS='|' read -r -u 3 application example printed shown; do
      step 0 "$printed" -- --launch "$(windows "$apps/$application.exe")" --keep -- \
        "$(windows "$here/../../programs/examples/$example")"
      pid=$(pid_of_kept)
      shown=${shown//@selected@/$(sed -n 's/^selected: //p' <<<"$output")}
      step 0 "$shown" -- --tree --attach "$pid"
      run "C:\\windows\\system32\\taskkill.exe" /F /PID "$pid" >/dev/null 2>&1
    done 3<<'TABLE'
calculator|calculator.js|^12 × 7 = 84$|QLineEdit text="84"
lineedits|lineedits.js|^after Home and a minus: -123$|QLineEdit text="-123"
standarddialogs|standarddialogs.vbs|^the label reads: Ada Lovelace$|QLabel text="Ada Lovelace"
addressbook|addressbook.vbs|^the row picked, Edit Entry is enabled: True$|QTableView [0-9,]+ [0-9x]+ visible
application|application.js|^after Discard the editor holds: ""$|QPlainTextEdit plainText="A new page"
calendarwidget|calendarwidget.js|^days between two cells side by side: 1$|QCalendarWidget selectedDate="@selected@"
configdialog|configdialog.vbs|^page after a click on the second icon: 1$|QStackedWidget currentIndex="1"
TABLE
    ;;
  *) echo "unknown scenario $scenario"; exit 2 ;;
esac
[[ $fail -eq 0 ]] && echo "scenario $scenario passed"
exit $fail
