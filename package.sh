#!/usr/bin/env bash
# Builds the Debian packages from what is committed, checks them with lintian, and says how to install them.
#
#   ./package.sh [FOLDER]    FOLDER is where to build, build/package by default; the packages are in it afterwards
set -euo pipefail
top=$(dirname "$(readlink -f "$0")")
cd "$top"
folder=$(readlink -m "${1:-build/package}")

command -v dpkg >/dev/null || {
  echo "./package.sh makes Debian packages, and there is no dpkg here. README.md says how to install with cmake." >&2
  exit 1
}
scripts/install-packages.sh packages.txt build
scripts/install-packages.sh packaging/packages.txt

sources=$folder/kelto
rm -rf "$folder"
mkdir -p "$sources"
# The clone may belong to somebody else.
git=(git -c "safe.directory=$top")
if "${git[@]}" rev-parse --git-dir >/dev/null 2>&1; then
  [ -z "$("${git[@]}" status --porcelain)" ] || echo "The packages are made without the changes that are not committed."
  "${git[@]}" archive HEAD | tar -x -C "$sources"
else
  tar -c --exclude=./build --exclude=./.cache . | tar -x -C "$sources"
fi
cp -r "$sources/packaging/debian" "$sources/debian"
maintainer=$(sed -n 's/^Maintainer: //p' "$sources/debian/control")
"$sources/packaging/changelog.sh" "$sources/CHANGELOG.md" "$maintainer" >"$sources/debian/changelog"

echo "Building in $folder"
log=$folder/build.log
if ! (cd "$sources" && dpkg-buildpackage --build=binary --no-sign) >"$log" 2>&1; then
  tail -n 40 "$log" >&2
  echo "Building the packages failed; $log has all of it." >&2
  exit 1
fi
# As root lintian says that it should not be root.
(cd "$folder" && lintian --allow-root --fail-on error,warning ./*.changes)

echo "Made:"
(cd "$folder" && find . -maxdepth 1 -name '*.deb' -printf "  $folder/%P\n" | sort)
echo "Install the installer with: apt install $folder/kelto_$(dpkg-parsechangelog -l "$sources/debian/changelog" -S Version)_$(dpkg --print-architecture).deb"
