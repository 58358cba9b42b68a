#!/usr/bin/env bash
# dev coverage: runs the tests natively on a library that counts how often each of its lines is run. Fails when a line is
# never run and tests/uncovered.txt does not say why, or when a line that it names is run or gone.
source scripts/lib.sh
(($# == 0)) || fail "usage: ./dev coverage"

readonly folder=build/coverage report=build/coverage/lines.json

# Counting makes every step slow, so that the largest digest takes minutes. What such a library shows of itself is not
# what a release does.
runTests() {
    find "$folder" -name '*.gcda' -delete
    KOCUTIL_EVERY_STEP_IS_SLOW=1 ctest --test-dir "$folder" --parallel 4 --output-on-failure --no-tests=error \
        -E '^Library\.|^Md5\.blocksUpToTheLargest'
}

need native coverage
step "coverage: build" build coverage
step "coverage: tests" runTests
step "coverage: lines" gcovr --root . --filter src/ --filter include/ --json "$report" --object-directory "$folder" \
    "$folder/CMakeFiles/koCUtilObjects.dir"
scripts/coverage/judge.py "$report" tests/uncovered.txt
