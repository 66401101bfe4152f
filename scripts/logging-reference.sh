#!/bin/sh
# Makes the reference of the logging library with Doxygen, in FOLDER: open FOLDER/html/index.html.
# Usage: scripts/logging-reference.sh FOLDER
set -eu
mkdir -p "${1:?Usage: scripts/logging-reference.sh FOLDER}"
folder=$(cd "$1" && pwd)
cd "$(dirname "$0")/.."

# The headers that <kelto/logging.h> includes, and those of the classes that they stand on.
headers=$({
  sed -n 's|^#include <kelto/\(.*\)>$|\1|p' cmake/logging.h.in
  ls logging/DD*.h logging/LogFields.h platform/LogTable.h
} | sort -u | tr '\n' ' ')

{
  cat docs/reference/Doxyfile
  echo "INPUT = $headers"
  echo "INPUT_FILTER = \"python3 docs/reference/comments.py\""
  echo "OUTPUT_DIRECTORY = \"$folder\""
  echo "STRIP_FROM_PATH = ."
} | doxygen -
