#!/usr/bin/env bash
# installed.sh BUILD_DIR: an installed copy, moved to another place, serves a C program: by plain cc, through pkg-config
# and through CMake, as the shared and as the static library. Nobody names a C++ library. It serves C++17, too, and its
# own programs find it.
# installed.sh --prefix FOLDER: so does the copy that is installed there already.
set -euo pipefail
export LC_ALL=C
consumer=$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")/installed
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
readonly warnings=(-Wall -Wextra -pedantic -Werror)
readonly cc=(cc -std=c11 "${warnings[@]}") cxx=(c++ -std=c++17 "${warnings[@]}")

# runs PROGRAM shared|static: it ends well and uses the library, or has it inside. It prints the version.
runs() {
    echo "running $1"
    [[ $("$1") == "$version" ]] || { echo "$1 does not end well with $version"; exit 1; }
    readelf -d "$1" >"$work/dynamic"
    if [[ $2 == shared ]]; then
        grep -q 'NEEDED.*libkoCUtil\.so\.1\]' "$work/dynamic"
    else
        ! grep 'NEEDED.*libkoCUtil' "$work/dynamic"
    fi || { echo "$1 is not linked as it should be"; exit 1; }
}

if [[ $1 == --prefix ]]; then
    prefix=$2
else
    prefix=$work/moved
    cmake --install "$1" --prefix "$work/first"
    mv "$work/first" "$prefix"
    "$prefix/bin/cutil" --version # without a search path from outside
    "$prefix/libexec/koCUtil/telemetry" --help
fi
config=$(find "$prefix" -name koCUtilConfig.cmake)
lib=$(realpath "$(dirname "$config")/../..")
export LD_LIBRARY_PATH=$lib PKG_CONFIG_PATH=$lib/pkgconfig
version=$(pkg-config --modversion koCUtil)
[[ $("$prefix/bin/cutil" --version) == "cutil $version" ]] || { echo "cutil is not of version $version"; exit 1; }

"${cc[@]}" -I"$prefix/include" "$consumer/consumer.c" -L"$lib" -lkoCUtil -o "$work/plain"
runs "$work/plain" shared

read -ra options <<<"$(pkg-config --cflags --libs koCUtil)"
"${cc[@]}" "$consumer/consumer.c" "${options[@]}" -o "$work/pkgconfig"
runs "$work/pkgconfig" shared
"${cxx[@]}" -x c++ "$consumer/consumer.c" -x none "${options[@]}" -o "$work/pkgconfig-c++"
runs "$work/pkgconfig-c++" shared

read -ra options <<<"$(pkg-config --static --cflags --libs koCUtil)"
"${cc[@]}" -static "$consumer/consumer.c" "${options[@]}" -o "$work/pkgconfig-static"
runs "$work/pkgconfig-static" static

cmake -S "$consumer" -B "$work/build" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_C_FLAGS="${cc[*]:1}"
cmake --build "$work/build"
runs "$work/build/shared" shared
runs "$work/build/static" static
