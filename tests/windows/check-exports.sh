#!/usr/bin/env bash
# check-exports.sh OBJDUMP LIBRARY: fails unless the DLL exports exactly the
# four entry points of an in-process server, undecorated, and nothing else.
set -euo pipefail

[ $# -eq 2 ] || { echo "usage: check-exports.sh OBJDUMP LIBRARY" >&2; exit 2; }
objdump="$1" library="$2"

exports="$("$objdump" -p "$library" | sed -n '/\[Ordinal\/Name Pointer\] Table/,/^$/p' |
  sed -n 's/^[[:space:]]*\[[[:space:]]*[0-9]*\][[:space:]]*//p' | sort | tr '\n' ' ')"
wanted="DllCanUnloadNow DllGetClassObject DllRegisterServer DllUnregisterServer "
if [ "$exports" != "$wanted" ]; then
  echo "check-exports.sh: $library exports \"$exports\", not \"$wanted\"" >&2
  exit 1
fi
echo "exports: $exports"
