#!/usr/bin/env bash
# The third-party libraries of the WebDriver server, for the cross build:
# cpp-httplib's single header and pugixml's sources from Debian's source
# packages (the binary packages split httplib.h or ship Linux objects only),
# nlohmann-json's header from its Debian package. Each lands in an include
# folder of its own under $KW_DEPS_DIR (default ./.deps); the last line
# printed is that folder.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
deps=${KW_DEPS_DIR:-$root/.deps}
sudo_cmd=()
[[ $(id -u) -ne 0 ]] && sudo_cmd=(sudo)

installed() { [[ $(dpkg-query -W -f='${Status}' "$1" 2>/dev/null) == "install ok installed" ]]; }

if ! installed nlohmann-json3-dev || ! installed dpkg-dev; then
  "${sudo_cmd[@]}" apt-get update -qq
  DEBIAN_FRONTEND=noninteractive "${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends \
    nlohmann-json3-dev dpkg-dev >/dev/null
fi

# apt-get source needs a deb-src entry for the suites the machine uses.
sources_list=/etc/apt/sources.list.d/kw-deb-src.sources
need_source() { [[ ! -f "$deps/httplib/httplib.h" || ! -f "$deps/pugixml/src/pugixml.cpp" ]]; }
if need_source && ! grep -rqs '^Types:.*deb-src\|^deb-src' /etc/apt/sources.list /etc/apt/sources.list.d/; then
  printf 'Types: deb-src\nURIs: http://deb.debian.org/debian\nSuites: bookworm bookworm-updates\nComponents: main\nSigned-By: /usr/share/keyrings/debian-archive-keyring.gpg\n' |
    "${sudo_cmd[@]}" tee "$sources_list" >/dev/null
  "${sudo_cmd[@]}" apt-get update -qq
fi

fetch_source() {  # package, folder under $deps, a file that shows it is there
  local package=$1 folder=$2 marker=$3
  [[ -f "$deps/$folder/$marker" ]] && return
  local work; work=$(mktemp -d)
  (cd "$work" && apt-get source -qq --download-only "$package" >/dev/null 2>&1 &&
     dpkg-source --no-check -x ./*.dsc unpacked >/dev/null)
  mkdir -p "$deps"
  rm -rf "${deps:?}/$folder"
  mv "$work/unpacked" "$deps/$folder"
  rm -rf "$work"
}

mkdir -p "$deps/include"
fetch_source cpp-httplib httplib httplib.h
fetch_source pugixml pugixml src/pugixml.cpp
# Header-only libraries get include folders of their own, never /usr/include.
[[ -d "$deps/include/nlohmann" ]] || cp -r /usr/include/nlohmann "$deps/include/nlohmann"
[[ -f "$deps/include/httplib.h" ]] || cp "$deps/httplib/httplib.h" "$deps/include/httplib.h"
echo "$deps"
