#!/usr/bin/env bash
# Runs Windows programs of the cross build under Wine, each run in a Wine
# prefix of its own that is removed afterwards, with Wine's debug output off
# and a UTF-8 locale (Wine names a file on the Unix side in the locale's
# encoding: without it, a name with a letter beyond ASCII can't be made).
#
#   wine-env.sh run64 PROGRAM [ARG...]   under 64-bit Wine on this machine
#   wine-env.sh run32 PROGRAM [ARG...]   under 32-bit Wine in the i386 root
#   wine-env.sh root                     makes the i386 root if it isn't there
#                                        and prints its path
#
# PROGRAM is a path to an .exe or the name of one of Wine's own programs
# (cscript, regsvr32...). The answer is the program's exit status. When Wine
# or the i386 root can't start, the answer is 125 and the cause goes to
# stderr: a run that didn't happen never reads as one that passed.
#
# The i386 root (Debian bookworm, minbase, with wine and wine32) lives in
# ${KAIRON_CACHE:-$HOME/.cache/cnvkairon}/i386-root, is made once by
# debootstrap (needs root and the network) and reused afterwards. The
# checkout, and the program's folder where it lies outside it, are
# bind-mounted into it at the same paths, in a mount namespace of the run's
# own, so that nothing stays mounted when the run ends.
set -euo pipefail

checkout="$(cd "$(dirname "$0")/.." && pwd)"
cache="${KAIRON_CACHE:-$HOME/.cache/cnvkairon}"
root="$cache/i386-root"
mirror="${KAIRON_DEBIAN_MIRROR:-http://deb.debian.org/debian}"

fail() {
  echo "wine-env.sh: $*" >&2
  exit 125
}

as_root() {
  if [ "$(id -u)" -eq 0 ]; then "$@"; else sudo "$@"; fi
}

# Makes the i386 root under a lock, so that parallel runs make it once; a
# root left half-made by an earlier attempt is made anew.
ensure_root() {
  [ -f "$root/.ready" ] && return 0
  command -v debootstrap >/dev/null || fail "debootstrap is missing: run scripts/build-windows.sh"
  mkdir -p "$cache"
  exec 9>"$cache/i386-root.lock"
  flock 9
  if [ ! -f "$root/.ready" ]; then
    echo "wine-env.sh: making the i386 root in $root (once)" >&2
    as_root rm -rf "$root" "$root.partial"
    as_root debootstrap --arch=i386 --variant=minbase bookworm "$root.partial" "$mirror" >"$cache/i386-root.log" 2>&1 ||
      fail "debootstrap failed, see $cache/i386-root.log"
    as_root cp /etc/resolv.conf "$root.partial/etc/resolv.conf"
    as_root chroot "$root.partial" /usr/bin/env DEBIAN_FRONTEND=noninteractive \
      sh -c 'apt-get update -qq && apt-get install -y -qq --no-install-recommends wine wine32 && apt-get clean' \
      >>"$cache/i386-root.log" 2>&1 || fail "installing wine32 in the i386 root failed, see $cache/i386-root.log"
    as_root touch "$root.partial/.ready"
    as_root mv "$root.partial" "$root"
  fi
  flock -u 9
  exec 9>&-
}

# A run's folder holds its Wine prefix and the temporary folder that its Wine
# server makes its socket in; both go when the run ends.
# (run and wineserver stay global: the trap that removes them runs at exit.)
run64() {
  wine=/usr/lib/wine/wine64 wineserver=/usr/lib/wine/wineserver64
  [ -x "$wine" ] || fail "64-bit Wine is missing ($wine): run scripts/build-windows.sh"
  local status=0
  run="$(mktemp -d "${TMPDIR:-/tmp}/kairon-wine64.XXXXXX")"
  mkdir "$run/tmp"
  export WINEPREFIX="$run/prefix" TMPDIR="$run/tmp" WINEARCH=win64 WINEDEBUG=-all WINEDLLOVERRIDES="mscoree,mshtml=" \
    LC_ALL=C.UTF-8
  trap '"$wineserver" -k 2>/dev/null || true; rm -rf "$run"' EXIT
  if ! "$wine" wineboot --init >"$run/boot.log" 2>&1 || [ ! -f "$WINEPREFIX/drive_c/windows/system32/kernel32.dll" ]; then
    cat "$run/boot.log" >&2
    fail "64-bit Wine didn't start"
  fi
  "$wine" "$@" || status=$?
  "$wineserver" -w
  return "$status"
}

# Run as root in a mount namespace of its own: mounts what the run needs into
# the i386 root, runs the program there under the caller's user id, and
# answers its exit status. Arguments: root, user id, folders to bind
# (separated by ":"), program, its arguments.
read -r -d '' run_in_root <<'INNER' || true
set -euo pipefail
root="$1" user="$2" program="$4"
IFS=: read -r -a binds <<<"$3"
shift 4
fail() { echo "wine-env.sh: $*" >&2; exit 125; }
mount -t proc proc "$root/proc" || fail "can't mount /proc in the i386 root"
mount --rbind /dev "$root/dev" || fail "can't mount /dev in the i386 root"
for dir in "${binds[@]}"; do
  mkdir -p "$root$dir"
  mount --bind "$dir" "$root$dir" || fail "can't bind-mount $dir into the i386 root"
done
work=/
[ -d "$root$PWD" ] && work="$PWD"
run="$(chroot "$root" mktemp -d /tmp/kairon-wine32.XXXXXX)"
mkdir "$root$run/tmp"
chown -R "$user" "$root$run"
# A UTF-8 locale, without which Wine can't name a file with a letter beyond
# ASCII on the Linux side.
in_root() {
  chroot --userspec="$user:$user" "$root" /usr/bin/env -i PATH=/usr/bin:/bin HOME="$run" TMPDIR="$run/tmp" \
    WINEPREFIX="$run/prefix" WINEARCH=win32 WINEDEBUG=-all WINEDLLOVERRIDES="mscoree,mshtml=" LC_ALL=C.UTF-8 "$@"
}
trap 'in_root /usr/lib/wine/wineserver -k 2>/dev/null || true; rm -rf "$root$run"' EXIT
if ! in_root /usr/bin/wine wineboot --init >"$root$run/boot.log" 2>&1 ||
   [ ! -f "$root$run/prefix/drive_c/windows/system32/kernel32.dll" ]; then
  cat "$root$run/boot.log" >&2
  fail "32-bit Wine didn't start in the i386 root"
fi
status=0
in_root /bin/sh -c 'cd "$1" && shift && exec /usr/bin/wine "$@"' sh "$work" "$program" "$@" || status=$?
in_root /usr/lib/wine/wineserver -w
exit "$status"
INNER

run32() {
  ensure_root
  local program="$1" binds="$checkout"
  shift
  if [ -f "$program" ]; then
    program="$(realpath "$program")"
    case "$program" in "$checkout"/*) ;; *) binds+=":$(dirname "$program")" ;; esac
  fi
  as_root unshare --mount --propagation private -- /bin/bash -c "$run_in_root" bash "$root" "$(id -u)" "$binds" "$program" "$@"
}

command="${1:-}"
[ $# -gt 0 ] && shift
case "$command" in
  run64) [ $# -gt 0 ] || fail "run64 needs a program"; run64 "$@" ;;
  run32) [ $# -gt 0 ] || fail "run32 needs a program"; run32 "$@" ;;
  root) ensure_root; echo "$root" ;;
  *) echo "usage: wine-env.sh run64|run32 PROGRAM [ARG...] | root" >&2; exit 2 ;;
esac
