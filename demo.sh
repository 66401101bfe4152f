#!/usr/bin/env bash
# Shows one run of the installer on real bundles, with real windows: installs what is missing, builds, runs.
#
#   ./demo.sh [update | install | uninstall] [--system] [--slow]
#
#   update     version 1 of a small controller has the installer replace it by version 2, which then resumes (the default)
#   install    the same as a first installation over an old copy
#   uninstall  the controller has itself moved to the Trash
#   --system   as root: on a system bus with the real policy service, in a namespace of its own
#   --slow     stops at each stage, for who watches the screen
#
# Everything happens in a temporary folder. Only pictures stay, whose names are printed at the end. The installer speaks the
# language of your session.
set -euo pipefail
top=$(dirname "$(readlink -f "$0")")

usage() { sed -n '2,/^set/s/^# \{0,1\}//p' "$0" >&2; exit 2; }
system=no
for argument in "$@"; do
  case $argument in
    update | install | uninstall) ;;
    --system) system=yes ;;
    --slow) ;;
    *) usage ;;
  esac
done
if [ $system = yes ] && [ "$(id -u)" != 0 ]; then
  echo "--system needs root, for a namespace with a system bus of its own." >&2
  exit 1
fi

"$top/scripts/install-packages.sh"

# A clone that belongs to someone else is built elsewhere.
build=$top/build/dev
mkdir -p "$build" 2>/dev/null || true
[ -w "$build" ] || build=${XDG_CACHE_HOME:-$HOME/.cache}/kelto/dev
echo "Building in $build"
log=$(mktemp)
trap 'rm -f "$log"' EXIT
[ -f "$build/build.ninja" ] || (cd "$top" && cmake --preset dev -B "$build") >"$log" 2>&1 || { cat "$log" >&2; exit 1; }
cmake --build "$build" --target KeltoInstaller KeltoController KeltoLibraryServer-2 authorizationd

rm -f "$log"
trap - EXIT
exec /usr/bin/python3 "$top/demo/demo.py" "$build" "$@"
