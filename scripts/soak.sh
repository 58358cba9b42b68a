#!/usr/bin/env bash
# dev soak [SECONDS]: the demonstration runs for so long, without SECONDS for 600: a hundred records a second go from the
# sampler through shared memory to the server, and three watchers ask it. What each process holds is read from /proc once
# a second, into build/log/soak.tsv. After a warm-up it must stay flat: heap, stacks and other memory of its own,
# descriptors, threads. PSS is told, too, but not judged: it depends on who else has the same libraries loaded.
source scripts/lib.sh

readonly seconds=${1:-600} allowed=128 # KiB that the memory of a process may grow from warm-up to the end, on the average
[[ $# -le 1 && $seconds =~ ^[1-9][0-9]*$ ]] || fail "usage: ./dev soak [SECONDS]"
((seconds >= 15)) || fail "15 seconds at least"
# The server remembers a minute.
readonly warmUp=$((seconds < 300 ? seconds / 3 : 90))

need native
step "build" build release telemetry

readonly program=build/release/examples/telemetry/telemetry samples=$logs/soak.tsv name=soak-$$ port=$((20000 + $$ % 5000 * 2))
declare -A numbers=()
readonly order=(watcher-1 watcher-2 watcher-3 server sampler) # who ends needs nothing from those before it
trap '((${#numbers[@]} == 0)) || kill -KILL "${numbers[@]}" 2>/dev/null' EXIT

# run ROLE WORD...: starts a part.
run() {
    local role=$1
    shift
    "$program" "$@" >"$logs/soak-$role.log" 2>&1 </dev/null &
    numbers[$role]=$!
}

# sample SECOND: one line for each part: second, role, PSS and own memory in KiB, descriptors, threads.
sample() {
    local role folder memory descriptors threads
    for role in "${order[@]}"; do
        folder=/proc/${numbers[$role]}
        memory=$(awk '/^Pss:/ { pss = $2 } /^Pss_Anon:/ { own = $2 } END { if (pss) print pss "\t" own }' \
            "$folder/smaps_rollup" 2>/dev/null) || memory=
        [[ -n $memory ]] || fail "the $role ended early: $(tail -n 1 "$logs/soak-$role.log")"
        descriptors=("$folder"/fd/*)
        threads=("$folder"/task/*)
        printf '%d\t%s\t%s\t%d\t%d\n' "$1" "$role" "$memory" "${#descriptors[@]}" "${#threads[@]}" >>"$samples"
    done
}

run sampler sample --name "$name" --interval 10
run server serve --name "$name" --port "$port" --log "$logs/soak-lines.log"
for watcher in 1 2 3; do
    run "watcher-$watcher" watch --port "$port"
done

echo "$seconds s, of which $warmUp s are the warm-up"
: >"$samples"
SECONDS=0
while sleep 1 && ((SECONDS <= seconds)); do
    sample "$SECONDS"
done

for role in "${order[@]}"; do
    number=${numbers[$role]} status=0
    kill -TERM "$number" 2>/dev/null || true # it may have followed the one before it
    wait "$number" || status=$?
    unset "numbers[$role]"
    ((status == 0)) || fail "the $role ended with $status: $(tail -n 1 "$logs/soak-$role.log")"
done

# The first and the last third of what follows the warm-up are compared, so that no single moment decides.
awk -F '\t' -v warmUp="$warmUp" -v seconds="$seconds" -v allowed="$allowed" -v order="${order[*]}" '
    $1 <= warmUp { next }
    {
        role = $2
        third = $1 <= warmUp + (seconds - warmUp) / 3 ? 1 : $1 > seconds - (seconds - warmUp) / 3 ? 3 : 2
        if (!count[role]++) first[role] = sprintf("%5d   %5d     %3d   %3d  ", $3, $4, $5, $6)
        last[role] = sprintf("%5d   %5d     %3d   %3d  ", $3, $4, $5, $6)
        n[role, third]++
        own[role, third] += $4
        if ($5 > descriptors[role, third]) descriptors[role, third] = $5
        if ($6 > threads[role, third]) threads[role, third] = $6
        x[role] += $1; y[role] += $4; xx[role] += $1 * $1; xy[role] += $1 * $4
    }
    END {
        print "             first                       last"
        print "             PSS    own KiB  fds threads PSS    own KiB  fds threads  own KiB/min"
        parts = split(order, roles, " ")
        for (i = 1; i <= parts; ++i) {
            role = roles[i]
            if (n[role, 1] < 2 || n[role, 3] < 2) { print role ": too few samples"; bad = 1; continue }
            c = count[role]
            slope = (c * xy[role] - x[role] * y[role]) / (c * xx[role] - x[role] * x[role]) * 60
            printf "%-10s %s  %s  %+8.2f\n", role, first[role], last[role], slope
            growth = own[role, 3] / n[role, 3] - own[role, 1] / n[role, 1]
            if (growth > allowed) { printf "%s: its own memory grew by %d KiB\n", role, growth; bad = 1 }
            if (descriptors[role, 3] > descriptors[role, 1]) { print role ": more descriptors than before"; bad = 1 }
            if (threads[role, 3] > threads[role, 1]) { print role ": more threads than before"; bad = 1 }
        }
        exit bad
    }' "$samples" || fail "the demonstration did not stay flat, see ${samples#"$PWD"/}"
echo "flat"
