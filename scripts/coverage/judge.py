#!/usr/bin/env python3
"""judge.py REPORT JUDGED: compares the lines that no test runs (REPORT, by gcovr) with those that are judged.

JUDGED holds blocks: the file and the function, its lines behind "| ", then, indented, the reason, which holds for all
lines above it up to the one before. A line behind "? " is run by chance, and may be. Lines are known by their text.
"""
import collections
import json
import os
import re
import sys


def plain(name):
    """The name alone, of a function whose signature is given."""
    name = name.replace("(anonymous namespace)::", "").replace("operator<<", "operator_shift")
    name = re.sub(r"\{lambda\([^)]*\)#\d+\}", "lambda", name)
    shorter = None
    while shorter != name:
        shorter, name = name, re.sub(r"<[^<>]*>", "", name)
    return name.split("(")[0].split(" ")[-1].split("::")[-1] or "?"


def find_uncovered(report):
    """Counts the lines that can be run, and, by file, function and text, those that never are."""
    lines = 0
    uncovered = collections.Counter()
    for file in json.load(open(report))["files"]:
        text = open(file["file"]).read().split("\n")
        functions = sorted((function["lineno"], plain(function["name"])) for function in file["functions"])
        for line in file["lines"]:
            if line["gcovr/noncode"]:
                continue
            lines += 1
            if line["count"] == 0:
                number = line["line_number"]
                function = [name for start, name in functions if start <= number][-1:] or ["?"]
                uncovered[file["file"], function[0], text[number - 1].strip()] += 1
    return lines, uncovered


def read_judged(path):
    """The same lines as they are judged, those that are run by chance apart."""
    judged = {"|": collections.Counter(), "?": collections.Counter()}
    place = None
    pending = False
    for number, line in enumerate(open(path), 1):
        line = line.rstrip("\n")
        if line.startswith("#") or not line:
            continue
        if line[:2] in ("| ", "? ") and place:
            judged[line[0]][*place, line[2:]] += 1
            pending = True
        elif line.startswith("    "):
            pending = False
        elif len(line.split()) == 2:
            place = line.split()
        else:
            sys.exit(f"{path}:{number}: neither a place nor a line nor a reason")
    if pending:
        sys.exit(f"{path}: the last lines have no reason")
    return judged["|"], judged["?"]


def show(title, lines):
    """Tells of lines in the form of the file, so that they can be copied to it."""
    if not lines:
        return
    print(title)
    last = None
    for (file, function, text), count in lines.items():
        if last != (file, function):
            print(f"{file} {function}")
            last = (file, function)
        for _ in range(count):
            print(f"| {text}")


def is_gone(file, text):
    """Whether no line of a file is this one."""
    return not os.path.exists(file) or text not in [line.strip() for line in open(file)]


lines, uncovered = find_uncovered(sys.argv[1])
judged, chance = read_judged(sys.argv[2])
unjudged = uncovered - judged - chance
stale = judged - uncovered
stale.update({line: count for line, count in chance.items() if is_gone(line[0], line[2])})
if not lines:
    sys.exit("no line was counted")
run = lines - sum(uncovered.values())
print(f"    {run} of {lines} lines are run, {100 * run / lines:.1f} %")
show("never run, and nobody says why:", unjudged)
show(f"run, or gone, and still in {sys.argv[2]}:", stale)
sys.exit(1 if unjudged or stale else 0)
