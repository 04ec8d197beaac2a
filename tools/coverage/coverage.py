#!/usr/bin/env python3
"""coverage.py - which lines and branches of src/ the unit tests, the scenarios and the sweeps reach: a table by file, and
what is not reached and has no reason in tools/coverage/unreached.txt. Run on the build of the preset "coverage".

Counted are the branches of the sources: of a template's instances, and of a file's copies in several images, each once,
taken when one takes it. Not counted are those that the compiler makes: where an exception would leave, and on a line that
only closes a scope, where it asks by which way the scope was left to go on behind its destructors. Tracing is on, as in
the tests: the texts' choices in it count.

Options: --no-sweeps (leave the sweeps out), --fail (fail when a line or a branch is neither reached nor listed).
The whole report is left in build/coverage/report.txt.
"""

import argparse
import collections
import fnmatch
import glob
import json
import os
import re
import subprocess
import sys

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
BUILD = os.path.join(ROOT, "build", "coverage")
ENVIRONMENT = {name: text for name, text in os.environ.items() if not name.startswith("ZORPM_")}  # the sweeps whole
UNREACHED = os.path.join(ROOT, "tools", "coverage", "unreached.txt")


class File:
    def __init__(self, name):
        self.name = name
        self.lines = collections.Counter()     # {line: times}
        self.branches = collections.Counter()  # {(line, branches of its function there, number): times}
        with open(os.path.join(ROOT, name), encoding="utf-8") as source:
            self.text = [line.strip() for line in source]

    def add(self, line):
        number = line["line_number"]
        self.lines[number] += line["count"]
        for k, branch in enumerate(line["branches"]):
            if not branch.get("throw") and self.text[number - 1].strip("};"):
                self.branches[number, len(line["branches"]), k] += branch["count"]

    def figures(self):
        return (len(self.lines), sum(n > 0 for n in self.lines.values()),
                len(self.branches), sum(n > 0 for n in self.branches.values()))


def run(words, environment=None):
    return subprocess.Popen(words, cwd=ROOT, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                            env={**ENVIRONMENT, **(environment or {})})


def finish(what, processes):
    for process in processes:
        output = process.communicate()[0]
        if process.returncode != 0:
            raise SystemExit(f"coverage: the {what} fail:\n{output[-2000:]}")


def run_stage(name):
    if name == "unit tests":
        finish(name, [run([os.path.join(BUILD, "zorpm_tests"), "--gtest_brief=1"])])
    elif name == "scenarios":
        scenarios = sorted(glob.glob(os.path.join(ROOT, "scenarios", "**", "*.txt"), recursive=True))
        finish(name, [run([os.path.join(BUILD, "zorpmsim"), *scenarios])])
    else:
        shards = len(os.sched_getaffinity(0))
        finish(name, [run([os.path.join(BUILD, "zorpm_sweeps"), "--gtest_brief=1"],
                          {"GTEST_TOTAL_SHARDS": str(shards), "GTEST_SHARD_INDEX": str(k)}) for k in range(shards)])


def gather():
    """{file: File} of all counters written so far; the files without any are there too, with nothing reached."""
    files = {}
    for notes in glob.glob(os.path.join(BUILD, "**", "*.gcno"), recursive=True):
        data = notes[:-len(".gcno")] + ".gcda"
        told = subprocess.run(["gcov", "--json-format", "--branch-probabilities", "--stdout",
                               data if os.path.exists(data) else notes], cwd=BUILD, capture_output=True, text=True)
        for line in told.stdout.split("\n"):
            if not line.startswith("{"):
                continue
            report = json.loads(line)
            for part in report["files"]:
                path = os.path.normpath(os.path.join(report["current_working_directory"], part["file"]))
                name = os.path.relpath(path, ROOT)
                if not name.startswith("src/"):
                    continue
                file = files.setdefault(name, None) or File(name)
                files[name] = file
                for row in part["lines"]:
                    file.add(row)
    return files


def read_unreached():
    """"FILE: reason", then rows as the head of unreached.txt says."""
    rows, head = [], None
    with open(UNREACHED, encoding="utf-8") as source:
        for number, line in enumerate(source, 1):
            line = line.strip()
            row = re.match(r"(-|\?\d*) (.*)$", line)
            match = re.match(r"^([^\s:]+): (\S.*)$", line)
            if not line or line.startswith("#"):
                continue
            if row and head:
                pattern = re.compile(".*".join(re.escape(p) for p in row[2].split("...")))
                rows.append({"file": head, "kind": row[1][0], "branches": int(row[1][1:] or 1), "text": row[2],
                             "pattern": pattern, "matched": 0})
            elif match:
                head = match[1]
            else:
                raise SystemExit(f"tools/coverage/unreached.txt:{number}: what is this?")
    return rows


def listed(rows, kind, name, text, branches=1):
    found = False
    for row in rows:
        if row["kind"] == kind and row["branches"] == branches and fnmatch.fnmatch(name, row["file"]) and \
                row["pattern"].fullmatch(text):
            row["matched"] += 1
            found = True
    return found


CONDITION_LINES = 3  # behind a branch that is listed, before the lines that it leads to


def missing_of(name, file, rows):
    """The same of one file. What a listed branch or line leads to, up to the next line that is reached, is listed with
    it."""
    lines, branches, behind, led = [], [], 0, False
    for number, times in sorted(file.lines.items()):
        text = file.text[number - 1]
        if times == 0:
            if behind == 0 and not listed(rows, "-", name, text):
                lines.append(f"{name}:{number}: {text}")
            else:
                behind = CONDITION_LINES
            led = True
            continue
        behind, led = 0 if led else max(0, behind - 1), False
        taken = [file.branches[key] > 0 for key in file.branches if key[0] == number]
        untaken = taken.count(False)
        if untaken and listed(rows, "?", name, text, untaken):
            behind = CONDITION_LINES
        elif untaken:
            branches.append(f"{name}:{number}: {untaken} of {len(taken)} branches never taken: {text}")
    return lines, branches


def missing(files, rows):
    """The lines, and the branches on lines that are reached, that are neither reached nor listed."""
    found = [missing_of(name, file, rows) for name, file in sorted(files.items())]
    return [line for lines, _ in found for line in lines], [branch for _, branches in found for branch in branches]


def percent(part, whole):
    return f"{100 * part / whole:.1f} %" if whole else "-"


def row(name, figures):
    lines, reached, branches, taken = figures
    return f"{name:<44} {lines:>6} {reached:>8} {percent(reached, lines):>8} {branches:>9} {taken:>6} " \
           f"{percent(taken, branches):>8}"


def total(files):
    return [sum(column) for column in zip(*(file.figures() for file in files.values()))]


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--no-sweeps", action="store_true")
    parser.add_argument("--fail", action="store_true")
    options = parser.parse_args()
    for data in glob.glob(os.path.join(BUILD, "**", "*.gcda"), recursive=True):
        os.unlink(data)
    stages, files = [], {}
    for name in ["unit tests", "scenarios"] + ([] if options.no_sweeps else ["sweeps"]):
        run_stage(name)
        files = gather()
        stages.append((name if not stages else "and " + name, total(files)))
    if 2 * stages[0][1][1] < stages[0][1][0]:
        raise SystemExit("coverage: the counters of the simulated processes are lost: see tools/coverage/keep_counters.cpp")
    rows = read_unreached()
    lines, branches = missing(files, rows)
    stale = [r for r in rows if not r["matched"]]
    table = [f"{'file':<44} {'lines':>6} {'reached':>8} {'':>8} {'branches':>9} {'taken':>6}"]
    table += [row(name, file.figures()) for name, file in sorted(files.items()) if file.lines]
    table += [""] + [row(name, figures) for name, figures in stages]
    told = table + [""] + [f"not reached, no reason given: {line}" for line in lines]
    told += [f"no reason given: {branch}" for branch in branches]
    told += [f"tools/coverage/unreached.txt: reached, or gone: {r['file']}: {r['text']}" for r in stale]
    told += [f"{len(lines)} lines, and {len(branches)} lines with a branch never taken, without a reason; "
             f"{len(rows)} reasons in tools/coverage/unreached.txt"]
    with open(os.path.join(BUILD, "report.txt"), "w", encoding="utf-8") as report:
        report.write("\n".join(told) + "\n")
    print("\n".join(told))
    return 1 if options.fail and (lines or branches or stale) else 0


if __name__ == "__main__":
    sys.exit(main())
