#!/usr/bin/env bash
# symbols.sh NM LIBRARY: the shared object lets out exactly the names in abi/symbols.txt.
set -euo pipefail
export LC_ALL=C
list=$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")/../../abi/symbols.txt
names=$("$1" -D --defined-only "$2" | awk '{ print $3 }' | sort)

sort -c -u "$list"
if ! differences=$(diff "$list" - <<<"$names"); then
    sed -n 's/^</missing:   /p; s/^>/unlisted:  /p' <<<"$differences"
    echo "$2 and abi/symbols.txt differ: $(grep -c '^<' <<<"$differences") missing, $(grep -c '^>' <<<"$differences") unlisted"
    exit 1
fi
