#!/usr/bin/env bash
# check-imports.sh OBJDUMP FILE: fails when the Windows program or library
# FILE imports from a DLL that isn't one of Windows' own (a MinGW runtime,
# zlib1.dll...), and names it.
set -euo pipefail

[ $# -eq 2 ] || { echo "usage: check-imports.sh OBJDUMP FILE" >&2; exit 2; }
objdump="$1" file="$2"

windows_own='^(kernel32|user32|advapi32|ole32|oleaut32|shell32|msvcrt|ws2_32|bcrypt|ntdll)\.dll$'
imports="$("$objdump" -p "$file" | sed -n 's/^[[:space:]]*DLL Name: //p')"
[ -n "$imports" ] || { echo "check-imports.sh: no import table in $file" >&2; exit 1; }

status=0
while read -r dll; do
  if ! [[ "${dll,,}" =~ $windows_own ]]; then
    echo "check-imports.sh: $file imports $dll, which Windows doesn't have" >&2
    status=1
  fi
done <<<"$imports"
[ "$status" -eq 0 ] && echo "imports: $(echo $imports)"
exit "$status"
