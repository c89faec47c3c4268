#!/usr/bin/env bash
# The attach figures of ./scripts/bench.sh, on one virtual display and in
# one Wine prefix:
#   attach_bench.sh <bin folder> <calculator.exe> <bench folder>
# - a scripted call inside the calculator against the same call in
#   kwscript's own form;
# - a remote client's call through the published facade against a bare COM
#   round trip to the same process (measured side by side in the client);
# - --launch to the script's first output, and loading the agent to the
#   script's first output;
# - an app.click that closes a modal dialog against an ordinary app.click,
#   in turns in Qt's standard dialogs example.
set -uo pipefail
bin=$1 calculator=$2 here=$3
if [[ -z ${DISPLAY:-} ]]; then exec xvfb-run -a -s "-screen 0 1280x1024x24" "$0" "$@"; fi
windows() { local path="Z:$1"; echo "${path//\//\\}"; }
export KW_WINE_ROOT=$bin/../wine KWSCRIPT_TIMING=1
work=$(mktemp -d); trap 'rm -rf "$work"' EXIT
# Output through a file: an application kept running holds a pipe open.
run() {
  "$here/../../cmake/wine-run.sh" --prefix bench_attach --display-if-none "$@" >"$work/out.txt" 2>&1
  grep -v '^X connection' "$work/out.txt"
}
per_call() { sed -n 's/^scripted call: \([0-9.]*\) us/\1/p' <<<"$1"; }
script=$(windows "$here/calls.js")
# Windows unmanaged: with no window manager on the virtual display, Wine
# would wait 2 s for one whenever a dialog is hidden (tests/attach does the
# same).
run reg.exe add 'HKCU\Software\Wine\X11 Driver' /v Managed /d N /f >/dev/null

own=$(cd "$bin" && run ./kwscript.exe "$script")
launched=$(run "$bin/kwscript.exe" --launch "$(windows "$calculator")" --keep -- "$script")
pid=$(sed -n 's/.*keeps running as process \([0-9]*\).*/\1/p' <<<"$launched")
attached=$(run "$bin/kwscript.exe" --attach "$pid" "$script")
echo "$launched" | grep -E "timing|scripted"
echo "$attached" | grep -E "timing|scripted|plain name|default left out|added base"
inside=$(per_call "$attached") form=$(per_call "$own")
echo "scripted call in kwscript's own form: $form us"
grep "plain name" <<<"$own" | sed "s/^/in kwscript's own form, /"
awk -v a="$inside" -v b="$form" 'BEGIN { if (b > 0) printf "ratio, inside the calculator / own form: %.2f (goal <= 1.2)\n", a / b }'

mkfifo "$work/in"
"$here/../../cmake/wine-run.sh" --prefix bench_attach --display-if-none "$bin/kwscript.exe" --publish --attach "$pid" \
  <"$work/in" >"$work/publish.txt" 2>&1 &
publisher=$!
exec 7>"$work/in"
for _ in $(seq 100); do grep -q "published as" "$work/publish.txt" && break; sleep 0.2; done
run "$bin/kwrotclient.exe" "kwQtWrappers.$pid" --bench 7>&- | grep "remote call" | sed 's/$/ (goal <= 1.5)/'
exec 7>&-
wait $publisher
run "$bin/kwscript.exe" --attach "$pid" "$(windows "$here/../../tests/attach/close_app.js")" >/dev/null

echo "Closing a modal dialog in Qt's standard dialogs example:"
run "$bin/kwscript.exe" --launch "$(windows "$(dirname "$calculator")/standarddialogs.exe")" -- \
  "$(windows "$here/modal_click.js")"
