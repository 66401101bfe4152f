#!/usr/bin/env bash
# Makes the golden pictures of the wizard and an alert anew. Look at them before they are committed.
#
#   scripts/golden-pictures.sh [FOLDER]     default: tests/wizard/golden
set -euo pipefail
top=$(dirname "$(dirname "$(readlink -f "$0")")")
folder=$(realpath -m "${1:-$top/tests/wizard/golden}")
cd "$top"
[ -f build/dev/build.ninja ] || cmake --preset dev >/dev/null
cmake --build build/dev --target wizard_pictures
mkdir -p "$folder"
for language in en ja zh-Hans de ar; do
  for scale in 1 1.5 2; do
    build/dev/bin/wizard_pictures golden "$language" "$scale" "$folder"
  done
done
rm -f "$folder"/*-dark*.png # a test compares these with the plain ones
build/dev/bin/wizard_pictures readme "$folder/sheet.png"
ls "$folder"
