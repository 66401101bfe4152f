#!/usr/bin/env bash
# Makes a folder with the libraries and headers of an arm64 Debian, for the cross compiler and the emulator. As root.
#
#   arm64-system.sh FOLDER
set -euo pipefail
top=$(cd "$(dirname "$(readlink -f "$0")")/.." && pwd)
folder=$1
for program in debootstrap dpkg-deb aarch64-linux-gnu-g++ qemu-aarch64; do
  command -v "$program" >/dev/null && continue
  echo "$program is missing: ./check.sh installs what packages.txt names where there is apt." >&2
  exit 1
done
# The libraries that the project links, without Qt. Nothing in the folder is run while it is made: packages are only unpacked.
libraries=$(grep -E '^lib.*-dev$' "$top/packages.txt" | grep -Ev 'qt|clang' | paste -sd,)
release=$(. /etc/os-release && echo "$VERSION_CODENAME")
rm -rf "$folder.new"
debootstrap --arch=arm64 --foreign --variant=minbase --include="libc6-dev,libstdc++-12-dev,$libraries" "$release" "$folder.new" >"$folder.log"
for package in "$folder.new"/var/cache/apt/archives/*.deb; do
  dpkg-deb -x "$package" "$folder.new"
done
rm -rf "$folder" "$folder.new/var/cache/apt/archives"
mv "$folder.new" "$folder"
