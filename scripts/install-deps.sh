#!/usr/bin/env bash
# Installs the Debian packages that building, running and testing need, or,
# given package names, those (without the packages they recommend).
# Idempotent: does nothing when every package is already there.
set -euo pipefail

recommends=()
packages=(
  g++ cmake make pkg-config
  libfbclient2 firebird3.0-server-core firebird3.0-server firebird-dev firebird3.0-utils
  libicu-dev zlib1g-dev libsqlite3-dev libssl-dev libcsv-dev
  libcli11-dev nlohmann-json3-dev libgtest-dev
  time sqlite3
)
if [ $# -gt 0 ]; then
  packages=("$@")
  recommends=(--no-install-recommends)
fi

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done

if [ ${#missing[@]} -gt 0 ]; then
  echo "Installing: ${missing[*]}"
  sudo_cmd=""
  [ "$(id -u)" -ne 0 ] && sudo_cmd="sudo"
  $sudo_cmd apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo_cmd apt-get install -y -qq "${recommends[@]}" "${missing[@]}"
fi
