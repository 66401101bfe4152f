#!/usr/bin/env bash
# Installs the Debian packages of a list that are missing, as root or through sudo. Prints nothing when all are there.
#
#   install-packages.sh [LIST [SECTION]]    packages.txt by default; only what follows the line "# SECTION", up to the next comment
#
# Where there is no apt, it names the commands and libraries that are missing instead.
set -euo pipefail
top=$(cd "$(dirname "$(readlink -f "$0")")/.." && pwd)
list=${1:-$top/packages.txt}
section=${2:-}

packages() {
  awk -v section="$section" '/^#/ { is_wanted = section == "" || $0 == "# " section; next } NF && (section == "" || is_wanted) { print $1 }' "$list"
}

# Another distribution names its packages otherwise, so what they bring is looked for.
commands=(g++ cmake ninja pkg-config git python3)
libraries=(libsystemd xcb xcb-damage xcb-res wayland-client wayland-protocols icu-uc libsodium Qt6Widgets Qt6UiTools)
if [ "$section" != build ]; then
  commands+=(Xvfb openbox dbus-daemon xdotool xprop xwininfo import identify)
  libraries+=(sqlite3 gtest gmock)
fi

name_what_is_missing() {
  local missing=() each
  for each in "${commands[@]}"; do
    command -v "$each" >/dev/null || missing+=("the command $each")
  done
  if command -v pkg-config >/dev/null; then
    for each in "${libraries[@]}"; do
      pkg-config --exists "$each" || missing+=("the library $each, with its headers")
    done
  fi
  [ ${#missing[@]} -gt 0 ] || return 0
  echo "There is no apt here, so nothing was installed. Missing:" >&2
  printf '  %s\n' "${missing[@]}" >&2
  echo "README.md names the packages of other distributions." >&2
  exit 1
}

command -v apt-get >/dev/null && command -v dpkg-query >/dev/null || { name_what_is_missing; exit 0; }

missing=()
while read -r package; do
  status=$(dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null || true)
  [ "$status" = installed ] || missing+=("$package")
done < <(packages)
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
