#!/usr/bin/env bash
# Pictures of the installer's window and alerts in every mode and language, one contact sheet for each scale.
#
#   scripts/contact-sheet.sh [FOLDER]     writes FOLDER/wizard-100.png, -150.png and -200.png (default: build/dev/pictures)
set -euo pipefail
top=$(dirname "$(dirname "$(readlink -f "$0")")")
folder=$(realpath -m "${1:-$top/build/dev/pictures}")
cd "$top"
[ -f build/dev/build.ninja ] || cmake --preset dev >/dev/null
cmake --build build/dev --target wizard_pictures
mkdir -p "$folder"
for percent in 100 150 200; do
  scale=$((percent / 100)).$((percent % 100))
  QT_QPA_PLATFORM=offscreen QT_SCALE_FACTOR=$scale QT_LOGGING_RULES="*=false" \
    build/dev/bin/wizard_pictures sheet "$folder/wizard-$percent.png"
  echo "$folder/wizard-$percent.png"
done
