#!/usr/bin/env bash
# Installs the build in BUILD (stripped, as `make install` does) into a
# temporary prefix and builds programs against that installation the four
# ways a user does - pkg-config with the shared object and fully static,
# CMake's find_package with the shared object and with the static archive,
# each from C only - and runs them. Usage: install-check.sh BUILD
set -euo pipefail

build=${1:?usage: install-check.sh BUILD}
root=$(cd "$(dirname "$0")/.." && pwd)
prefix=$(mktemp -d)
trap 'rm -rf "$prefix"' EXIT
work=$prefix/work
mkdir -p "$work"

fail() { echo "install-check: $*" >&2; exit 1; }

cmake --install "$build" --prefix "$prefix" --strip > /dev/null
for f in lib/liborlix_util.so.2.6.0 lib/liborlix_util.so.2 lib/liborlix_util.so lib/liborlix_util.a \
         include/orlix/orlix_util.h lib/pkgconfig/orlix_util.pc \
         lib/cmake/OrlixUtil/OrlixUtilConfig.cmake lib/cmake/OrlixUtil/FindGMP.cmake bin/orlix \
         share/man/man1/orlix.1.gz share/bash-completion/completions/orlix; do
  [ -e "$prefix/$f" ] || fail "$f was not installed"
done
for f in lib/liborlix_util.so.2.6.0 bin/orlix; do
  readelf -S "$prefix/$f" | grep -q '\.symtab' && fail "$f is not stripped"
done

echo "install-check: pkg-config points into the prefix"
export PKG_CONFIG_PATH="$prefix/lib/pkgconfig"
[ -f "$(pkg-config --variable=includedir orlix_util)/orlix_util.h" ] || fail "includedir is wrong"
[ -f "$(pkg-config --variable=libdir orlix_util)/liborlix_util.so" ] || fail "libdir is wrong"

echo "install-check: the demo with pkg-config, shared"
cc -std=c99 -Wall -Wextra -Werror "$root/examples/demo.c" \
   $(pkg-config --cflags --libs orlix_util) -o "$work/demo-shared"
LD_LIBRARY_PATH="$prefix/lib" "$work/demo-shared" > /dev/null

echo "install-check: the demo with pkg-config --static, linked fully static"
# glibc warns that dlopen and iconv in a static program load shared objects
# at run time; the link itself must succeed.
cc -static -std=c99 -Wall -Wextra -Werror "$root/examples/demo.c" \
   $(pkg-config --static --cflags --libs orlix_util) -o "$work/demo-static" 2> "$work/static.log" ||
  { cat "$work/static.log" >&2; fail "static link failed"; }
readelf -d "$work/demo-static" 2> /dev/null | grep -q NEEDED && fail "demo-static is not static"
"$work/demo-static" > /dev/null

echo "install-check: the README's examples with pkg-config"
python3 "$root/tests/abi/readme_snippets.py" "$root/README.md" "$work/readme" cc \
  $(pkg-config --cflags --libs orlix_util) -Wl,-rpath,"$prefix/lib" > "$work/readme.log" ||
  { cat "$work/readme.log" >&2; fail "README examples failed"; }

for kind in shared static; do
  echo "install-check: the demo with find_package(OrlixUtil), $kind, in a C-only project"
  static=OFF
  [ $kind = static ] && static=ON
  cmake -S "$root/examples/standalone" -B "$work/cmake-$kind" -DCMAKE_PREFIX_PATH="$prefix" \
        -DORLIX_STATIC=$static > "$work/cmake-$kind.log" 2>&1 &&
    cmake --build "$work/cmake-$kind" >> "$work/cmake-$kind.log" 2>&1 ||
    { cat "$work/cmake-$kind.log" >&2; fail "CMake $kind build failed"; }
  "$work/cmake-$kind/demo" > /dev/null
  if [ $kind = static ]; then
    readelf -d "$work/cmake-$kind/demo" | grep -q 'liborlix_util' && fail "CMake static demo links the shared object"
  fi
done

echo "install-check: the installed orlix runs"
LD_LIBRARY_PATH="$prefix/lib" "$prefix/bin/orlix" version
echo "install-check: passed"
