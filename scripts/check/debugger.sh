#!/usr/bin/env bash
# debugger.sh BUILD_DIR: GDB finds the printers of an installed copy by itself and shows what debugger/*.expected says:
# first without the library's debug information, then with it.
set -euo pipefail
export LC_ALL=C
here=$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")/debugger
work=$(realpath "$(mktemp -d)")
trap 'rm -rf "$work"' EXIT

# shows NAME: debugger/NAME.gdb prints what is expected of it, after the line at which the program stops.
shows() {
    LD_LIBRARY_PATH=$lib timeout 60 gdb -nx -batch -iex "set debuginfod enabled off" -iex "set auto-load safe-path $work" \
        -iex "set auto-load scripts-directory $work/share/gdb/auto-load" \
        -ex "break stop" -ex run -ex "source $here/$1.gdb" "$work/program" >"$work/output" 2>&1 || true
    sed '1,/^[0-9]/d; s/0x[0-9a-f]\{6,\}/ADDRESS/g' "$work/output" >"$work/$1"
    [[ -s $work/$1 ]] || cat "$work/output"
    diff -u "$here/$1.expected" "$work/$1"
}

cmake --install "$1" --prefix "$work" >"$work/installed"
lib=$(dirname "$(find "$work" -name libkoCUtil.so)")
cc -g -std=gnu11 -I"$work/include" "$here/program.c" -L"$lib" -lkoCUtil -o "$work/program"
shows plain
cmake --install "$1" --prefix "$work" --component debug
shows full
