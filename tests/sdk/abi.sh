#!/bin/sh
# The functions of the controller library are those that symbols.txt promises, no more and no fewer.
#
# Usage: abi.sh LIBRARY SYMBOLS
set -eu
export LC_ALL=C
nm --dynamic --defined-only "$1" | sed -n 's/^[0-9a-f]* T //p' | sort | diff "$2" -
