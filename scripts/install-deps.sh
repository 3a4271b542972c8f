#!/usr/bin/env bash
# Installs what a build needs when it is missing; safe to run again.
#   install-deps.sh build   compiler, CMake, Ninja, GMP, GoogleTest and the
#                           tests' oracles (Python, OpenSSL, locale
#                           sources) (the default)
#   install-deps.sh deb     what make deb needs: dpkg-shlibdeps, file, lintian
#   install-deps.sh fuzz    clang with libFuzzer
#   install-deps.sh bench   Google Benchmark and the peer libraries
set -euo pipefail

what=${1:-build}
case "$what" in
  build) packages=(g++ cmake ninja-build pkg-config python3 libgtest-dev libgmock-dev libgmp-dev
                  libssl-dev openssl locales) ;;
  deb)   packages=(dpkg-dev file lintian) ;;
  fuzz)  packages=(clang libclang-rt-dev) ;;
  bench) packages=(libbenchmark-dev libssl-dev libsodium-dev libjansson-dev libcjson-dev
                  rapidjson-dev libjson-c-dev libsimdjson-dev libicu-dev libidn11-dev
                  libidn2-dev libutf8proc-dev) ;;
  *) echo "usage: $0 [build|deb|fuzz|bench]" >&2; exit 2 ;;
esac

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

if [ "$(id -u)" -eq 0 ]; then
  sudo=()
elif command -v sudo >/dev/null 2>&1; then
  sudo=(sudo)
else
  echo "install-deps: missing ${missing[*]} and not root; install them and retry" >&2
  exit 1
fi
echo "install-deps: installing ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
"${sudo[@]}" apt-get update -qq
"${sudo[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
