#!/bin/sh
# Every source file is as clang-format leaves it. Usage: format_lint.sh ROOT
cd "$1" || exit 1
find . \( -path ./build -o -path ./.git \) -prune -o \( -name '*.h' -o -name '*.cpp' \) -print0 |
  xargs -0 clang-format --dry-run -Werror && echo "all files are formatted"
