#!/usr/bin/env bash
# dev package: the Debian packages for this machine's architecture and for armhf, with the reference, in build/packages.
source scripts/lib.sh
(($# == 0)) || fail "usage: ./dev package"

readonly targets=(koCUtil koCUtilStatic cutil telemetry)

packAll() {
    rm -rf build/packages
    mkdir -p build/packages
    pack release && pack arm && cp build/{release,arm}/packages/*.deb build/packages/
}

need native arm docs packages
scripts/docs.sh
step "build" build release "${targets[@]}"
step "build for ARM" build arm "${targets[@]}"
step "packages" packAll
