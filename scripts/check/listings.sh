#!/usr/bin/env bash
# listings.sh BUILD_DIR: the listings of README.md and docs/guides are compiled against an installed copy and run.
#
# A fenced listing in C, C++ or CMake names its file in its first line and is laid down under that name; one with a
# main is built, as C11 or C++17 without a warning, and some `sh` listing of its document runs it. `sh` listings are run
# from a folder that holds those files and, by name, what the top folder holds. The `text` listing behind an `sh`
# listing is what that prints; `...` in it stands for any characters of a line. Indented listings are looked at by
# nobody.
set -euo pipefail
export LC_ALL=C TZ=UTC
top=$PWD
work=$(realpath "$(mktemp -d)")
trap 'rm -rf "$work"' EXIT
readonly strict=(-Wall -Wextra -pedantic -Werror)

complain() {
    echo "$document: $*" >&2
    exit 1
}

# Each listing becomes a file NUMBER.LANGUAGE.
split() {
    awk -v folder="$2" '
        /^ *```/ {
            if (inside) close(file)
            else file = sprintf("%s/%03d.%s", folder, ++count, substr($0, index($0, "```") + 3))
            inside = !inside
            if (inside) printf "" >file
            next
        }
        inside { print >file }' "$1"
}

# layDown FILE: where the listing is to lie, by its first line.
layDown() {
    local name
    name=$(sed -n '1s,^\(//\|#\) \([A-Za-z][A-Za-z0-9.]*\)$,\2,p' "$1")
    [[ -n $name ]] || complain "this listing does not name its file in its first line:" "$(head -n 3 "$1")"
    [[ ! -e $work/run/$name ]] || complain "a second listing of the name $name"
    cp "$1" "$work/run/$name"
    grep -q '^int main(' "$1" || return 0
    case $name in
        *.c) (cd "$work/run" && cc -std=c11 "${strict[@]}" "$name" -lkoCUtil -o "${name%.*}") ;;
        *.cpp) (cd "$work/run" && c++ -std=c++17 "${strict[@]}" "$name" -lkoCUtil -o "${name%.*}") ;;
        *) complain "$name is neither C nor C++" ;;
    esac || complain "$name does not compile"
    programs+=("${name%.*}")
}

# matches TEXT PATTERN: line by line; dots in threes match anything.
matches() {
    local -a lines patterns
    mapfile -t lines <"$1"
    mapfile -t patterns <"$2"
    ((${#lines[@]} == ${#patterns[@]})) || return 1
    local i line pattern
    for i in "${!lines[@]}"; do
        line=${lines[i]} pattern=${patterns[i]//\\/\\\\}
        pattern=${pattern//\*/\\*} pattern=${pattern//\?/\\?} pattern=${pattern//\[/\\[}
        # shellcheck disable=SC2053 # a pattern it is
        [[ $line == ${pattern//.../*} ]] || return 1
    done
}

runDocument() {
    local -a programs=()
    local listing program printed=""
    mkdir "$work/listings"
    split "$document" "$work/listings"
    for listing in "$work"/listings/*; do
        case $listing in
            *.c | *.cpp | *.cmake) layDown "$listing" ;;
            *.sh)
                [[ ! -s $printed ]] || complain "printed, but not told:" "$(cat "$printed")"
                printed=$work/printed
                (cd "$work/run" && timeout 60 stdbuf -oL bash -euo pipefail "$listing" >"$printed" 2>&1 </dev/null) ||
                    complain "failed: $(cat "$listing")" "$(cat "$printed")"
                ;;
            *.text)
                [[ -n $printed ]] || complain "a text that nothing printed: $(cat "$listing")"
                matches "$printed" "$listing" || {
                    echo "$document: printed otherwise:"
                    diff --label told --label printed -u "$listing" "$printed" || bad=1
                }
                printed=""
                ;;
            *) complain "a listing in no language that is known here: ${listing##*.}" ;;
        esac
    done
    [[ ! -s $printed ]] || complain "printed, but not told:" "$(cat "$printed")"
    for program in "${programs[@]}"; do
        grep -qE "(^|[ (])\./$program( |\)|;|$)" "$work"/listings/*.sh || complain "nothing runs $program"
    done
    echo "$document: programs that run: ${#programs[@]}"
    rm -r "$work/listings"
}

cmake --install "$1" --prefix "$work/installed" >"$work/log"
lib=$(dirname "$(find "$work/installed" -name libkoCUtil.so)")
export CPATH=$work/installed/include LIBRARY_PATH=$lib LD_LIBRARY_PATH=$lib PATH=$work/installed/bin:$PATH
export PKG_CONFIG_PATH=$lib/pkgconfig CMAKE_PREFIX_PATH=$work/installed
export QEMU_UNSET_ENV=LD_PRELOAD # stdbuf's

bad=0
mkdir "$work/run"
ln -s "$top"/{build,include,src,tools,examples,cmake,scripts} "$work/run"
for document in docs/guides/*.md README.md; do
    runDocument
done
exit "$bad"
