#!/usr/bin/env bash
# Measures the conversion against what it can't go below, on a sample of
# PATIENTS patients (default 2000), each measure RUNS times (default 3) with
# the median kept:
#   conversion  every category through build/bin/kairon-convert, no trace
#   limit       the tables that the categories read, every row and BLOB read
#               once through the project's source layer, and the same
#               archive rows and file bytes written again (build/bin/limit-bench)
#   gbak        gbak -b of the three database files
#   4x          the conversion of 4 x PATIENTS, for the growth of time and memory
#   report      the run's report (HTML and JSON, with its accounts) made again
#               from each of the two archives, against its time and memory
# Prints a table, then one line of JSON. Samples are kept in build/bench/ and
# reused. Needs a build (scripts/build.sh) and scripts/install-deps.sh.
set -euo pipefail
cd "$(dirname "$0")/.."

patients="${1:-2000}"
runs="${RUNS:-3}"
bin=build/bin
work=build/bench
mkdir -p "$work"
for program in kairon-convert limit-bench ambulor-sample; do
  [ -x "$bin/$program" ] || { echo "bench.sh: $bin/$program is missing: build first" >&2; exit 2; }
done

sample_of() {
  local n=$1 dir="$work/sample-$1"
  if [ ! -f "$dir/GX_USER.FDB" ] || [ ! -f "$dir/GX_MEDIA.FDB" ] || [ ! -f "$dir/GX_DATA.FDB" ]; then
    "$bin/ambulor-sample" --out "$dir" --patients "$n" --force >&2
  fi
  echo "$dir"
}

median() { sort -g | awk '{ v[NR] = $1 } END { print (NR % 2) ? v[(NR + 1) / 2] : (v[NR / 2] + v[NR / 2 + 1]) / 2 }'; }

# Runs a command RUNS times; prints the median of the wall seconds and the
# largest peak resident set in KiB.
timed() {
  local times=() peak=0 out="$work/time.txt"
  for ((i = 0; i < runs; i++)); do
    # 5: a conversion that ended with the sample's planted failures in ERR.
    local status=0
    /usr/bin/time -f "%e %M" -o "$out" "$@" >/dev/null 2>&1 || status=$?
    ((status == 0 || status == 5)) || { echo "bench.sh: $* failed" >&2; exit 1; }
    read -r seconds kib <"$out"
    times+=("$seconds")
    ((kib > peak)) && peak=$kib
  done
  printf '%s\n' "${times[@]}" | median | tr '\n' ' '
  echo "$peak"
}


small=$(sample_of "$patients")
large=$(sample_of $((4 * patients)))

read -r conversion_s peak_kib < <(timed "$bin/kairon-convert" convert "$small/GX_USER.FDB" --archive "$work/conversion.sqlite" --overwrite)

limit_runs=()
for ((i = 0; i < runs; i++)); do
  limit_runs+=("$("$bin/limit-bench" --source "$small" --like "$work/conversion.sqlite" --out "$work/limit.sqlite" |
    sed 's/.*"limit_s":\([0-9.e+-]*\).*/\1/')")
done
limit_s=$(printf '%s\n' "${limit_runs[@]}" | median)

read -r gbak_s _ < <(timed bash -c 'for f in GX_USER GX_MEDIA GX_DATA; do gbak -b -user SYSDBA "$1/$f.FDB" "$2/$f.fbk"; done' \
  gbak "$small" "$work")
rm -f "$work"/*.fbk

read -r conversion_4x_s peak_4x_kib < <(timed "$bin/kairon-convert" convert "$large/GX_USER.FDB" --archive "$work/conversion-4x.sqlite" --overwrite)

report_of() {
  timed "$bin/kairon-convert" report "$1" --json "$work/report.json" --html "$work/report.html" --overwrite
}
read -r report_s report_kib < <(report_of "$work/conversion.sqlite")
read -r report_4x_s report_4x_kib < <(report_of "$work/conversion-4x.sqlite")

largest_file_bytes=$(sqlite3 "$work/conversion-4x.sqlite" "SELECT COALESCE(MAX(size), 0) FROM files" 2>/dev/null || echo 0)

awk -v p="$patients" -v c="$conversion_s" -v l="$limit_s" -v g="$gbak_s" -v c4="$conversion_4x_s" \
    -v m="$peak_kib" -v m4="$peak_4x_kib" -v f="$largest_file_bytes" -v r="$runs" \
    -v rs="$report_s" -v rs4="$report_4x_s" -v rm="$report_kib" -v rm4="$report_4x_kib" 'BEGIN {
  ratio = c / l; growth = c4 / c
  printf "%-34s %10s\n", "measure (median of " r ")", "seconds"
  printf "%-34s %10.2f\n", "conversion, " p " patients", c
  printf "%-34s %10.2f\n", "limit (read all + write output)", l
  printf "%-34s %10.2f\n", "gbak -b of the three files", g
  printf "%-34s %10.2f\n", "conversion, " 4 * p " patients", c4
  printf "%-34s %10.2f\n", "ratio conversion / limit", ratio
  printf "%-34s %10.2f\n", "growth of time at 4x", growth
  printf "%-34s %10.1f\n", "peak RSS MiB, " p " patients", m / 1024
  printf "%-34s %10.1f\n", "peak RSS MiB, " 4 * p " patients", m4 / 1024
  printf "%-34s %10.2f\n", "largest stored file MiB", f / 1048576
  printf "%-34s %10.2f\n", "report, " p " patients", rs
  printf "%-34s %10.2f\n", "report, " 4 * p " patients", rs4
  printf "%-34s %10.2f\n", "report / conversion at 4x", rs4 / c4
  printf "%-34s %10.1f\n", "report peak RSS MiB, " p, rm / 1024
  printf "%-34s %10.1f\n", "report peak RSS MiB, " 4 * p, rm4 / 1024
  printf "{\"patients\": %d, \"conversion_s\": %.3f, \"limit_s\": %.3f, \"ratio\": %.3f, \"gbak_s\": %.3f, " \
         "\"conversion_4x_s\": %.3f, \"growth_4x\": %.3f, \"peak_rss_mib\": %.1f, \"peak_rss_4x_mib\": %.1f, " \
         "\"largest_file_mib\": %.2f, \"report_s\": %.3f, \"report_4x_s\": %.3f, \"report_peak_rss_mib\": %.1f, " \
         "\"report_peak_rss_4x_mib\": %.1f}\n", p, c, l, ratio, g, c4, growth, m / 1024, m4 / 1024, f / 1048576, \
         rs, rs4, rm / 1024, rm4 / 1024
}'
