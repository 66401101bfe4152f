#!/usr/bin/env bash
# Prints CHANGELOG.md as the changelog of the Debian packages. changelog.sh CHANGELOG.md MAINTAINER
set -euo pipefail

entries() {  # one line for each heading and each item, whose further lines are joined to it
  awk '/^## / { if (item) print item; item = ""; print; in_version = 1; next }
       !in_version { next }
       /^- / { if (item) print item; item = $0; next }
       NF && item { sub(/^ +/, ""); item = item " " $0 }
       END { if (item) print item }' "$1"
}

end_version() { [ -z "$date" ] || printf '\n -- %s  %s\n\n' "$maintainer" "$(LC_ALL=C date -u -R -d "$date")"; }

maintainer=$2 date=
while read -r kind rest; do
  if [ "$kind" = "##" ]; then
    end_version
    printf 'kelto (%s) unstable; urgency=medium\n\n' "${rest%% *}"
    date=${rest##* }
  else
    fold -s -w 74 <<<"$rest" | sed -e '1s/^/  * /' -e '2,$s/^/    /' -e 's/ *$//'
  fi
done < <(entries "$1")
end_version
