#!/usr/bin/env bash
# dev bench [NAME]: runs every bench/*Bench.cpp, or NAMEBench alone, and sets our medians beside the peers'.
#   KOCUTIL_BENCH_TRIALS   trials of each benchmark (default 7); they alternate
#   KOCUTIL_BENCH_SECONDS  time of one trial (default 0.2)
source scripts/lib.sh
(($# < 2)) || fail "usage: ./dev bench [NAME]"

need native bench
shopt -s nullglob
sources=(bench/"${1:-}"Bench.cpp)
[[ -n ${1:-} ]] || sources=(bench/*Bench.cpp)
[[ ${#sources[@]} != 0 && -f ${sources[0]} ]] || fail "no such benchmark: bench/${1:-*}Bench.cpp"

step "bench: build" build bench
results=()
for source in "${sources[@]}"; do
    program=$(basename "$source" .cpp)
    result=$logs/$program.json
    step "bench: $program" "build/bench/bench/$program" --benchmark_out="$result" --benchmark_out_format=json \
        --benchmark_repetitions="${KOCUTIL_BENCH_TRIALS:-7}" --benchmark_min_time="${KOCUTIL_BENCH_SECONDS:-0.2}" \
        --benchmark_enable_random_interleaving=true
    results+=("$result")
done
scripts/bench/compare.py "${results[@]}"
