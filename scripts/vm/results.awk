# Reads the list of programs, then the board's console; prints what failed and the sum of all test cases.
# Variables: ending (why the emulator stopped, empty if it powered off), limit (seconds per program), now, log_ (the console's log).

function complain(text) {
    failed++
    print text
}

# The end of the current program's output, for a failure that no test case accounts for.
function showTail(    i) {
    for (i = lines > 20 ? lines - 19 : 1; i <= lines; i++) print "    " line[i]
}

function beginProgram(name) {
    current = name
    lines = blockLines = ran = ok = bad = left = 0
    summary = inFailures = noisy = 0
    running = ""
}

function endProgram(name, status, seconds,    why, i) {
    ended[name] = 1
    current = ""
    if (!summary) why = "no summary of its tests"
    else if (ran == 0) why = "not one test ran"
    else if (ok + bad + left != ran) why = sprintf("%d tests ran, but %d are accounted for", ran, ok + bad + left)
    else if (status != (bad > 0)) why = "exit status " status

    # A program that died may have printed half of its figures: it is one failure.
    if (!summary || why ~ /accounted/) ok = bad = left = 0
    if (status >= 128 && seconds >= limit) why = "stopped after its " limit " s"
    else if (status > 128) why = "killed by signal " (status - 128)
    if (why && running) why = why ", in " running

    passed += ok; failed += bad; skipped += left
    for (i = 1; i <= bad; i++) print name ": " failure[i] " failed"
    if (bad) for (i = 1; i <= blockLines; i++) print "    " block[i]
    if (why) {
        complain(name ": " why)
        if (!bad) showTail()
    }
}

FNR == NR { program[++programs] = $0; next }

/^@@board begin / { beginProgram(substr($0, 15)); next }
/^@@board end / {
    name = $0
    sub(/^@@board end [0-9]+ [0-9]+ /, "", name)
    if (name == current) endProgram(name, $3 + 0, $4 + 0)
    next
}
/^@@board problem / { complain("the board has " substr($0, 17)); next }
/^@@board clock / {
    clock = 1
    if ($3 < now - 3600 || $3 > now + 120) complain("the board's clock is wrong: " $3 " instead of " now)
    next
}
/^@@board done/ { done = 1; next }

current == "" { before[++befores] = $0; next }

{ line[++lines] = $0 }

# The output of one test case is kept until it is known whether it failed.
/^\[ RUN      \] / { running = substr($0, 14); noisy = blockLines }
/^\[==========\] [0-9]+ tests? from .* ran\./ { summary = 1; ran = $2; ok = bad = left = 0 }
summary && /^\[  PASSED  \] [0-9]+ tests?\./ { ok = $4; next }
summary && /^\[  SKIPPED \] [0-9]+ tests?, listed below:/ { left = $4; next }
summary && /^\[  FAILED  \] [0-9]+ tests?, listed below:/ { inFailures = $4; bad = 0; next }
summary && inFailures && /^\[  FAILED  \] / {
    bad++
    inFailures--
    failure[bad] = substr($0, 14)
    next
}
running && blockLines < 200 { block[++blockLines] = $0 }
/^\[       OK \] / || /^\[  SKIPPED \] / { if (running) blockLines = noisy; running = "" }
/^\[  FAILED  \] / { running = "" }

END {
    if (current != "") {
        complain(current ": did not end" (running ? ", in " running : ""))
        showTail()
        ended[current] = 1
    }
    for (i = 1; i <= programs; i++) if (!(program[i] in ended)) complain(program[i] ": did not run")
    if (ending) complain(ending)
    else if (!done) complain("the board stopped before its end")
    if (!clock) for (i = befores > 20 ? befores - 19 : 1; i <= befores; i++) print "    " before[i]
    if (failed) print "console: " log_
    printf "%d passed, %d failed, %d skipped\n", passed, failed, skipped
    exit failed > 0
}
