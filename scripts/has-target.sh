#!/usr/bin/env bash
# Exits 0 when the configured build tree BUILD has a target named TARGET, 1
# when it has none.
#   has-target.sh BUILD TARGET
# The whole list of targets is read before it is searched: a reader that
# stopped at the first match (grep -q in a pipe) would leave cmake writing
# into a closed pipe, and under pipefail its SIGPIPE would now and then turn
# a present target into a missing one.
set -euo pipefail
build=$1 target=$2
targets=$(cmake --build "$build" --target help)
[[ $'\n'$targets == *$'\n'"$target:"* ]]
