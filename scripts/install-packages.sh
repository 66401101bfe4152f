#!/usr/bin/env bash
# Installs the Debian packages of packages.txt that are missing, as root or through sudo. Prints nothing when all are there.
set -euo pipefail
list="$(dirname "$(readlink -f "$0")")/../packages.txt"

missing=()
while read -r package; do
  status=$(dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null || true)
  [ "$status" = installed ] || missing+=("$package")
done < <(sed 's/#.*//' "$list" | awk 'NF {print $1}')
[ ${#missing[@]} -gt 0 ] || exit 0

as_root=()
if [ "$(id -u)" != 0 ]; then
  if ! command -v sudo >/dev/null; then
    echo "These packages are missing, and only root can install them (there is no sudo here). As root, run:" >&2
    echo "  apt-get install ${missing[*]}" >&2
    exit 1
  fi
  as_root=(sudo)
fi
echo "Installing ${#missing[@]} packages: ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
log=$(mktemp)
trap 'rm -f "$log"' EXIT
if ! { "${as_root[@]}" apt-get update && "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
       apt-get install -y --no-install-recommends "${missing[@]}"; } >"$log" 2>&1; then
  tail -n 20 "$log" >&2
  echo "Installing packages failed (see above). Check the network and the package sources, then run this again." >&2
  exit 1
fi
