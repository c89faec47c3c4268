#!/usr/bin/env bash
# The second set's checked-in data is what its generators write today: the
# catalogue and headers.txt from generator/more_catalogue.py, the
# declarations from generator/frontend.py --qt-sdk (byte for byte).
#   check_regenerate.sh <python3> <Qt SDK>
# Exit status 77 (skipped) without castxml or mingw-w64's g++.
set -uo pipefail
python=$1 sdk=$2
root=$(cd "$(dirname "$0")/../.." && pwd)
data=$root/typelib/qt48more
for tool in castxml x86_64-w64-mingw32-g++; do
  command -v "$tool" >/dev/null || { echo "SKIPPED: regenerating the second set's data needs $tool"; exit 77; }
done
work=$(mktemp -d); trap 'rm -rf "$work"' EXIT
"$python" "$root/generator/more_catalogue.py" --sdk "$sdk" --out "$work" || exit 1
fail=0
diff -r "$data/catalogue" "$work/catalogue" && diff "$data/headers.txt" "$work/headers.txt" ||
  { echo "FAIL: typelib/qt48more's catalogue differs from what more_catalogue.py writes"; fail=1; }
"$python" "$root/generator/check_declarations.py" "$data/declarations.jsonl" --qt-sdk "$sdk" \
  --config-dir "$data" --catalogue "$data/catalogue" --record-copyable || fail=1
[[ $fail -eq 0 ]] && echo "the second set's data regenerates unchanged"
exit $fail
