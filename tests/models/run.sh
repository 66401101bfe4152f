#!/usr/bin/env bash
# Has Spin try every order of steps of the models in this folder, and sees to it that it notices a missing guard.
#
#   run.sh [FOLDER]    for what is made; a temporary one by default
set -euo pipefail
models=$(dirname "$(readlink -f "$0")")
folder=${1:-$(mktemp -d)}
[ $# -gt 0 ] || trap 'rm -rf "$folder"' EXIT
cd "$folder"

# errors NAME [definitions]: how many errors Spin finds.
errors() {
  local name=$1
  shift
  spin "$@" -a "$models/$name.pml" >spin.txt
  cc -O2 -w -DSAFETY -DCOLLAPSE -o pan pan.c
  ./pan -m1000000 >pan.txt
  ! grep -q "max search depth too small\|out of memory" pan.txt || { cat pan.txt; exit 1; }
  sed -n 's/.*errors: \([0-9]*\).*/\1/p' pan.txt
}

for setting in "2 2 1" "2 1 2" "1 5 2"; do
  set -- $setting
  [ "$(errors logging -DCALLERS=$1 -DRECORDS=$2 -DCAPACITY=$3)" = 0 ] || { cat pan.txt; echo "$1 callers, $2 records each, $3 slots: it goes wrong"; exit 1; }
  awk -v setting="$1 callers, $2 records each, $3 slots" '/states, stored/ { printf "%s: %s states, no error\n", setting, $1 }' pan.txt
done
for guard in $(sed -n 's/^ \*   \([A-Z_]*\) .*/\1/p' "$models/logging.pml"); do
  [ "$(errors logging -DCALLERS=2 -DRECORDS=1 -DCAPACITY=1 -D$guard)" != 0 ] || { echo "with $guard nothing goes wrong"; exit 1; }
  echo "$guard: noticed"
done
