#!/usr/bin/env bash
# Builds the Windows slice (scripts/build-windows.sh) and runs its tests
# through CTest under Wine: build-win64/ under 64-bit Wine, build-win32/ under
# 32-bit Wine in the i386 root, which is made first when it isn't there
# (scripts/wine-env.sh). ARCHS="win64" tests one only. A Wine or a root that
# can't start fails the tests; it never passes them.
set -euo pipefail
cd "$(dirname "$0")/.."

archs="${ARCHS:-win64 win32}"
ARCHS="$archs" scripts/build-windows.sh
case " $archs " in *" win32 "*) scripts/wine-env.sh root >/dev/null ;; esac

status=0
for arch in $archs; do
  echo "== $arch"
  (cd "build-$arch" && ctest --output-on-failure --no-tests=error -j"$(nproc)") || status=1
done
exit "$status"
