#!/usr/bin/env bash
# Builds one fuzz target with clang, the address and the undefined-behaviour sanitizer, and lets it search.
#
#   scripts/fuzz.sh NAME SECONDS      for instance "scripts/fuzz.sh archive 14400" over night
#
# It starts from fuzz/corpus/NAME and from what earlier runs found, which is kept in build/fuzz/found/NAME. An input that
# breaks the target is left in build/fuzz/broken; one worth keeping belongs into fuzz/corpus/NAME.
set -euo pipefail
name=${1:?the name of a target} seconds=${2:?how many seconds}
cd "$(dirname "$(readlink -f "$0")")/.."

mkdir -p "build/fuzz/found/$name" build/fuzz/broken
(
  flock 9
  [ -f build/fuzz/build.ninja ] || cmake --preset fuzz >/dev/null
  cmake --build build/fuzz --target "fuzz_$name"
) 9>build/fuzz/lock
dictionary=()
[ ! -f "fuzz/$name.dict" ] || dictionary=("-dict=fuzz/$name.dict")
exec "build/fuzz/bin/fuzz_$name" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 -max_len=8192 \
  -print_final_stats=1 "-artifact_prefix=build/fuzz/broken/$name-" "${dictionary[@]}" \
  "build/fuzz/found/$name" "fuzz/corpus/$name"
