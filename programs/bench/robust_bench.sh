#!/usr/bin/env bash
# The robustness figures of ./scripts/bench.sh, in a Wine prefix of their own:
#   robust_bench.sh <bin folder> <applications folder>
# - two long fuzz runs: 5,000 random calls each (tests/attach/fuzz.sh,
#   seeds 7 and 8), their crashes, hangs and refusals (a crash ends a run:
#   its calls are then not all made);
# - the private memory of the application's Wine process (Private_Clean +
#   Private_Dirty of /proc/PID/smaps_rollup) before and after 100,000
#   setText("12345") calls in the line edits example, and before and after
#   50 reads of a 2 MB document's text in the application example, each
#   beside the drift of the same process left idle as long;
# - a guarded call on a QObject facade against a value facade's call.
set -uo pipefail
bin=$1 apps=$2
here=$(cd "$(dirname "$0")" && pwd)
export KW_WINE_ROOT=$bin/../wine
prefix=bench_robust
windows() { local path=Z:$1; echo "${path//\//\\}"; }
run() { "$here/../../cmake/wine-run.sh" --prefix "$prefix" --display-if-none "$@"; }
work=$(mktemp -d -p "$bin/.."); trap 'rm -rf "$work"' EXIT
run reg.exe add 'HKCU\Software\Wine\X11 Driver' /v Managed /d N /f >/dev/null 2>&1

echo "Random calls on four widget classes of the line edits example, 5,000 a seed:"
for seed in 7 8; do
  fuzz=$("$here/../../tests/attach/fuzz.sh" "$bin" "$apps" "$seed" 5000 "$prefix")
  status=$(sed -n 's/^status: //p' <<<"$fuzz")
  echo "  seed $seed: application crashes: $([[ $status == 4 ]] && echo 1 || echo 0)," \
       "hangs: $([[ $status == 2 ]] && echo 1 || echo 0) (kwscript's status $status)"
  sed -n 's/^fuzz: \([0-9]*\) calls, \([0-9]*\) made, \([0-9]*\) refused, \([0-9]*\) refused without.*/    \1 calls: \2 made, \3 refused (\4 of them without a message)/p' <<<"$fuzz"
  grep -E '^refused without a message|^kwscript: the application crashed' <<<"$fuzz" | head -5 | sed 's/^/    /'
done

# The Unix process of the application kwscript keeps running as Windows
# process $1: the one of this prefix whose command line names $2.
unix_pid() {
  local pid
  for pid in $(pgrep -f "$2"); do
    { tr '\0' '\n' <"/proc/$pid/environ"; } 2>/dev/null | grep -q "^WINEPREFIX=.*/wine/$prefix\$" && { echo "$pid"; return; }
  done
}
private_kb() { awk '/^Private_(Clean|Dirty):/ { kb += $2 } END { print kb }' "/proc/$1/smaps_rollup"; }
# memory <application> <what it does> <warm-up script> <measured script>
memory() {
  local out pid unix idle0 idle1 before after
  # Into a file: the application kept running inherits the output handles.
  run "$bin/kwscript.exe" --launch "$(windows "$apps/$1.exe")" --keep -- "$(windows "$3")" >"$work/kept.txt" 2>&1
  out=$(cat "$work/kept.txt")
  pid=$(sed -n 's/.*keeps running as process \([0-9]*\).*/\1/p' <<<"$out")
  unix=$(unix_pid "$pid" "$1.exe")
  [[ -n $pid && -n $unix ]] || { echo "  $2: the application did not keep running"; echo "$out"; return; }
  idle0=$(private_kb "$unix")
  local start=$SECONDS
  run "$bin/kwscript.exe" --attach "$pid" "$(windows "$3")" >/dev/null 2>&1  # the warm-up again: caches filled
  idle1=$(private_kb "$unix")
  before=$idle1
  run "$bin/kwscript.exe" --attach "$pid" "$(windows "$4")" >"$work/measured.txt" 2>&1
  after=$(private_kb "$unix")
  # Ended outright: the application example would ask to save its document.
  run "C:\\windows\\system32\\taskkill.exe" /F /PID "$pid" >/dev/null 2>&1
  echo "  $2: private memory $before KB before, $after KB after: $((after - before)) KB" \
       "(the warm-up run again beside it: $((idle1 - idle0)) KB)"
  grep -v "^$" "$work/measured.txt" | sed 's/^/    /'
}
cat >"$work/settext_warm.js" <<'JS'
var edit = app.query("QLineEdit");
for (var i = 0; i < 10000; ++i) edit.setText("12345");
JS
cat >"$work/settext.js" <<'JS'
var edit = app.query("QLineEdit");
for (var i = 0; i < 100000; ++i) edit.setText("12345");
app.echo("setText calls: " + i);
JS
cat >"$work/document_warm.js" <<'JS'
var editor = app.query("QPlainTextEdit");
if (editor.toPlainText().length < 2000000) editor.setPlainText(new Array(40001).join(new Array(51).join("x") + "\n"));
for (var i = 0; i < 5; ++i) editor.toPlainText();
JS
cat >"$work/document.js" <<'JS'
var editor = app.query("QPlainTextEdit"), length = 0;
for (var i = 0; i < 50; ++i) length = editor.toPlainText().length;
app.echo("reads of the document's text: " + i + ", each " + length + " characters");
JS
echo "The application's memory:"
memory lineedits "100,000 setText(\"12345\") calls" "$work/settext_warm.js" "$work/settext.js"
memory application "50 reads of a 2 MB document's text" "$work/document_warm.js" "$work/document.js"
echo "What the guard against destroyed objects costs:"
run "$bin/kwscript.exe" --launch "$(windows "$apps/lineedits.exe")" -- "$(windows "$here/guard.js")" 2>&1 | sed 's/^/  /'
