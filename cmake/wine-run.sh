#!/usr/bin/env bash
# Runs a Windows program under Wine in a prefix kept under the build tree.
#   wine-run.sh [--prefix NAME] [--display | --display-if-none] program.exe [args...]
# --display runs the program on the prefix's virtual X display (Xvfb), for
# programs that show windows; --display-if-none does so only when no DISPLAY
# is set, and uses the one that is otherwise.
# A prefix has one virtual display at a time, shared by every program that
# asks for one while it runs: Wine keeps one desktop per prefix, and a window
# of it on another X server fails with BadWindow. The display starts with the
# first such program and ends once the prefix's wineserver has ended, that is
# once the prefix's last Wine program is gone: an application left running
# keeps it, and no program ever loses its X server while it runs (which Xlib
# reports as "X connection to :N broken").
# The prefix <build>/wine/NAME (default "shared") is created once, under a lock,
# so parallel test processes never race on its creation. Programs that change
# the registry use a prefix of their own so that no other process sees it.
# Prefixes are made from one template prefix (KW_WINE_TEMPLATE, by default
# .template beside them) whose DLL folders they share through hard links: a
# fresh prefix holds some 700 MB of Wine's DLLs, the same in every prefix, and
# the tests use dozens of prefixes.
set -euo pipefail

# wine-run.sh --end-display LOCK RECORD: run, detached, by the program that
# started a prefix's display (WINEPREFIX is the prefix's); ends the display
# once the prefix's wineserver has ended and no run that took the display is
# still starting its program.
if [[ ${1:-} == --end-display ]]; then
  lock=$2 record=$3
  while :; do
    wineserver -w
    exec 8>"$lock" 7>"$lock.users"
    flock 8  # no run takes the display now
    # Ended when no run that took it is still running its program and the
    # prefix has no server (none came up since the wait).
    if flock -x -n 7 && timeout 1 wineserver -w; then
      read -r _ pid <"$record"
      kill "$pid" 2>/dev/null || true
      rm -f "$record"
      exit 0
    fi
    exec 8>&- 7>&-  # a program started meanwhile: wait for it too
    sleep 0.2
  done
fi

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

# What a prefix was made by: one made by another Wine is made again.
wine_version=$("$wine_bin" --version 2>/dev/null || echo unknown)
template=${KW_WINE_TEMPLATE:-$build_root/.template}

cannot_create() {
  local free
  free=$(df -Pm "$build_root" 2>/dev/null | awk 'NR == 2 { print $4 }')
  echo "wine-run: could not create prefix $1 (${free:-?} MB free on its disk)" >&2
  exit 1
}

# Makes the template prefix unless it is ready for this Wine.
make_template() {
  mkdir -p "$(dirname "$template")"
  (
    flock 9
    if [[ $(cat "$template/.kw-ready" 2>/dev/null) != "$wine_version" ]]; then
      rm -rf "$template"
      WINEPREFIX=$template wineboot -i >/dev/null 2>&1 || true
      WINEPREFIX=$template wineserver -w || true
      [[ -f "$template/system.reg" ]] || cannot_create "$template"
      echo "$wine_version" >"$template/.kw-ready"
    fi
  ) 9>"$template.lock"
}

# Makes the prefix a copy of the template whose DLL folders' files are hard
# links to the template's. Only those are shared: Wine writes a registry or
# settings file that has more than one link in place, and the programs under
# test write their own files. Where links cannot be made (another file
# system) the folders are copied.
shared_folders=(drive_c/windows/system32 drive_c/windows/winsxs)
make_prefix() {
  local folder excluded=()
  make_template || exit 1
  rm -rf "$WINEPREFIX"
  mkdir -p "$WINEPREFIX"
  for folder in "${shared_folders[@]}"; do excluded+=(--exclude="./$folder"); done
  tar -C "$template" "${excluded[@]}" --exclude=./.kw-ready -cf - . | tar -C "$WINEPREFIX" -xf - ||
    cannot_create "$WINEPREFIX"
  for folder in "${shared_folders[@]}"; do
    if ! cp -al "$template/$folder" "$WINEPREFIX/$folder" 2>/dev/null; then
      rm -rf "${WINEPREFIX:?}/$folder"
      cp -a "$template/$folder" "$WINEPREFIX/$folder" || cannot_create "$WINEPREFIX"
    fi
  done
  echo "$wine_version" >"$WINEPREFIX/.kw-ready"
}

(
  flock 9
  if [[ $(cat "$WINEPREFIX/.kw-ready" 2>/dev/null) != "$wine_version" ]]; then
    make_prefix
  fi
) 9>"$build_root/.$prefix_name.lock"

# Starts Xvfb on the first free display number from 100 on, in a session of
# its own (a Ctrl+C in the terminal is not for it) and apart from this
# script's output; sets DISPLAY and xvfb_pid. A number is free when no server
# holds its lock file; should another server take it first, the next one is
# tried.
start_display() {
  local number launched
  for ((number = 100; number < 500; ++number)); do
    [[ -e /tmp/.X$number-lock || -e /tmp/.X11-unix/X$number ]] && continue
    setsid Xvfb ":$number" -screen 0 1280x1024x24 -nolisten tcp </dev/null >/dev/null 2>&1 7>&- 8>&- &
    launched=$!
    for _ in $(seq 200); do
      kill -0 "$launched" 2>/dev/null || break  # another server took the number
      # Ours once its lock file names it and its socket is there.
      if [[ $(tr -dc 0-9 2>/dev/null <"/tmp/.X$number-lock") == "$launched" && -S /tmp/.X11-unix/X$number ]]; then
        xvfb_pid=$launched
        export DISPLAY=:$number
        return 0
      fi
      sleep 0.05
    done
    kill "$launched" 2>/dev/null || true
  done
  echo "wine-run: no virtual display could be started" >&2
  exit 1
}

# Runs the program on the prefix's virtual display, started when it has none
# (its record, "<number> <Xvfb pid>", is read and written under the display
# lock). The run holds the users' lock, shared, until its program has ended,
# so the watcher never ends a display whose program has yet to connect.
run_on_prefix_display() {
  local lock="$build_root/.$prefix_name.display.lock" record="$WINEPREFIX/.kw-display"
  local number= pid=
  exec 8>"$lock" 7>"$lock.users"
  flock 8
  [[ -f $record ]] && read -r number pid <"$record"
  if [[ -n $pid ]] && kill -0 "$pid" 2>/dev/null && [[ -S /tmp/.X11-unix/X$number ]]; then
    export DISPLAY=:$number
  else
    start_display
    echo "${DISPLAY#:} $xvfb_pid" >"$record"
    setsid "$0" --end-display "$lock" "$record" </dev/null >/dev/null 2>&1 7>&- 8>&- &
    # The virtual display has no window manager, for which Wine's X11 driver
    # would wait 2 s whenever a window it left to one is hidden (a dialog
    # that closes): the prefix leaves windows unmanaged.
    "$wine_bin" reg.exe add 'HKCU\Software\Wine\X11 Driver' /v Managed /d N /f >/dev/null 2>&1 7>&- 8>&- || true
  fi
  flock -s 7
  exec 8>&-
  local status=0
  "$wine_bin" "$program" "$@" 7>&- || status=$?
  exit $status
}

[[ -n $display ]] && run_on_prefix_display "$@"
exec "$wine_bin" "$program" "$@"
