#!/usr/bin/env bash
# Runs a test script (JScript .js or VBScript .vbs) under Wine's cscript:
#   run-script.sh RUNNER... -- SCRIPT [ARG...]
# where RUNNER is the command that runs a Windows program (scripts/wine-env.sh
# run64 or run32), SCRIPT the script's Windows path and ARG what it is given.
#
# cscript under Wine prints nothing and exits 0 when a script doesn't parse
# or dies on an uncaught error, so a test script catches everything itself,
# ends with WScript.Quit(0) only when every check held, and prints
# "N passed, 0 failed" last: a run passes only with both, and N above 0.
set -uo pipefail

runner=()
while [ $# -gt 0 ] && [ "$1" != "--" ]; do
  runner+=("$1")
  shift
done
[ $# -ge 2 ] && [ ${#runner[@]} -gt 0 ] || { echo "usage: run-script.sh RUNNER... -- SCRIPT [ARG...]" >&2; exit 2; }
shift
script="$1"

output="$("${runner[@]}" cscript //nologo "$@")"
status=$?
printf '%s\n' "$output"
last="$(printf '%s\n' "$output" | tr -d '\r' | grep -v '^$' | tail -n 1)"
if [ "$status" -ne 0 ]; then
  echo "run-script.sh: $script ended with status $status" >&2
  exit 1
fi
if ! [[ "$last" =~ ^[1-9][0-9]*\ passed,\ 0\ failed$ ]]; then
  echo "run-script.sh: $script didn't report its checks to the end (last line: \"$last\")" >&2
  exit 1
fi
