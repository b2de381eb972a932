#!/usr/bin/env bash
# Cross-builds the Windows slice with MinGW-w64: build-win64/ (x86_64) and
# build-win32/ (i686). Installs what it needs first and does nothing there
# when every package is already in place. Extra arguments go to CMake's
# configure step of both builds. ARCHS="win64" builds one only.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-deps.sh cmake make firebird-dev \
  g++-mingw-w64-x86-64-posix g++-mingw-w64-i686-posix mingw-w64-tools libz-mingw-w64-dev \
  googletest wine wine64 debootstrap

launcher=()
command -v ccache >/dev/null && launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache -DCMAKE_C_COMPILER_LAUNCHER=ccache)

for arch in ${ARCHS:-win64 win32}; do
  case "$arch" in
    win64) toolchain=cmake/toolchain-mingw-x86_64.cmake ;;
    win32) toolchain=cmake/toolchain-mingw-i686.cmake ;;
    *) echo "build-windows.sh: unknown architecture $arch" >&2; exit 2 ;;
  esac
  cmake --no-warn-unused-cli -S . -B "build-$arch" -DCMAKE_TOOLCHAIN_FILE="$toolchain" \
    -DCMAKE_BUILD_TYPE="${BUILD_TYPE:-RelWithDebInfo}" "${launcher[@]}" "$@" >/dev/null
  cmake --build "build-$arch" -j"$(nproc)"
done
