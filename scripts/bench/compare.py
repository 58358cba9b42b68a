#!/usr/bin/env python3
"""Sets our figures beside the peers'.

usage: compare.py RESULT.json...    (Google Benchmark's output, every repetition in it)

Benchmarks are named WORK/WHO or WORK/WHO/ARGUMENTS; WHO is cUtil for ours. Each peer on the same work gets one line with
both medians and our time as a share of the peer's: below 1 we are faster. Where a trial noted how far its two processors
were apart (line_ns), only trials of the same distance are compared.
"""
import json
import re
import statistics
import sys

OURS = "cUtil"
# What the benchmark library appends to a name of its own accord.
APPENDED = re.compile(r"(real_time|manual_time|process_time|(iterations|min_time|min_warmup_time|repeats):.*)$")
# Benchmarks that sleep or have help say so; all others are measured in processor time, which other programs disturb less.
CLOCKED = re.compile(r"/(real_time|manual_time)(/|$)")
ENOUGH = 5  # trials, for a median that says something
SECONDS = {"s": 1.0, "ms": 1e-3, "us": 1e-6, "ns": 1e-9}
DISTANCES = ((150, "near processors"), (650, "far processors"), (float("inf"), "distant processors"))


def shown(value, units, step=1000.0):
    """A value with three digits and the unit that fits."""
    for unit in units[:-1]:
        if value < step:
            return f"{value:.3g} {unit}"
        value /= step
    return f"{value:.4g} {units[-1]}"


def figure(seconds, is_rate):
    if is_rate:
        return shown(1 / seconds, ["/s", "k/s", "M/s", "G/s"])
    return shown(seconds * 1e9, ["ns", "µs", "ms", "s"])


def distance(trial):
    if not trial.get("line_ns"):
        return ""
    return next(name for limit, name in DISTANCES if trial["line_ns"] < limit)


def read(path, groups):
    """Fills groups[work, arguments, distance][who] with (seconds per item, is_rate)."""
    failed = False
    with open(path, encoding="utf-8") as file:
        trials = json.load(file)["benchmarks"]
    for trial in trials:
        if trial["run_type"] != "iteration":
            continue
        if trial.get("error_occurred"):
            print(f"{trial['name']}: {trial.get('error_message', 'failed')}")
            failed = True
            continue
        parts = [part for part in trial["name"].split("/") if not APPENDED.match(part)]
        who = parts[1] if len(parts) > 1 else OURS
        rate = trial.get("items_per_second")
        clock = "real_time" if CLOCKED.search(trial["name"]) else "cpu_time"
        seconds = 1 / rate if rate else trial[clock] * SECONDS[trial["time_unit"]]
        key = (parts[0], "/".join(parts[2:]), distance(trial))
        groups.setdefault(key, {}).setdefault(who, []).append((seconds, bool(rate)))
    return failed


def show(groups):
    rows = []
    for (work, arguments, where), trials in groups.items():
        title = work + (f" {arguments}" if arguments else "") + (f", {where}" if where else "")
        median = {who: statistics.median(seconds for seconds, _ in them) for who, them in trials.items()}
        text = {who: figure(median[who], trials[who][0][1]) + f" ({len(trials[who])})" for who in trials}
        peers = [who for who in trials if who != OURS]
        if OURS not in trials:
            rows += [(title, "-", who, text[who], "nothing of ours at this distance" if where else "nothing of ours")
                     for who in peers]
        elif not peers:
            rows.append((title, text[OURS], "-", "-", "no peer at this distance" if where else "no peer"))
        else:
            for who in peers:
                doubt = "" if min(len(trials[OURS]), len(trials[who])) >= ENOUGH else "  (few trials)"
                rows.append((title, text[OURS], who, text[who], f"{median[OURS] / median[who]:.2f}{doubt}"))
    rows.insert(0, ("work", "ours (trials)", "peer", "peer's (trials)", "ours/peer, time"))
    widths = [max(len(row[column]) for row in rows) for column in range(5)]
    for row in rows:
        print("  ".join(cell.ljust(width) for cell, width in zip(row, widths)).rstrip())


def main():
    if len(sys.argv) < 2 or sys.argv[1] in ("-h", "--help"):
        print(__doc__.strip())
        return 0 if len(sys.argv) > 1 else 2
    groups = {}
    failed = [read(path, groups) for path in sys.argv[1:]]
    show(groups)
    return 1 if any(failed) or not groups else 0


if __name__ == "__main__":
    sys.exit(main())
