#!/usr/bin/env bash
# dev demo: two processes, telemetry of this machine, ten seconds.
source scripts/lib.sh
(($# == 0)) || fail "usage: ./dev demo"

needNative
step "build" build release
exec build/release/examples/telemetry/telemetry demo --seconds 10
