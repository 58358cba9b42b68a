#!/usr/bin/env bash
# dev valgrind [memcheck | helgrind]: runs a part of the tests under Valgrind, which watches the release build as it is.
#
# memcheck sees what AddressSanitizer cannot: values that nobody wrote, in the code that is shipped. It gets what is
# deterministic and needs few threads: text, values, containers, time, regions, messages and the system's databases.
# Not what is slow, nor what looks at how numbers are rounded: Valgrind rounds some in its own way.
#
# helgrind watches the order in which locks are taken, and what is done to them. It gets the families whose threads meet
# at locks. Its search for races is off (scripts/valgrind.supp tells why): that is ThreadSanitizer's. The locks'
# own tests are not among them, which misuse locks on purpose, nor what ends the process while it holds one.
source scripts/lib.sh

# PROGRAM FILTER
readonly memcheckTests=(
    "rootTest SafeMalloc.*:Allocator.*:ArgumentArray.*:CommandLine.*:Convert.*:ErrorCodes.*:ErrorRecord.*:IStream.*:\
BufferStream.*:Md5.everyLength*:PropertyMap.*:Serializer.*:StringDecorator.*:Uuid.bytes*:Uuid.bad*:Variant.*:\
RegionTest/*:-RegionTest/*.sizes*:Convert.theLocale*:Convert.doubles*:Variant.becomes*"
    "toolsTest *:-DSHM*:RBTree.answers*:String.anyMixture*"
    "algorithmTest *:-Queue.keeps*:Set.keeps*:Remainder.*"
    "timeTest Clock.*:Timer.*:SystemClock.*:Date*:Calendar.*:TimeValue.*"
    "systemTest *"
    "networkTest Message.*:IPAddress.dotted*:IPNetworkInfo.*:-Message.nothingWraps*"
)
readonly helgrindTests=(
    "rootTest Runnable.*:Thread.*:ThreadPool.*:-*ailing*:*failed*:*costs*"
    "toolsTest DSHMManager.*"
    "timeTest AsyncClock.*:-*ailing*"
    "networkTest MSGServer.frames*:MSGServer.logs*:MSGServer.whatWasSentBeforeALeave*"
    "loggerTest Logger.*:LogFile.*:TCPLogging.*:AsyncLogging.*:-*ailing*:*fatal*:*withoutItsState*:*cancelled*:*linesOf*"
)

# watch TOOL PROGRAM FILTER OPTION...: errors fail, in child processes, too; so does a filter that nothing passes.
# The tests stand in front of the allocating functions themselves, which Valgrind otherwise takes for an allocator.
watch() {
    local tool=$1 program=$2 filter=$3 log=$logs/$1--$2.log
    shift 3
    KOCUTIL_EVERY_STEP_IS_SLOW=1 timeout 600 valgrind -q --tool="$tool" --error-exitcode=9 --num-callers=20 \
        --soname-synonyms=somalloc=nouserintercepts --suppressions=scripts/valgrind.supp "$@" \
        "build/release/tests/$program" --gtest_filter="$filter" && grep -q '  PASSED  . [1-9]' "$log"
}

# run TOOL OPTION... -- "PROGRAM FILTER"...
run() {
    local tool=$1 options=() line program filter
    shift
    while [[ $1 != -- ]]; do
        options+=("$1")
        shift
    done
    for line in "${@:2}"; do
        read -r program filter <<<"$line"
        step "$tool: $program" watch "$tool" "$program" "$filter" "${options[@]}" || failed=1
    done
}

tools=("${1:-memcheck}" "${1:-helgrind}")
[[ $# -le 1 && ${tools[0]} =~ ^(memcheck|helgrind)$ ]] || fail "usage: ./dev valgrind [memcheck | helgrind]"
need native valgrind
step "valgrind: build" build release rootTest toolsTest algorithmTest timeTest systemTest networkTest loggerTest

failed=0
if [[ ${tools[0]} == memcheck ]]; then
    run memcheck --leak-check=full --show-leak-kinds=definite --errors-for-leak-kinds=definite -- "${memcheckTests[@]}"
fi
if [[ ${tools[1]} == helgrind ]]; then
    run helgrind --history-level=none -- "${helgrindTests[@]}"
fi
((failed == 0))
