#!/usr/bin/env bash
# A few orlix commands on the sample data in examples/data, as `make demo`
# shows them. Usage: demo-cli.sh BIN
set -euo pipefail
bin=${1:?usage: demo-cli.sh BIN}
data=$(cd "$(dirname "$0")/../examples/data" && pwd)
run() {
  printf '\n$ %s\n' "$*"
  "$bin/$@"
}
run orlix --version
run orlix json --sort "$data/config.json"
run orlix json --pretty "$data/config.json"
run orlix base64 "$data/hello.txt"
run orlix pem encode GREETING "$data/hello.txt"
run orlix idn to-ascii "b$(printf '\303\274')cher.example" "$(printf '\344\276\213\345\255\220').example"
run orlix time convert --to America/New_York 2016-12-31T23:59:60Z
run orlix prime 128 --fast
