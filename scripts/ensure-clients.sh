#!/usr/bin/env bash
# Installs what the WebDriver clients need, if any of it is missing: Python's
# Selenium bindings and pytest, Java for Selenium Grid, Chromium and its driver
# (the benchmark's browser side), from Debian; WebdriverIO, mocha and Selenium
# Grid's server jar from npm, at the versions package-lock.json pins.
# Quiet when everything is there; safe to run from parallel tests (one install
# at a time, under a lock).
#   ensure-clients.sh [--no-browser]   --no-browser leaves Chromium out
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
js="$root/tests/webdriver/js"

packages=(python3-selenium python3-pytest openjdk-17-jre-headless nodejs npm)
[[ ${1:-} == --no-browser ]] || packages+=(chromium chromium-driver)

missing_packages() {
  missing=()
  for package in "${packages[@]}"; do
    [[ $(dpkg-query -W -f='${Status}' "$package" 2>/dev/null) == "install ok installed" ]] || missing+=("$package")
  done
  # A Java or a Node.js that came from elsewhere serves as well.
  local kept=()
  for package in "${missing[@]}"; do
    case $package in
      openjdk-17-jre-headless) command -v java >/dev/null && continue ;;
      nodejs) command -v node >/dev/null && continue ;;
      npm) command -v npm >/dev/null && continue ;;
    esac
    kept+=("$package")
  done
  missing=("${kept[@]}")
}

# The lockfile's hash, kept in node_modules once `npm ci` has installed it.
lock_stamp() { sha256sum "$js/package-lock.json" | cut -d' ' -f1; }
npm_current() { [[ -f "$js/node_modules/.kw-lock" && $(cat "$js/node_modules/.kw-lock") == $(lock_stamp) ]]; }

missing_packages
if (( ${#missing[@]} == 0 )) && npm_current; then
  exit 0
fi

lock_dir=${XDG_RUNTIME_DIR:-/tmp}
exec 9>"$lock_dir/kw-ensure-clients.lock"
flock 9
missing_packages  # another run may have installed them meanwhile
if (( ${#missing[@]} )); then
  echo "Installing missing packages: ${missing[*]}" >&2
  sudo_cmd=()
  [[ $(id -u) -ne 0 ]] && sudo_cmd=(sudo)
  "${sudo_cmd[@]}" apt-get update -qq
  DEBIAN_FRONTEND=noninteractive "${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
fi
if ! npm_current; then
  echo "Installing the JavaScript clients (npm ci in tests/webdriver/js)" >&2
  # No install scripts: none of these packages needs one, and WebdriverIO's
  # optional browser drivers would fetch binaries from the network.
  (cd "$js" && npm ci --ignore-scripts --no-audit --no-fund --loglevel=error >/dev/null)
  lock_stamp >"$js/node_modules/.kw-lock"
fi
