#!/usr/bin/env bash
# Opens the report of the sample run in headless Chromium: the page must load
# with nothing in the console at the level of an error and fetch nothing,
# and its screenshot goes to docs/report.png. Chromium is installed when
# missing (for this script only: the tests don't need it).
# PATIENTS (default 200) sets the sample's size; the sample, the archive and
# the report go to sample/.
set -euo pipefail
cd "$(dirname "$0")/.."

if ! command -v chromium >/dev/null; then
  sudo_cmd=""
  [ "$(id -u)" -ne 0 ] && sudo_cmd="sudo"
  echo "Installing chromium"
  $sudo_cmd apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo_cmd apt-get install -y -qq chromium >/dev/null
fi

[ -x build/bin/kairon-convert ] || BUILD_DIR=build scripts/build.sh
patients="${PATIENTS:-200}"
mkdir -p sample docs
build/bin/ambulor-sample --out sample --patients "$patients" --force >/dev/null 2>&1
# 5: the sample's planted failures end in ERR, as they should.
build/bin/kairon-convert convert sample/GX_USER.FDB --archive sample/kairon.sqlite --overwrite \
  --report sample/report.html --report sample/report.json >/dev/null || [ $? -eq 5 ]

page="file://$PWD/sample/report.html"
log="$(mktemp)"
profile="$(mktemp -d)"
trap 'rm -rf "$log" "$profile"' EXIT
chromium_flags=(--headless --disable-gpu --no-sandbox --user-data-dir="$profile" --no-first-run
  --enable-logging=stderr --v=0 --virtual-time-budget=5000)

chromium "${chromium_flags[@]}" --dump-dom "$page" >"$log.dom" 2>"$log"
# The page has no script: any console message is a fault (Chromium logs
# them as "...:CONSOLE:..." lines, an uncaught error among them), and so is
# a failed fetch ("net::ERR_").
problems="$(grep -E 'CONSOLE|Uncaught|net::ERR_|Failed to load' "$log" || true)"
if ! grep -q '</html>' "$log.dom"; then
  echo "report-check: Chromium didn't render the page" >&2
  cat "$log" >&2
  rm -f "$log.dom"
  exit 1
fi
rm -f "$log.dom"
if [ -n "$problems" ]; then
  echo "report-check: the console of $page has errors:" >&2
  echo "$problems" >&2
  exit 1
fi
echo "report-check: $page loads with a clean console"

chromium "${chromium_flags[@]}" --hide-scrollbars --window-size=1280,2000 --screenshot="$PWD/docs/report.png" \
  "$page" >/dev/null 2>&1
[ -s docs/report.png ] || { echo "report-check: no screenshot was taken" >&2; exit 1; }
echo "report-check: screenshot in docs/report.png"
