#!/usr/bin/env bash
# Builds the fuzz targets with clang, libFuzzer, AddressSanitizer and UBSan
# into build-fuzz/ and runs each for SECONDS (default 60), at low priority.
# Each target starts from its seeds in fuzz/corpus/<target>/ and adds what it
# finds to build-fuzz/corpus/<target>/; a crash is written to
# build-fuzz/crashes/ and makes the script fail. FUZZ_PARALLEL=1 runs the
# targets side by side instead of one after the other.
#
#   scripts/fuzz.sh 600            # ten minutes each
#   scripts/fuzz.sh 60 fail_plan   # one target
set -euo pipefail
cd "$(dirname "$0")/.."
seconds="${1:-60}"
shift || true
targets=("$@")
[ ${#targets[@]} -eq 0 ] && targets=(reading_rules catalogue_csv utente_json fail_plan gzip_filing)

CC=clang CXX=clang++ cmake -S . -B build-fuzz -DKAIRON_FUZZ=ON -DBUILD_TESTING=OFF \
  -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
nice cmake --build build-fuzz -j"${FUZZ_JOBS:-2}" --target "${targets[@]/#/fuzz_}"

mkdir -p build-fuzz/crashes build-fuzz/logs
export ASAN_OPTIONS="detect_leaks=1:abort_on_error=1"
export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1"

run() {
  local target="$1"
  mkdir -p "build-fuzz/corpus/$target"
  nice -n 19 "build-fuzz/bin/fuzz_$target" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 \
    -artifact_prefix="build-fuzz/crashes/$target-" -print_final_stats=1 \
    "build-fuzz/corpus/$target" "fuzz/corpus/$target" >"build-fuzz/logs/$target.log" 2>&1
}

status=0
pids=()
for target in "${targets[@]}"; do
  if [ "${FUZZ_PARALLEL:-0}" = "1" ]; then
    run "$target" & pids+=("$!:$target")
  else
    if run "$target"; then echo "$target: no crash in ${seconds}s"; else echo "$target: CRASH, see build-fuzz/logs/$target.log"; status=1; fi
  fi
done
for entry in "${pids[@]}"; do
  if wait "${entry%%:*}"; then echo "${entry#*:}: no crash in ${seconds}s"; else echo "${entry#*:}: CRASH, see build-fuzz/logs/${entry#*:}.log"; status=1; fi
done
exit $status
