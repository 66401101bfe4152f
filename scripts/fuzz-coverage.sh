#!/usr/bin/env bash
# Shows which lines of a source file the corpus of a fuzz target reaches.
#
#   scripts/fuzz-coverage.sh NAME SOURCE [PERCENT]
#
# Fails when fewer than PERCENT of the lines are reached. With KELTO_LINES=1 every line is printed with its count.
set -euo pipefail
name=${1:?the name of a target} source=${2:?a source file} least=${3:-0}
cd "$(dirname "$(readlink -f "$0")")/.."

build=build/coverage
mkdir -p $build
(
  flock 9
  [ -f $build/build.ninja ] || cmake -G Ninja -B $build -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_BUILD_TYPE=Debug \
    "-DCMAKE_CXX_FLAGS_DEBUG=-O0 -g1 -fprofile-instr-generate -fcoverage-mapping" >/dev/null
  cmake --build $build --target "replay_$name" >/dev/null
) 9>$build/lock
LLVM_PROFILE_FILE=$build/$name.raw "$build/bin/replay_$name" "fuzz/corpus/$name" >/dev/null
llvm-profdata merge -sparse "$build/$name.raw" -o "$build/$name.profile"
compiled="$PWD/$build/../../$source"  # as the compiler was told
show=(llvm-cov report)
[ -z "${KELTO_LINES:-}" ] || show=(llvm-cov show)
"${show[@]}" "$build/bin/replay_$name" "-instr-profile=$build/$name.profile" "$compiled"
reached=$(llvm-cov export -summary-only "$build/bin/replay_$name" "-instr-profile=$build/$name.profile" |
  python3 -c 'import json, sys
files = json.load(sys.stdin)["data"][0]["files"]
print(next(file["summary"]["lines"]["percent"] for file in files if file["filename"] == sys.argv[1]))' "$compiled")
printf '%s: %.1f %% of the lines are reached by fuzz/corpus/%s\n' "$source" "$reached" "$name"
python3 -c "import sys; sys.exit(0 if $reached >= $least else 1)"
