#!/usr/bin/env bash
# The main job on a fresh machine: installs what is missing, builds, writes a
# sample Ambulor archive, inspects it, tests it and converts it with the
# reference host.
# PATIENTS (default 200) sets the sample's size; the sample and the Kairon
# archive go to sample/.
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
  --trace sample/trace.jsonl
