#!/usr/bin/env bash
# Installs the build in BUILD into a temporary prefix, then builds the
# examples against that installation twice - with pkg-config and with CMake's
# find_package - and runs them. Usage: install-check.sh BUILD
set -euo pipefail

build=${1:?usage: install-check.sh BUILD}
root=$(cd "$(dirname "$0")/.." && pwd)
prefix=$(mktemp -d)
trap 'rm -rf "$prefix"' EXIT

cmake --install "$build" --prefix "$prefix" > /dev/null
for f in lib/liborlix_util.so.2.6.0 lib/liborlix_util.so.2 lib/liborlix_util.so lib/liborlix_util.a \
         include/orlix/orlix_util.h lib/pkgconfig/orlix_util.pc \
         lib/cmake/OrlixUtil/OrlixUtilConfig.cmake bin/orlix share/man/man1/orlix.1; do
  [ -e "$prefix/$f" ] || { echo "install-check: $f was not installed" >&2; exit 1; }
done

echo "install-check: examples with pkg-config"
export PKG_CONFIG_PATH="$prefix/lib/pkgconfig"
for example in demo; do
  cc -std=c99 -Wall -Wextra -Werror "$root/examples/$example.c" \
     $(pkg-config --cflags --libs orlix_util) -o "$prefix/$example-pc"
  LD_LIBRARY_PATH="$prefix/lib" "$prefix/$example-pc" > /dev/null
done

echo "install-check: examples with find_package(OrlixUtil)"
cmake -S "$root/examples/standalone" -B "$prefix/examples" -DCMAKE_PREFIX_PATH="$prefix" > /dev/null
cmake --build "$prefix/examples" > /dev/null
for example in demo; do "$prefix/examples/$example" > /dev/null; done

echo "install-check: the installed orlix runs"
LD_LIBRARY_PATH="$prefix/lib" "$prefix/bin/orlix" version
echo "install-check: passed"
