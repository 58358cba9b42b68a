#!/usr/bin/env bash
# dev demo: three processes under a supervisor, telemetry of this machine, ten seconds.
source scripts/lib.sh
(($# == 0)) || fail "usage: ./dev demo"

need native
step "build" build release telemetry
exec env LC_ALL="$language" build/release/examples/telemetry/telemetry demo --seconds 10 --log build/log/telemetry.log
