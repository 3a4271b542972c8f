#!/usr/bin/env bash
# Builds the Debian packages liborlix-util2, liborlix-util-dev and
# orlix-tools with CPack (see cmake/Debian.cmake) from a build of its own,
# configured for /usr, and checks them with lintian: any error fails.
# Usage: build-deb.sh BUILD [JOBS [CMAKE ARGUMENT...]]
set -euo pipefail

build=${1:?usage: build-deb.sh BUILD [JOBS [CMAKE ARGUMENT...]]}
jobs=${2:-2}
shift $(($# < 2 ? $# : 2))
root=$(cd "$(dirname "$0")/.." && pwd)
generator=()
command -v ninja > /dev/null && generator=(-G Ninja)

cmake -S "$root" -B "$build" "${generator[@]}" -DCMAKE_BUILD_TYPE=Release \
      -DCMAKE_INSTALL_PREFIX=/usr -DORLIX_BUILD_TESTS=OFF -DORLIX_BUILD_EXAMPLES=OFF "$@" > /dev/null
cmake --build "$build" -j "$jobs"
rm -f "$build"/*.deb
(cd "$build" && cpack -G DEB > cpack.log) || { cat "$build/cpack.log" >&2; exit 1; }
ls "$build"/*.deb

# A package built outside the Debian archive closes no bugs of it.
echo "build-deb: lintian"
lintian --fail-on error --suppress-tags initial-upload-closes-no-bugs "$build"/*.deb
