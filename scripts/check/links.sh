#!/usr/bin/env bash
# links.sh: every relative link in the project's Markdown leads to a file of the project, and its anchor, if it has one,
# to a heading of that file. Every document below docs/ is linked to.
set -euo pipefail
export LC_ALL=C

# Without fenced and indented listings and without code.
# shellcheck disable=SC2016 # backticks of Markdown
prose() { awk '/^ *```/ { inside = !inside; next } !inside && !/^    /' "$1" | sed 's/`[^`]*`//g'; }

# The names of a document's headings, as GitHub makes them.
anchors() {
    awk '/^ *```/ { inside = !inside; next } !inside && /^#+ / { sub(/^#+ /, ""); print tolower($0) }' "$1" |
        sed 's/[^a-z0-9 _-]//g; s/ /-/g' | awk '{ print $0 (seen[$0]++ ? "-" seen[$0] - 1 : "") }'
}

count=0 bad=0
declare -A reached
while IFS= read -r document; do
    while IFS= read -r link; do
        ((++count))
        file=$document
        [[ -z ${link%%#*} ]] || file=$(dirname "$document")/${link%%#*}
        if [[ ! -e $file ]]; then
            echo "$document: $link leads nowhere"
            bad=1
        elif [[ $link == *#* ]] && ! anchors "$file" | grep -qxF -- "${link#*#}"; then
            echo "$document: $link: no such heading"
            bad=1
        fi
        reached[$(realpath "$file")]=1
    done < <(prose "$document" | grep -oP '\]\(\K[^)\s]+|src="\K[^"]+' | grep -vE '^[a-z]+:')
done < <(find . -name build -prune -o -name .git -prune -o -name '*.md' -print | sort)
for document in docs/*.md docs/*/*.md; do
    [[ -n ${reached[$(realpath "$document")]:-} ]] || {
        echo "$document: nothing leads to it"
        bad=1
    }
done
((count)) || { echo "no links at all?"; exit 1; }
echo "$count links"
exit "$bad"
