#!/usr/bin/env bash
# Runs a Windows program under Wine in a prefix kept under the build tree.
#   wine-run.sh [--prefix NAME] [--display | --display-if-none] program.exe [args...]
# --display gives the program a virtual X display of its own (xvfb-run), for
# programs that show windows; --display-if-none does so only when no DISPLAY
# is set, and uses the one that is otherwise.
# The prefix <build>/wine/NAME (default "shared") is created once, under a lock,
# so parallel test processes never race on its creation. Programs that change
# the registry use a prefix of their own so that no other process sees it.
set -euo pipefail

prefix_name=shared
if [[ "${1:-}" == --prefix ]]; then prefix_name=$2; shift 2; fi
[[ "${1:-}" == --prefix=* ]] && { prefix_name=${1#--prefix=}; shift; }
display=
if [[ "${1:-}" == --display ]]; then display=1; shift; fi
if [[ "${1:-}" == --display-if-none ]]; then
  shift
  [[ -n ${DISPLAY:-} ]] && keep_display=$DISPLAY || display=1
fi

program=$1; shift
build_root=${KW_WINE_ROOT:-$(cd "$(dirname "$program")/.." && pwd)/wine}
build_root=$(mkdir -p "$build_root" && cd "$build_root" && pwd)
mkdir -p "$build_root"
export WINEPREFIX="$build_root/$prefix_name"
export WINEDEBUG=${WINEDEBUG:--all}
export WINEDLLOVERRIDES="mscoree,mshtml=;winemenubuilder.exe=d"
export WINEARCH=win64
unset DISPLAY
[[ -n ${keep_display:-} ]] && export DISPLAY=$keep_display

wine_bin=$(command -v wine64 || command -v wine || echo /usr/lib/wine/wine64)

(
  flock 9
  if [[ ! -f "$WINEPREFIX/.kw-ready" ]]; then
    rm -rf "$WINEPREFIX"
    wineboot -i >/dev/null 2>&1 || true
    wineserver -w || true
    [[ -f "$WINEPREFIX/system.reg" ]] || { echo "wine-run: could not create prefix $WINEPREFIX" >&2; exit 1; }
    touch "$WINEPREFIX/.kw-ready"
  fi
) 9>"$build_root/.$prefix_name.lock"

if [[ -n $display ]]; then
  exec xvfb-run -a -s "-screen 0 1280x1024x24" "$wine_bin" "$program" "$@"
fi
exec "$wine_bin" "$program" "$@"
