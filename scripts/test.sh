#!/usr/bin/env bash
# dev test [FLAVOUR...]: each flavour ends with the line "N passed, N failed, N skipped", several with their sum.
source scripts/lib.sh

# Counts by outcome; a case that could not be started has failed.
countCases() {
    awk '
        /<testcase .* status="run"/ { passed++ }
        /<testcase .* status="fail"/ { failed++ }
        /<testcase .* status="disabled"/ { skipped++ }
        /<testcase .* status="notrun"/ { getline; if (/<skipped message="SKIP_/) skipped++; else failed++ }
        END { printf "%d passed, %d failed, %d skipped\n", passed, failed, skipped }' "$1"
}

# runCases FLAVOUR PRESET [PREFIX...]
runCases() {
    local flavour=$1 preset=$2 status=0
    shift 2
    rm -f "$logs/$flavour.xml"
    step "$flavour: tests" "$@" ctest --test-dir "build/$preset" --parallel 4 --output-on-failure --no-tests=error \
        --output-junit "$logs/$flavour.xml" || status=$?
    [[ ! -f $logs/$flavour.xml ]] || closing=$(countCases "$logs/$flavour.xml")
    return "$status"
}

runBoard() {
    local status=0
    step "vm: tests" scripts/vm.sh build/arm || status=$?
    closing=$(grep -E '^[0-9]+ passed, [0-9]+ failed, [0-9]+ skipped$' "$logs/vm--tests.log" | tail -n 1) || closing=$none
    return "$status"
}

runFlavour() {
    case $1 in
        native)
            step "native: build" build release && runCases native release
            ;;
        clang)
            step "clang: build" build clang && runCases clang clang
            ;;
        asan)
            export ASAN_OPTIONS=detect_leaks=1:detect_stack_use_after_return=1:strict_string_checks=1
            export UBSAN_OPTIONS=print_stacktrace=1
            step "asan: build" build asan && runCases asan asan "${fixedAddresses[@]}"
            ;;
        tsan)
            export TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1
            step "tsan: build" build tsan && runCases tsan tsan "${fixedAddresses[@]}"
            ;;
        arm)
            step "arm: build" build arm && runCases arm arm
            ;;
        vm)
            step "vm: build" build arm && step "vm: packages" pack arm && runBoard
            ;;
    esac
}

flavours=("$@")
((${#flavours[@]})) || flavours=(native)
[[ ${flavours[*]} != all ]] || flavours=(native asan tsan arm vm)

readonly none="0 passed, 1 failed, 0 skipped" # the tests did not get as far as counting
purposes=(native)
for flavour in "${flavours[@]}"; do
    case $flavour in
        native | tsan) ;;
        clang | asan) purposes+=(clang) ;;
        arm) purposes+=(arm) ;;
        vm) purposes+=(board packages) ;;
        *) fail "no such flavour: $flavour (see ./dev --help)" ;;
    esac
done
need "${purposes[@]}"

status=0 passed=0 failed=0 skipped=0
for flavour in "${flavours[@]}"; do
    closing=$none
    runFlavour "$flavour" || status=1
    echo "$closing"
    read -r one _ two _ three _ <<<"$closing"
    passed=$((passed + one)) failed=$((failed + two)) skipped=$((skipped + three))
done
if ((${#flavours[@]} > 1)); then
    echo "together:"
    echo "$passed passed, $failed failed, $skipped skipped"
fi
exit "$status"
