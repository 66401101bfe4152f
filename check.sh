#!/usr/bin/env bash
# The checks that are too long for ./test.sh: whole builds with other compilers and settings, clang-tidy, sanitizers.
#
#   ./check.sh              all of them
#   ./check.sh NAME...      some, by the names of the functions below: lints models clang tidy address thread release arm64
set -euo pipefail
top=$(dirname "$(readlink -f "$0")")
cd "$top"
jobs=$(nproc)

configure() {  # PRESET [more arguments]
  [ -f "build/$1/build.ninja" ] || cmake --preset "$@" >/dev/null
}

unit_tests() {  # PRESET FOLDERS EXCEPT...
  local preset=$1 folders=$2 names except
  shift 2
  names=$(ctest --test-dir "build/$preset" -N -L unit -R "$folders" | sed -n 's/^ *Test *#[0-9]*: //p')
  for except in "$@"; do
    grep -qE -e "$except" <<<"$names" || {
      echo "check.sh leaves out the test $except, and there is none of that name." >&2
      return 1
    }
  done
  ctest --test-dir "build/$preset" --no-tests=error -j "$jobs" -L unit -R "$folders" -E "$(IFS='|' && echo "$*")" \
    --timeout 300 --output-on-failure 2>&1 | scripts/test-progress.awk
}

# The checks of the sources that need no compiler.
lints() {
  configure dev
  ctest --test-dir build/dev --no-tests=error -j "$jobs" -L lint --output-on-failure
}

# The protocols between threads, in every order of their steps.
models() { tests/models/run.sh; }

# The other compiler, every warning an error, without precompiled headers.
clang() {
  configure clang
  cmake --build build/clang
}

# Product and tests, read the way build/tidy would compile them.
tidy() {
  configure tidy
  cmake --build build/tidy --target kelto_joined_tests
  python3 tests/lint/tidy_lint.py . build/tidy
}

# Addresses, leaks and undefined behaviour in all unit tests.
address() {
  local except=(
    # They look at the programs and libraries that are shipped.
    '^sdk/abi' '^packaging/'
    # A thousand programs started one after the other take minutes.
    'ThousandReplacements'
  )
  configure asan
  cmake --build build/asan --target kelto_unit_tests
  UBSAN_OPTIONS=print_stacktrace=1 unit_tests asan . "${except[@]}"
}

# Data races where threads are: dispatch, logging and the platform.
thread() {
  local except=(
    # The sanitizer's own table of threads is wrong in a child that was forked beside other threads and starts one.
    'AChildThatIsForkedWhileOthersLogMayLogToo' 'AReadOnlyFolderTakesNothing' 'AChildDoesNotWaitForAFile'
    'AForkedChildWritesItsOwnRecords' 'AForkInsideALogger' 'AChildDoesNotStoreTheBatchOfItsParent'
    'AChildEndsItsPlatformThoughAThreadOfItsParentWasLogging'
    # The sanitizer itself needs room.
    'InAFullAddressSpaceComeWithTheirBeginning'
    # A thread of the sanitizer never sleeps.
    'TheWatchAndTheOnlookerSleep'
    # It needs many records a second.
    'ALoggerThatLogsLeavesTheTextOfAWaitingCallerAlone'
  )
  configure tsan
  cmake --build build/tsan --target test_foundation_dispatch_unit test_platform_unit test_platform_linux_unit test_logging_unit
  TSAN_OPTIONS=die_after_fork=0 unit_tests tsan '^(foundation/dispatch|platform|platform/linux|logging)/[A-Z]' \
    "${except[@]}"
}

# The build that ships, every warning an error, each file of the product by itself; then it is run.
release() {
  local run
  configure release -DCMAKE_COMPILE_WARNING_AS_ERROR=ON
  cmake --build build/release
  python3 -B tests/packaging/hardening_test.py build/release
  for run in update install uninstall system_update; do
    echo "$run"
    /usr/bin/python3 -B tests/e2e/run.py "$run" build/release || [ $? = 77 ]  # cannot run here
  done
}

# Everything that needs no Qt for another processor, and its unit tests in an emulator. Only by name: it takes as long as all others.
arm64() {
  # The emulator of Debian 12 fails these tests.
  local except=(
    # It does not know openat2, and the tool insists on that.
    '^privileged/tool/' '^posix/RemoveTree' 'ToolFoldersTest' 'RemoveItem' '^platform/linux/Linux\.'
    # It starts no programs of the processor that it emulates, and /proc names it in place of the program.
    'RunningApplications' 'RunningCopies' 'DefaultsCommand' 'LaunchApplication' 'DisplayConnection' 'RealDebugDefaults'
    'BundleTest' 'Volume' 'formats_are_checked_while_compiling'
    # It stops at an assertion of its own in a child that was forked beside threads.
    'DispatchFork' 'AForkedChild' 'AForkInsideALogger' 'logging/Process' 'logging/Faults'
    # It has threads and an address space of its own, and is slow.
    'ThreadsOfLogging' 'LongRecords' 'ALoggerThatLogsLeavesTheTextOfAWaitingCallerAlone' 'ReadsBackEveryValueThatItWrites'
  )
  [ -d build/arm64-system ] || scripts/arm64-system.sh build/arm64-system
  configure arm64
  cmake --build build/arm64
  unit_tests arm64 . "${except[@]}"
}

scripts/install-packages.sh
checks=("$@")
[ ${#checks[@]} -gt 0 ] || checks=(lints models clang tidy address thread release)
for check in "${checks[@]}"; do
  echo "== $check"
  SECONDS=0
  "$check"
  echo "== $check passed after $SECONDS s"
done
