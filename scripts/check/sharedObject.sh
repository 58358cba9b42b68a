#!/usr/bin/env bash
# sharedObject.sh READELF LIBRARY: what the loader makes of the shared object. It needs the C library alone, bears its
# name, is made read-only before anything runs, and asks for neither text relocations nor an executable stack.
set -euo pipefail
export LC_ALL=C
library=$2 bad=0
dynamic=$("$1" -Wd "$library")
segments=$("$1" -Wl "$library")

complain() {
    echo "$library: $*"
    bad=1
}
dynamicHas() { grep -qE "$1" <<<"$dynamic"; }
segmentsHave() { grep -qE "$1" <<<"$segments"; }

needed=$(sed -n 's/.*(NEEDED).*\[\(.*\)\].*/\1/p' <<<"$dynamic" | grep -vxE 'libc\.so\.6|ld-linux[-a-z0-9_]*\.so\.[0-9]') || true
[[ -z $needed ]] || complain "needs more than the C library:" "${needed//$'\n'/ }"
[[ $(readlink -f "$library") == */libkoCUtil.so.1.5.5 ]] || complain "its file is not libkoCUtil.so.1.5.5"
dynamicHas '\(SONAME\).*\[libkoCUtil\.so\.1\]' || complain "its name is not libkoCUtil.so.1"
dynamicHas '\(FLAGS_1\).* NOW( |$)' || complain "symbols are bound late"
dynamicHas 'TEXTREL' && complain "text relocations"
dynamicHas '\((RPATH|RUNPATH)\)' && complain "a search path of its own"
dynamicHas '\(VERDEF\)' && complain "names carry versions, which old binaries do not ask for"
segmentsHave '^ *GNU_RELRO ' || complain "no segment is made read-only after relocation"
segmentsHave '^ *GNU_STACK .* RW +0x' || complain "an executable stack"
segmentsHave '^ *LOAD .* RWE ' && complain "a segment both writable and executable"
exit "$bad"
