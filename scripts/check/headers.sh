#!/usr/bin/env bash
# headers.sh: every public header compiles alone and twice included, as C and C++ of several standards without extensions,
# by every compiler that is used; and cUtil/cUtil.h takes them all.
set -euo pipefail
export LC_ALL=C
cd "$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")/../.."

readonly flags=(-fsyntax-only -Iinclude -Wall -Wextra -pedantic -Werror)

# compile COMPILER STANDARD HEADER
compile() {
    local language=c
    [[ $2 == c++* ]] && language=c++
    # A declaration of its own: an empty translation unit is not allowed.
    printf '#include <%s>\n#include <%s>\nextern int present;\n' "$3" "$3" |
        "$1" -x "$language" -std="$2" "${flags[@]}" - || {
        echo "$3 fails by $1 as $2"
        return 1
    }
}

if [[ ${1:-} == --compile ]]; then
    compile "$2" "$3" "$4"
    exit
fi

bad=0
mapfile -t headers < <(cd include && find cUtil -name '*.h' | sort)
for header in "${headers[@]}"; do
    for standard in c11 c17; do
        printf '%s\n' "gcc $standard $header" "clang $standard $header" "arm-linux-gnueabihf-gcc $standard $header"
    done
    for standard in c++17 c++20; do
        printf '%s\n' "g++ $standard $header" "clang++ $standard $header" "arm-linux-gnueabihf-g++ $standard $header"
    done
done | xargs -P "$(nproc)" -L 1 "${BASH_SOURCE[0]}" --compile || bad=1

taken=$(gcc -x c -M -Iinclude include/cUtil/cUtil.h | grep -o 'include/cUtil/[^ ]*' | cut -d/ -f2- | sort -u)
forgotten=$(comm -23 <(printf '%s\n' "${headers[@]}") <(echo "$taken"))
if [[ -n $forgotten ]]; then
    echo "cUtil/cUtil.h does not take:" "$forgotten"
    bad=1
fi
exit "$bad"
