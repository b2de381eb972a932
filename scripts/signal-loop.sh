#!/usr/bin/env bash
# Sends real SIGINTs (one per run) and pairs of SIGTERMs at random moments of
# conversions of a 3,000-patient sample, RUNS times each (default 100), and
# checks every archive afterwards. Builds first; BUILD_DIR picks the build
# (default build/). The ordinary test suite runs the same loop 10 times.
set -euo pipefail
cd "$(dirname "$0")/.."
build_dir="${BUILD_DIR:-build}"
BUILD_DIR="$build_dir" scripts/build.sh >/dev/null
started=$(date +%s)
KAIRON_SIGNAL_RUNS="${RUNS:-100}" KAIRON_SIGNAL_PATIENTS="${PATIENTS:-3000}" \
  "$build_dir/bin/host_safety_test" --gtest_filter='SignalLoop.*'
echo "signal-loop: ${RUNS:-100} runs of each kind in $(( $(date +%s) - started )) s"
