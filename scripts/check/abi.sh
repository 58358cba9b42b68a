#!/usr/bin/env bash
# abi.sh [--renew]: programs that were compiled long ago run with the libraries in build/release and build/arm. What such
# programs rely on is kept in abi/, for each architecture: functions, their arguments and the public records (*.xml), and
# the constants of the headers (*.constants). What is gone or has changed since fails; what is new is told.
# --renew puts the present state there.
set -euo pipefail
export LC_ALL=C
cd "$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")/../.."
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# describe LIBRARY COMPILER FILE: a type is public if it comes from a public header. So is the system's time value.
describe() {
    local timespec
    timespec=$("$2" -M -x c - <<<'#include <time.h>' | grep -o '[^ ]*/struct_timespec\.h')
    abidw --headers-dir include --header-file "$(realpath "$timespec")" --drop-private-types --exported-interfaces-only \
        --no-corpus-path --no-comp-dir-path --no-show-locs --no-elf-needed --no-parameter-names --no-write-default-sizes \
        --type-id-style hash --out-file "$3" "$1"
    sed -i "s|path='[^']*src/|path='src/|" "$3" # wherever it was built
    grep -q '<class-decl name=.timespec. size-in-bits=' "$3" || {
        echo "$1: no debug information is to be had"
        exit 1
    }
}

# listConstants COMPILER FILE: names and values of the enumerators, and of the macros that are numbers, but for the version.
listConstants() {
    local compiler=("$1" -std=c11 -Iinclude -x c include/cUtil/cUtil.h)
    "${compiler[@]}" -g -fno-eliminate-unused-debug-types -c -o "$work/constants.o"
    {
        readelf --debug-dump=info "$work/constants.o" | awk '
            /DW_TAG_/ { enumerator = /DW_TAG_enumerator/ }
            enumerator && /DW_AT_name/ { name = $NF }
            enumerator && /DW_AT_const_value/ { print name, $NF }'
        "${compiler[@]}" -dM -E | awk '$3 ~ /^[0-9]/ && $2 !~ /VERSION_M|VERSION_P/ { print $2, $3 }'
    } | grep -E '^(cu|CU)_' | sort -u >"$2"
}

# compare ARCHITECTURE: prints what old programs would break at, and else the additions.
compare() {
    local constants status=0
    abidiff --no-added-syms "abi/$1.xml" "$work/$1.xml" >"$work/difference" || status=1
    constants=$(diff "abi/$1.constants" "$work/$1.constants") || true
    ! grep -q '^<' <<<"$constants" || status=1
    if ((status)); then
        cat "$work/difference"
        sed -n 's/^</was: /p; s/^>/is:  /p' <<<"$constants"
        echo "$1: old programs would break"
    else
        { abidiff "abi/$1.xml" "$work/$1.xml" || true; } | sed -n "s/^ *\[A\]/$1, new:/p"
        sed -n "s/^>/$1, new:/p" <<<"$constants"
    fi
    return "$status"
}

bad=0
while read -r architecture build compiler; do
    describe "$build/libkoCUtil.so" "$compiler" "$work/$architecture.xml"
    listConstants "$compiler" "$work/$architecture.constants"
    if [[ ${1:-} == --renew ]]; then
        cp "$work/$architecture".{xml,constants} abi/
    else
        compare "$architecture" || bad=1
    fi
done <<END
x86-64 build/release gcc
arm build/arm arm-linux-gnueabihf-gcc
END
exit "$bad"
