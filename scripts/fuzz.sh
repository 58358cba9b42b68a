#!/usr/bin/env bash
# dev fuzz [NAME [SECONDS]]: builds fuzz/NAMEFuzz.cpp, or every target, and runs it; without SECONDS for 20. It starts
# from the samples in fuzz/corpus/NAME, which stay as they are, and from what earlier runs found in build/fuzz/found/NAME.
# A dictionary fuzz/NAME.dict is used where there is one.
source scripts/lib.sh

readonly programs=build/fuzz/fuzz

# run NAME SECONDS: one target; tells how far it came, or how to see the failure again.
run() {
    local name=$1 seconds=$2 crashes=build/fuzz/crashes/$1 folders=(build/fuzz/found/"$1") options=() log status=0 input
    export ASAN_OPTIONS=detect_leaks=1:detect_stack_use_after_return=1:strict_string_checks=1:allocator_may_return_null=1
    export UBSAN_OPTIONS=print_stacktrace=1
    mkdir -p "${folders[0]}" "$crashes" # what is new goes to the first folder
    [[ ! -d fuzz/corpus/$name ]] || folders+=("fuzz/corpus/$name")
    [[ ! -f fuzz/$name.dict ]] || options+=(-dict="fuzz/$name.dict")
    step "fuzz: $name" "${fixedAddresses[@]}" "$programs/$name" -max_total_time="$seconds" -timeout=10 \
        -artifact_prefix="$crashes/" "${options[@]}" "${folders[@]}" || status=$?
    log=$logs/fuzz--$name.log
    if ((status == 0)); then
        sed -n 's/^#\([0-9]*\)\tDONE *cov: \([0-9]*\) .*corp: \([0-9]*\).*/    \1 inputs, \2 edges, \3 inputs kept/p' "$log"
    else
        input=$(sed -n 's/.*Test unit written to //p' "$log" | tail -n 1)
        [[ -z $input ]] || echo "    again: ${fixedAddresses[*]:+${fixedAddresses[*]} }$programs/$name $input"
    fi
    return "$status"
}

if [[ ${1:-} == --run ]]; then
    # Whole lines at once: others run beside this one.
    status=0
    told=$(run "$2" "$3") || status=$?
    echo "$told"
    exit "$status"
fi

[[ $# -le 2 && ${2:-20} =~ ^[1-9][0-9]*$ ]] || fail "usage: ./dev fuzz [NAME [SECONDS]]"
names=("${1:-}")
if [[ -z ${1:-} ]]; then
    mapfile -t names < <(basename -s Fuzz.cpp fuzz/*Fuzz.cpp)
fi
[[ -f fuzz/${names[0]}Fuzz.cpp ]] || fail "no such target: fuzz/${names[0]}Fuzz.cpp"

need fuzz
step "fuzz: build" build fuzz "${names[@]}"
printf '%s\n' "${names[@]}" | xargs -P "$(nproc)" -I NAME scripts/fuzz.sh --run NAME "${2:-20}" || exit 1
