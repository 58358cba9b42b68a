#!/usr/bin/env bash
# dev docs: the reference. Every public symbol is documented, and every exported name has its entry.
source scripts/lib.sh
(($# == 0)) || fail "usage: ./dev docs"

makeReference() {
    local undocumented
    rm -rf build/docs
    mkdir -p build/docs
    KOCUTIL_VERSION=$(sed -n 's/^#define CU_VERSION_STRING "\(.*\)".*/\1/p' include/cUtil/version.h) \
        doxygen docs/Doxyfile || return
    undocumented=$(grep -oE '<name>(cu|ku|CU)_[A-Za-z0-9_]+' build/docs/koCUtil.tag | cut -d'>' -f2 | sort -u |
        comm -23 abi/symbols.txt -)
    [[ -z $undocumented ]] || {
        echo "exported, but without an entry in the reference:" "${undocumented//$'\n'/ }"
        return 1
    }
    # Pages in Markdown may only link to such pages: what else is in the tree is not there.
    ! grep -oE 'href="\.\.[^"]*"' build/docs/html/*.html || return
    local guide
    for guide in docs/guides/*.md; do
        grep -qF "'$(sed -n '1s/^# //p' "$guide")'" build/docs/html/search/pages_*.js || {
            echo "the search does not find $guide"
            return 1
        }
    done
}

need docs
step "docs" makeReference
