#!/usr/bin/env bash
# Installs what is missing, builds, and runs every test that can run on this machine. ./check.sh has the stricter checks.
#
#   ./test.sh               everything but what is labelled slow or open
#   ./test.sh --slow        the slow ones too (an open test shows an attack that still succeeds: see tests/README.md)
#   ./test.sh -R NAME       further arguments go to ctest
set -euo pipefail
top=$(dirname "$(readlink -f "$0")")
cd "$top"

labels=(-LE "slow|open")
if [ "${1:-}" = --slow ]; then
  labels=(-LE open)
  shift
fi

scripts/install-packages.sh
echo "Building"
[ -f build/dev/build.ninja ] || cmake --preset dev
cmake --build build/dev

# Much of the work is waiting, so one test more than there are processors.
jobs=$(($(nproc) + 1))
log=build/dev/test.log
rm -f build/dev/test.xml
status=0
ctest --test-dir build/dev --no-tests=error -j "$jobs" --output-on-failure --output-junit "$top/build/dev/test.xml" \
  "${labels[@]}" "$@" 2>&1 | tee "$log" | scripts/test-progress.awk || status=$?
[ ! -f build/dev/test.xml ] || python3 scripts/skipped-tests.py build/dev/test.xml
grep -E 'tests passed|No tests were found' "$log" | tail -n 1
exit "$status"
