#!/usr/bin/env bash
# Runs a JScript (.js) or VBScript (.vbs) file with kwscript under Wine.
# Builds what is missing first.
#   ./scripts/script.sh FILE                        against kwscript's demo form
#   ./scripts/script.sh --launch APP.exe [ARGS...] [--keep] -- FILE
#                                                   starts APP (on a virtual display
#                                                   when none is set), runs FILE in it,
#                                                   ends APP afterwards unless --keep,
#                                                   which prints how to attach and end it
#   ./scripts/script.sh --attach PID|IMAGE.exe FILE inside a running application of
#                                                   the Wine prefix $WINEPREFIX
#   ./scripts/script.sh --tree [--json] (--launch APP.exe [ARGS...] | --attach PID|IMAGE.exe)
#   ./scripts/script.sh --publish (--launch APP.exe [ARGS...] | --attach PID|IMAGE.exe)
#                                                   registers the application's "app" object
#                                                   as "kwQtWrappers.<pid>" for VBScript's
#                                                   GetObject and the Running Object Table,
#                                                   until this command's input ends
#   ./scripts/script.sh --members TYPE [--json]     what a script can call on a TYPE object:
#                                                   plain names, properties, Qt declarations
# --timeout SECONDS before the mode stops a script that runs longer (default 300).
# --junit FILE before the mode writes a JUnit XML report of the script's checks;
# --max-items N before --tree lists up to N rows of each list, table or tree.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
[[ $# -ge 1 ]] || { sed -n '2,22p' "$0" | sed 's/^# \{0,1\}//'; exit 2; }
"$root/scripts/ensure-packages.sh"
build=$("$root/scripts/configure.sh" | tail -n 1)
if ! "$root/scripts/has-target.sh" "$build" kwscript; then
  echo "kwscript needs a Qt 4.8 SDK (-DKW_QT_SDK=<folder> or ../shared/qt48-sdk)" >&2
  exit 2
fi
cmake --build "$build" --target kwscript >/dev/null

# Files named on the command line reach kwscript as Windows paths (Wine's Z: drive).
args=()
attach=
for arg in "$@"; do
  [[ $arg == --attach ]] && attach=1
  if [[ -f $arg ]]; then
    arg="Z:$(cd "$(dirname "$arg")" && pwd)/$(basename "$arg")"
    arg=${arg//\//\\}
  fi
  args+=("$arg")
done
# Attaching needs the application's own Wine prefix (one wineserver for both).
if [[ -n $attach && -n ${WINEPREFIX:-} ]]; then
  export WINEDEBUG=${WINEDEBUG:--all}
  exec "$(command -v wine64 || command -v wine)" "$build/bin/kwscript.exe" "${args[@]}"
fi
# Its own Wine prefix "script", under the build tree unless KW_WINE_ROOT names
# another folder for the prefixes.
KW_WINE_ROOT="${KW_WINE_ROOT:-$build/wine}" exec "$root/cmake/wine-run.sh" --prefix script --display-if-none \
  "$build/bin/kwscript.exe" "${args[@]}"
