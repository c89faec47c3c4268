#!/usr/bin/env bash
# Checks what a wrappers DLL shows the loader: exactly the one export
# GetModuleIntf, and imports from Windows system DLLs only (the C and C++
# runtimes are linked in statically), plus the DLLs of the wrapped library.
#   check_dll_surface.sh <objdump> <dll> [<wrapped library DLL names, | separated>]
set -euo pipefail
objdump=$1
dll=$2
wrapped=${3:-}
dump=$("$objdump" -p "$dll")

# The names follow the "[Ordinal/Name Pointer] Table" heading, one "[ i] name" row each.
exports=$(awk '/^\[Ordinal\/Name Pointer\] Table/{on=1; next} on && /^[[:space:]]*\[ *[0-9]+\]/{print $NF; next} {on=0}' <<<"$dump" | paste -sd' ')
if [[ "$exports" != "GetModuleIntf" ]]; then
  echo "FAIL: exports are [$exports], expected exactly GetModuleIntf"
  exit 1
fi

allowed='^(KERNEL32|ADVAPI32|USER32|ole32|OLEAUT32|msvcrt|ntdll|api-ms-win-[a-z0-9-]+'"${wrapped:+|$wrapped}"')\.dll$'
status=0
while read -r name; do
  if ! grep -qiE "$allowed" <<<"$name"; then
    echo "FAIL: imports non-system DLL $name"
    status=1
  fi
done < <(awk '/DLL Name:/{print $3}' <<<"$dump")
[[ $status -eq 0 ]] && echo "ok: one export GetModuleIntf; imports $(awk '/DLL Name:/{printf "%s ", $3}' <<<"$dump")"
exit $status
