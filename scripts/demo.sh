#!/usr/bin/env bash
# The main job on a fresh machine: installs what is missing, builds, writes a
# sample Ambulor archive, inspects it, tests it, converts it with the
# reference host and writes the run's report.
# PATIENTS (default 200) sets the sample's size; the sample, the Kairon
# archive and the report go to sample/.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
BUILD_DIR=build scripts/build.sh

patients="${PATIENTS:-200}"
build/bin/ambulor-sample --out sample --patients "$patients" --force

echo
echo "== Inspection of the source =="
build/bin/ambulor-inspect sample/GX_USER.FDB

echo
echo "== Test of the source =="
build/bin/kairon-convert test sample/GX_USER.FDB

echo
echo "== Conversion of every category =="
# The sample holds, among its first patients, some whose conversion fails on
# purpose (sample::PlantedFailures in tools/ambulor-sample/sample.h lists
# them with their causes): the run ends true with them in ERR, which is exit
# status 5. Anything else is a fault.
echo "The sample plants patients whose conversion fails on purpose: expect them in ERR and exit status 5."
status=0
build/bin/kairon-convert convert sample/GX_USER.FDB --archive sample/kairon.sqlite --overwrite \
  --trace sample/trace.jsonl --report sample/report.html --report sample/report.json || status=$?
expected=5
[ "$patients" -ge 3 ] || expected=0
if [ "$status" -ne "$expected" ]; then
  echo "demo: kairon-convert convert ended with exit status $status, where $expected was expected" >&2
  exit 1
fi
echo "Exit status $status, as expected: the planted failures are in ERR (the report lists them)."

echo
echo "== Report =="
echo "Open sample/report.html in a browser; sample/report.json holds the same figures."
