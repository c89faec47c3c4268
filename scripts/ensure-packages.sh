#!/usr/bin/env bash
# Installs the Debian packages the build and the tests need, if any is missing.
set -euo pipefail

packages=(
  cmake ninja-build python3        # build
  mingw-w64                        # cross compiler, posix and win32 thread models
  wine wine64 libwine wine64-tools # Wine to run the programs; widl, IDL includes, stdole2.tlb
  libwine-dev
  googletest                       # test framework sources, cross-built by the project
  castxml                          # header front-end of the generator (only to regenerate declarations)
  xvfb xauth                       # a virtual display for the Qt programs under Wine
)

missing=()
for package in "${packages[@]}"; do
  [[ $(dpkg-query -W -f='${Status}' "$package" 2>/dev/null) == "install ok installed" ]] || missing+=("$package")
done
if (( ${#missing[@]} )); then
  echo "Installing missing packages: ${missing[*]}"
  sudo_cmd=()
  [[ $(id -u) -ne 0 ]] && sudo_cmd=(sudo)
  "${sudo_cmd[@]}" apt-get update -qq
  DEBIAN_FRONTEND=noninteractive "${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
fi
