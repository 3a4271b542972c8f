#!/usr/bin/env bash
# Installs the three packages that build-deb.sh made into this machine with
# dpkg, builds the demo against them with pkg-config (shared and static) and
# with CMake, runs it and the installed orlix, then removes (purges) the
# packages again, whatever happened. Needs root (CI runs as root). Packages of these
# names that are already installed are left alone: the check refuses to run.
# Usage: deb-check.sh BUILD
set -euo pipefail

build=${1:?usage: deb-check.sh BUILD}
root=$(cd "$(dirname "$0")/.." && pwd)
packages=(orlix-tools liborlix-util-dev liborlix-util2)
fail() { echo "deb-check: $*" >&2; exit 1; }

[ "$(id -u)" -eq 0 ] || fail "installing packages needs root"
debs=("$build"/liborlix-util2_*.deb "$build"/liborlix-util-dev_*.deb "$build"/orlix-tools_*.deb)
for deb in "${debs[@]}"; do [ -f "$deb" ] || fail "$deb not found; run make deb first"; done
for p in "${packages[@]}"; do
  if dpkg-query -W -f='${Status}' "$p" 2> /dev/null | grep -Eq 'installed|config-files'; then
    fail "$p is installed already; remove it first"
  fi
done

work=$(mktemp -d)
cleanup() {
  echo "deb-check: removing the packages"
  dpkg --purge "${packages[@]}" > /dev/null || true
  rm -rf "$work"
}
trap cleanup EXIT

echo "deb-check: dpkg -i ${debs[*]##*/}"
dpkg -i "${debs[@]}" > "$work/dpkg.log" 2>&1 || { cat "$work/dpkg.log" >&2; fail "dpkg -i failed"; }

echo "deb-check: pkg-config finds the installed library"
unset PKG_CONFIG_PATH
[ "$(pkg-config --modversion orlix_util)" = "$(dpkg-query -W -f='${Version}' liborlix-util2 | cut -d- -f1)" ] ||
  fail "pkg-config gives another version than the package"
[ -f "$(pkg-config --variable=includedir orlix_util)/orlix_util.h" ] || fail "includedir is wrong"
[ -f "$(pkg-config --variable=libdir orlix_util)/liborlix_util.so" ] || fail "libdir is wrong"

echo "deb-check: the demo with pkg-config, shared and static"
cc -std=c99 -Wall -Wextra -Werror "$root/examples/demo.c" $(pkg-config --cflags --libs orlix_util) \
   -o "$work/demo-shared"
"$work/demo-shared" > /dev/null 2>&1 || fail "the demo linked with the shared library failed"
cc -static -std=c99 "$root/examples/demo.c" $(pkg-config --static --cflags --libs orlix_util) \
   -o "$work/demo-static" 2> "$work/static.log" || { cat "$work/static.log" >&2; fail "static link failed"; }
"$work/demo-static" > /dev/null 2>&1 || fail "the static demo failed"

echo "deb-check: the demo with find_package(OrlixUtil)"
cmake -S "$root/examples/standalone" -B "$work/cmake" > "$work/cmake.log" 2>&1 &&
  cmake --build "$work/cmake" >> "$work/cmake.log" 2>&1 || { cat "$work/cmake.log" >&2; fail "CMake build failed"; }
"$work/cmake/demo" > /dev/null 2>&1 || fail "the CMake demo failed"

echo "deb-check: the installed orlix"
/usr/bin/orlix version
[ "$(printf '[1,2]' | /usr/bin/orlix json)" = "[1,2]" ] || fail "orlix json gives a wrong result"
[ -f /usr/share/man/man1/orlix.1.gz ] && [ -f /usr/share/bash-completion/completions/orlix ] ||
  fail "manual page or completion missing"
echo "deb-check: passed"
