#!/usr/bin/env bash
# floors.sh: every family stands on a floor of the drawing in docs/architecture.md, and what its header and its source
# include, through whatever other file, stands on the same floor or below.
set -euo pipefail
export LC_ALL=C
cd "$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")/../.."

declare -A floors=()
while read -r floor name; do
    floors[$name]=$floor
done < <(awk -F'|' '
    /^    [0-9] \|/ { floor = $1 + 0; drawn = 1 }
    drawn && /^    [ 0-9] \|/ { gsub(/[^A-Za-z0-9]+/, " ", $2); n = split($2, name, " "); for (i = 1; i <= n; i++) print floor, name[i] }
    drawn && /^$/ { exit }' docs/architecture.md)

family() {
    local name=${1##*/}
    echo "${name%%.*}"
}

bad=0
mapfile -t files < <(find include/cUtil src/cUtil -path src/cUtil/internal -prune -o \( -name '*.h' -o -name '*.cpp' \) \
    ! -name cUtil.h -print | sort)
for file in "${files[@]}"; do
    own=$(family "$file")
    if [[ -z ${floors[$own]:-} ]]; then
        echo "$file: $own stands on no floor of docs/architecture.md"
        bad=1
        continue
    fi
    for header in $(g++ -x c++ -std=c++20 -D_FILE_OFFSET_BITS=64 -Iinclude -Isrc/cUtil -MM "$file" | grep -o 'include/cUtil/[^ ]*'); do
        other=$(family "$header")
        if ((${floors[$other]:-0} > ${floors[$own]})); then
            echo "$file (floor ${floors[$own]}) includes $header (floor ${floors[$other]})"
            bad=1
        fi
    done
done
exit "$bad"
