#!/usr/bin/env bash
# make-source.sh FOLDER: makes FOLDER with GX_USER.FDB, GX_MEDIA.FDB and
# GX_DATA.FDB, each four whole pages of 4096 bytes beginning with a database
# header page of ODS 12.0: files that pass every check made before the
# Firebird client is loaded, and hold nothing else.
set -euo pipefail
[ $# -eq 1 ] || { echo "usage: make-source.sh FOLDER" >&2; exit 2; }
mkdir -p "$1"
for name in GX_USER.FDB GX_MEDIA.FDB GX_DATA.FDB; do
  file="$1/$name"
  # Page type 1 at 0, page size 4096 at 0x10, ODS 12 with Firebird's flag at 0x12.
  { printf '\001'; head -c 15 /dev/zero; printf '\000\020\014\200'; } >"$file"
  truncate -s 16384 "$file"
done
