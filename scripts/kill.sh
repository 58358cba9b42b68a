#!/usr/bin/env bash
# dev kill [MOMENTS [SEED [FAMILY]]]: processes of each family (fifo, ring, channel, region, log) are killed at so many
# random moments, without MOMENTS at 1000, while others go on. Every trial takes the next seed, and a breach is told with
# its own. What is promised to the others stands in docs/concurrency.md.
source scripts/lib.sh

[[ $# -le 3 && ${1:-1000} =~ ^[1-9][0-9]*$ && ${2:-0} =~ ^[0-9]+$ ]] || fail "usage: ./dev kill [MOMENTS [SEED [FAMILY]]]"

need native
step "build" build release killCampaign
exec build/release/tests/campaign/killCampaign "${1:-1000}" "${@:2}"
