#!/usr/bin/env bash
# manPages.sh FOLDER VERSION PROGRAM...: the manual page of a program, and one for each of the commands that its help
# lists, made of what --help prints. PROGRAM may be several words, an emulator first.
set -euo pipefail
export LC_ALL=C
readonly folder=$1 version=$2 program=("${@:3}")
name=$(basename "${program[-1]}")
readonly headings='s/^usage:/Usage:/; s/^options:/Options:/; 1,/^$/s/^ {7}/  or:  /'
date=$(date --utc --date="@${SOURCE_DATE_EPOCH:-$(date +%s)}" +%F)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# page NAME SEE-ALSO WORD...: one page. help2man takes the name of what it runs for that of the page, and looks for
# headings as most programs write them. In the synopsis bold is what is to be typed as it stands.
page() {
    local page=$1 others=$2
    shift 2
    printf '%s\n' '#!/bin/bash' "${*@Q} --help | sed -E '$headings'" >"$work/$page"
    chmod +x "$work/$page"
    {
        printf '[NAME]\n%s \\- ' "$page"
        "$work/$page" | awk -v RS= 'NR == 2 { sub(/\.$/, ""); print tolower(substr($0, 1, 1)) substr($0, 2) }'
        printf '\n[SYNOPSIS]\n'
        "$work/$page" | sed -nE '/^$/q; s/^(Usage|  or): +//; s/-/\\-/g; s/[][|]|\.\.\./\\fR&\\fB/g
            s/\<[A-Z]+\>/\\fI&\\fB/g; s/.*/\\fB&\\fR/; 1!i.br
            p'
        [[ -z $others ]] || printf '\n[SEE ALSO]\n'
        [[ -z $others ]] || sed 's/[^ ]*/.BR & (1),/g; s/, /,\n/g; s/,$//' <<<"$others"
    } >"$work/include"
    help2man --no-info --version-string="$name $version" --source="koCUtil $version" --include="$work/include" \
        "$work/$page" | sed "/^\.TH/s/\"[A-Z][a-z]* [0-9]*\"/$date/" >"$folder/$page.1"
}

rm -rf "$folder"
mkdir -p "$folder"
read -ra commands <<<"$("${program[@]}" --help | awk '/^commands:/, /^$/ { if (/^ /) printf "%s ", $1 }')"
pages=("${commands[@]/#/$name-}")
page "$name" "${pages[*]}" "${program[@]}"
for command in "${commands[@]}"; do
    page "$name-$command" "$name" "${program[@]}" "$command"
done
