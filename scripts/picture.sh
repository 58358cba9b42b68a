#!/usr/bin/env bash
# dev picture: docs/demo.svg, drawn from what the demonstration shows on a terminal in a run of its own.
source scripts/lib.sh
(($# == 0)) || fail "usage: ./dev picture"
readonly recorded=build/demo.cast

# The recorder wants a terminal, which not every caller has.
record() {
    local command="build/release/examples/telemetry/telemetry demo --seconds 10 --log build/log/telemetry.log"
    LC_ALL=C.UTF-8 TERM=xterm-256color script -qefc \
        "termtosvg record $recorded --screen-geometry 88x23 --command '$command'" /dev/null
    grep -q ' records taken, 0 lost' "$recorded"
}

# Blanks count for whoever draws it, also where style sheets are not asked.
draw() {
    LC_ALL=C.UTF-8 termtosvg render "$recorded" docs/demo.svg --template gjm8 --min-frame-duration 100 --loop-delay 5000
    sed -i '1s/<svg /<svg xml:space="preserve" /' docs/demo.svg
}

need native picture
step "build" build release telemetry
step "recording" record
step "drawing" draw
