#!/usr/bin/env bash
# Builds the release preset and runs the benchmarks: ours and the peer on the same work, interleaved, as a table and as
# build/release/bench/NAME.json.
#
#   ./bench.sh          all of them
#   ./bench.sh NAME     one: bench/NAME*.cpp or bench/NAME.py
set -euo pipefail
top=$(dirname "$(readlink -f "$0")")
cd "$top"

scripts/install-packages.sh
[ -f build/release/build.ninja ] || cmake --preset release >/dev/null
cmake --build build/release
mkdir -p build/release/bench

found=
for program in build/release/bin/bench_* bench/*.py; do
  [ -x "$program" ] || continue
  name=$(basename "$program" .py)
  name=${name#bench_}
  [ -z "${1:-}" ] || [ "$1" = "$name" ] || continue
  found=1
  echo "== $name"
  "$program" "build/release/bench/$name.json"
done
[ -n "$found" ] || { echo "There is no benchmark ${1:-}." >&2; exit 1; }
