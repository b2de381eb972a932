#!/usr/bin/env bash
# Configures and builds into a build folder (default build/). Extra arguments
# go to CMake's configure step, e.g. -DKAIRON_SANITIZE=ON.
set -euo pipefail
cd "$(dirname "$0")/.."
build_dir="${BUILD_DIR:-build}"
cmake -S . -B "$build_dir" -DCMAKE_BUILD_TYPE="${BUILD_TYPE:-RelWithDebInfo}" "$@" >/dev/null
cmake --build "$build_dir" -j"$(nproc)"
