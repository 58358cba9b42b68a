#!/usr/bin/env bash
# dev check: what must hold before a change lands, cheap checks first. Goes on after a failure and names all that failed.
source scripts/lib.sh
(($# == 0)) || fail "usage: ./dev check"

failures=()
check() { step "$@" || failures+=("$1"); }

# ours FIND-EXPRESSION...: the files of the project.
ours() { find . \( -path ./build -o -path ./.git \) -prune -o -type f "$@" -print0; }

format() {
    ours \( -name '*.h' -o -name '*.c' -o -name '*.cpp' \) | xargs -0 clang-format --dry-run --Werror
}

shellScripts() {
    ours | xargs -0 awk 'FNR == 1 && /^#!.*sh$/ { print FILENAME } { nextfile }' | xargs -d '\n' shellcheck -x
}

# On Clang's own command lines: it does not know all of GCC's options.
lint() {
    cmake --preset clang && run-clang-tidy -quiet -j "$(nproc)" -p build/clang "$PWD/src/cUtil/.*"
}

need native clang arm board lint abi debugger docs packages fuzz valgrind

check "format" format
check "shell scripts" shellScripts
check "public headers" scripts/check/headers.sh
check "floors" scripts/check/floors.sh
check "links" scripts/check/links.sh
check "build" build release
check "exported names" scripts/check/symbols.sh nm build/release/libkoCUtil.so
check "shared object" scripts/check/sharedObject.sh readelf build/release/libkoCUtil.so
check "installed copy" scripts/check/installed.sh build/release
check "debugger" scripts/check/debugger.sh build/release
check "library for ARM" build arm koCUtil
check "listings" scripts/check/listings.sh build/release
check "binary interface" scripts/check/abi.sh
grep ', new: ' "$logs/binary-interface.log" || true
scripts/package.sh || failures+=("packages")
check "installed packages" scripts/check/packages.sh build/packages
check "lint" lint
scripts/valgrind.sh memcheck || failures+=("valgrind")
scripts/fuzz.sh "" 10 || failures+=("fuzz")
check "kill campaign" scripts/kill.sh 50
check "soak" scripts/soak.sh 20
scripts/test.sh asan tsan vm || failures+=("tests")

if ((${#failures[@]})); then
    printf -v names ', %s' "${failures[@]}"
    echo "check failed: ${names:2}"
    exit 1
fi
echo "check passed"
