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
build/bin/kairon-convert convert sample/GX_USER.FDB --archive sample/kairon.sqlite --overwrite \
  --trace sample/trace.jsonl --report sample/report.html --report sample/report.json

echo
echo "== Report =="
echo "Open sample/report.html in a browser; sample/report.json holds the same figures."
