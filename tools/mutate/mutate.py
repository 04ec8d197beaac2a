#!/usr/bin/env python3
"""mutate.py - changes src/ in one place at a time; the tests must notice each change.

Options: --count N (a sample of N, drawn by --seed S in parts by folder; 0: all), --only TEXT (files whose path has it),
--folders NAME,... (what the sample has of these),
--list (print the mutants, build nothing), --fresh (forget earlier verdicts), --fail (fail when a survivor is not listed),
--minutes M (stop after that long; the next run goes on), --thorough (survivors once more under the sanitizers),
--try-listed (also those in the list of equivalents).

Verdicts are kept in build/mutants/verdicts.jsonl, by the mutant's own text: a run can be stopped and goes on, a changed
file loses its own, and changed tests lose the survivors. See docs/development.md.
"""

import argparse
import collections
import fcntl
import fnmatch
import glob
import json
import os
import re
import resource
import signal
import sys
import threading
import time

sys.dont_write_bytecode = True
sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))

from bench import Bench, Worker, remove_left_images, sha  # noqa: E402
from operators import changes, inf_changes  # noqa: E402
from source import Source  # noqa: E402

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
WORK = os.path.join(ROOT, "build", "mutants")
EQUIVALENT = os.path.join(ROOT, "tools", "mutate", "equivalent")
LEAST_OF_FOLDER = 60  # of a large sample
PLAIN = ["-DCMAKE_CXX_FLAGS=-O1", *(f"-DCMAKE_{kind}_LINKER_FLAGS=-fuse-ld=lld" for kind in ("EXE", "SHARED", "MODULE"))]
SANITIZED = ["-DCMAKE_CXX_FLAGS=-O1 -g1", "-DZORPM_SANITIZE=ON"]
NO_VERDICT = ("invalid", "same")  # does not compile; compiles to the same code


class Mutant:
    def __init__(self, file, text, operator, start, end, replacement):
        self.file, self.text, self.operator = file, text, operator
        self.start, self.end, self.replacement = start, end, replacement
        self.folder = file.split("/")[1]
        self.line = text.count("\n", 0, start) + 1
        first = text.rfind("\n", 0, start) + 1
        last = text.find("\n", max(start, end - 1))
        last = len(text) if last < 0 else last
        self.above = " ".join(text[text.rfind("\n", 0, max(0, first - 1)) + 1:first].split())
        self.before = " ".join(text[first:last].split())
        self.after = " ".join((text[first:start] + replacement + text[end:last]).split())
        self.key = ""
        self.listed = None

    def changed_text(self):
        return self.text[:self.start] + self.replacement + self.text[self.end:]


# ---- the mutants and the list of equivalent ones ----

def code_hash(text):
    """Of the code alone: a comment or the layout does not change what a mutant is."""
    return sha(" ".join(t.text for t in Source("", text).tokens))


def all_mutants(only):
    mutants, hashes = [], {}
    paths = [p for kind in ("cpp", "h", "inf") for p in glob.glob(os.path.join(ROOT, "src", "**", "*." + kind),
                                                                    recursive=True)]
    for path in sorted(paths):
        file = os.path.relpath(path, ROOT)
        if file.count("/") < 2:
            continue
        with open(path, encoding="utf-8", newline="") as source:
            text = source.read()
        hashes[file] = code_hash(text) if not file.endswith(".inf") else sha(text)
        if only in file:
            mutants += mutants_of(file, text)
    return mutants, hashes


def mutants_of(file, text):
    found, seen, counts = [], set(), collections.Counter()
    for change in inf_changes(text) if file.endswith(".inf") else changes(Source(file, text)):
        mutant = Mutant(file, text, *change)
        changed = sha(mutant.changed_text())
        if changed in seen:
            continue
        seen.add(changed)
        name = (mutant.operator, mutant.before, mutant.after)
        counts[name] += 1
        mutant.key = sha("\n".join((file, *name, str(counts[name]))))
        found.append(mutant)
    return found


class Equivalent:
    def __init__(self, file, operator, reason, above, before, after):
        self.file, self.operator, self.reason = file, operator, reason
        self.texts = above, before, after
        self.patterns = [re.compile(".*".join(re.escape(p) for p in t.split("..."))) for t in self.texts]
        self.matched = 0

    def matches(self, mutant):
        return fnmatch.fnmatch(mutant.file, self.file) and self.operator in ("", mutant.operator) and \
            all(p.fullmatch(t) for p, t in zip(self.patterns, (mutant.above, mutant.before, mutant.after)))


def read_equivalents():
    """A file a folder of src/: "FILE [OPERATOR]: reason" (FILE may hold *), then pairs of "- before" and "+ after" lines,
    behind "@ the line above" where these do not tell it from others; "..." stands for anything."""
    rows = []
    for path in sorted(glob.glob(os.path.join(EQUIVALENT, "*.txt"))):
        rows += read_equivalents_of(path)
    return rows


def read_equivalents_of(path):
    rows, head, above, before = [], None, "...", None
    with open(path, encoding="utf-8") as file:
        for number, line in enumerate(file, 1):
            line = line.rstrip("\n")
            match = re.match(r"^(\S+)(?: \[(\w+)\])?: (\S.*)$", line)
            if not line.strip() or line.startswith("#"):
                continue
            if line.startswith("@ ") and head:
                above = " ".join(line[2:].split())
            elif line.startswith("- ") and head:
                before = " ".join(line[2:].split())
            elif line.startswith("+") and head and before is not None:
                rows.append(Equivalent(*head, above, before, " ".join(line[1:].split())))
                above, before = "...", None
            elif match:
                head = match.group(1), match.group(2) or "", match.group(3)
            else:
                raise SystemExit(f"{os.path.relpath(path, ROOT)}:{number}: what is this?")
    return rows


def mark_listed(mutants, rows):
    for mutant in mutants:
        for row in rows:
            if row.matches(mutant):
                row.matched += 1
                mutant.listed = mutant.listed or row


# ---- what is tried ----

def draw(mutants, count, seed):
    """{folder: (its mutants in the order in which they are drawn, how many are wanted)}."""
    folders = collections.defaultdict(list)
    for mutant in mutants:
        folders[mutant.folder].append(mutant)
    for folder in folders.values():
        folder.sort(key=lambda m: sha(f"{seed} {m.key}") if count else m.key)
    if not count:
        return {name: (folder, len(folder)) for name, folder in folders.items()}
    least = min(LEAST_OF_FOLDER, count // (2 * len(folders)))
    wanted = {name: min(len(folder), least) for name, folder in folders.items()}
    rest, weight = count - sum(wanted.values()), sum(len(f) - wanted[n] for n, f in folders.items())
    for name, folder in sorted(folders.items()):
        part = round(rest * (len(folder) - wanted[name]) / weight) if weight else 0
        weight -= len(folder) - wanted[name]
        rest -= part
        wanted[name] = min(len(folder), wanted[name] + part)
    return {name: (folder, wanted[name]) for name, folder in folders.items()}


class Queue:
    """Gives out each folder's mutants in their order until as many as wanted compile to something new. Which these are
    does not depend on the number of workers: no more are under way than are still wanted."""

    def __init__(self, drawn):
        self.parts = {name: [folder, wanted, 0, 0, 0] for name, (folder, wanted) in sorted(drawn.items())}
        self.condition = threading.Condition()
        self.chosen = []
        self.stopped = False

    def take(self):
        with self.condition:
            while not self.stopped:
                waiting = False
                for name, part in sorted(self.parts.items(), key=lambda p: p[1][3] / max(1, p[1][1])):
                    folder, wanted, at, good, under_way = part
                    if at < len(folder) and good + under_way < wanted:
                        part[2] += 1
                        part[4] += 1
                        return folder[at]
                    waiting |= under_way > 0
                if not waiting:
                    return None
                self.condition.wait(1)
            return None

    def give_back(self, mutant, counts):
        with self.condition:
            part = self.parts[mutant.folder]
            part[4] -= 1
            if counts:
                part[3] += 1
                self.chosen.append(mutant)
            self.condition.notify_all()


class Verdicts:
    """The state file: one line a verdict, the last one of a key counts."""

    def __init__(self, path, hashes, tests_hash):
        self.path, self.hashes, self.tests_hash = path, hashes, tests_hash
        self.known, self.killers = {}, collections.defaultdict(list)
        if os.path.exists(path):
            with open(path, encoding="utf-8") as file:
                for line in file:
                    try:
                        self._note(json.loads(line))
                    except (ValueError, KeyError):
                        continue  # cut off by the end of a run
        self.file = open(path, "a", encoding="utf-8")
        self.lock = threading.Lock()

    def _note(self, row):
        self.known[row["key"]] = row
        if row["verdict"] == "noticed":
            row["line"] = row.get("line", 0)
            self.killers[row["file"]].append((row["line"], row["by"].split(" ")[-1]))

    def of(self, mutant, thorough):
        row = self.known.get(mutant.key)
        if row is None or row["hash"] != self.hashes[mutant.file]:
            return None
        if row["verdict"] == "survived" and (row["tests"] != self.tests_hash or thorough and not row.get("thorough")):
            return None
        return row

    def likely_killers(self, mutant):
        """Who noticed the neighbours, the nearest first."""
        near = sorted(self.killers[mutant.file][-200:], key=lambda k: abs(k[0] - mutant.line))
        return list(dict.fromkeys(name for _, name in near))[:12]

    def add(self, mutant, verdict, by, seconds, thorough):
        row = {"key": mutant.key, "file": mutant.file, "line": mutant.line, "verdict": verdict, "by": by,
               "hash": self.hashes[mutant.file], "tests": self.tests_hash, "seconds": round(seconds, 2),
               "thorough": thorough}
        with self.lock:
            self._note(row)
            self.file.write(json.dumps(row) + "\n")
            self.file.flush()
        return row


def hash_of_tests():
    paths = [p for folder in ("tests", "scenarios", "sim", "include", "cmake")
             for p in glob.glob(os.path.join(ROOT, folder, "**", "*"), recursive=True)
             if os.path.isfile(p) and "/defects/" not in p and "/wine/" not in p]
    return sha("".join(sha(open(p, "rb").read()) for p in sorted(paths)))


# ---- the run ----

def work_through(queue, worker, second, verdicts, options, progress):
    while (mutant := queue.take()) is not None:
        row = None
        try:
            if mutant.listed and not options.try_listed:
                row = {"verdict": "listed", "by": mutant.listed.reason, "seconds": 0}
            else:
                row = verdicts.of(mutant, options.thorough)
            if row is None:
                started = time.monotonic()
                killers = verdicts.likely_killers(mutant)
                verdict, by = worker.judge(mutant, killers)
                if verdict == "survived" and second is not None:
                    verdict, by = second.judge(mutant, killers)
                    by = by and "sanitizers: " + by
                row = verdicts.add(mutant, verdict, by, time.monotonic() - started, options.thorough)
                progress.tried(row)
            mutant.row = row
        finally:
            queue.give_back(mutant, row is not None and row["verdict"] not in NO_VERDICT)


def children_cpu_s():
    used = resource.getrusage(resource.RUSAGE_CHILDREN)
    return used.ru_utime + used.ru_stime


class Progress:
    def __init__(self):
        self.started, self.cpu_s = time.monotonic(), children_cpu_s()
        self.count, self.spent = 0, 0.0
        self.by_verdict = collections.Counter()
        self.lock = threading.Lock()

    def tried(self, row):
        with self.lock:
            self.count += 1
            self.spent += row["seconds"]
            self.by_verdict[row["verdict"]] += 1
            if sys.stderr.isatty() and self.count % 5 == 0 or self.count % 100 == 0:
                told = ", ".join(f"{n} {v}" for v, n in sorted(self.by_verdict.items()))
                print(f"  {self.count} in {time.monotonic() - self.started:.0f} s: {told}", file=sys.stderr)

    def summary(self):
        seconds = time.monotonic() - self.started
        if not self.count:
            return "every verdict was known"
        cpu_s = children_cpu_s() - self.cpu_s
        return f"{self.count} tried in {seconds:.0f} s: {seconds / self.count:.2f} s a mutant " \
               f"({self.spent / self.count:.2f} s of one worker, {cpu_s / self.count:.2f} s of processor)"


def try_all(queue, verdicts, options):
    bench = Bench(ROOT, WORK, "plain", PLAIN)
    bench.copy_tree()
    bench.make()
    bench.learn()
    seconds = [None] * options.jobs
    if options.thorough:
        sanitized = Bench(ROOT, WORK, "sanitized", SANITIZED)
        sanitized.memory_kb = "unlimited"
        sanitized.make()
        sanitized.learn()
        seconds = [Worker(sanitized, n) for n in range(options.jobs)]
    workers = [Worker(bench, n) for n in range(options.jobs)]
    progress, begun = Progress(), time.time()
    threads = [threading.Thread(target=work_through, args=(queue, worker, second, verdicts, options, progress))
               for worker, second in zip(workers, seconds)]
    end = begun_at = time.monotonic()
    end += 60 * options.minutes if options.minutes else 10 ** 9
    for thread in threads:
        thread.start()
    cleaned = begun_at
    while any(thread.is_alive() for thread in threads):
        time.sleep(0.2)
        if time.monotonic() > end:
            queue.stopped = True
        if time.monotonic() > cleaned + 60:
            remove_left_images(begun)
            cleaned = time.monotonic()
    remove_left_images(begun)
    return progress


# ---- the report ----

def table(title, mutants, key):
    rows = collections.defaultdict(collections.Counter)
    for mutant in mutants:
        for name in (key(mutant), "all"):
            rows[name][mutant.row["verdict"]] += 1
    lines = [f"{title:<14} {'tried':>6} {'noticed':>8} {'listed':>7} {'alive':>6} {'score':>7}"]
    for name in sorted(rows, key=lambda n: (n == "all", n)):
        row = rows[name]
        judged = row["noticed"] + row["survived"]
        score = f"{100 * row['noticed'] / judged:.1f} %" if judged else "-"
        share = f" {100 * row['listed'] / sum(row.values()):.0f} % listed" if row["listed"] else ""
        lines.append(f"{name:<14} {sum(row.values()):>6} {row['noticed']:>8} {row['listed']:>7} "
                     f"{row['survived']:>6} {score:>7}{share}")
    return lines


def clip(text, length=300):
    return text if len(text) <= length else text[:length - 3] + "..."


def report(queue, progress, rows, options):
    chosen = sorted(queue.chosen, key=lambda m: (m.file, m.line, m.start))
    alive = [m for m in chosen if m.row["verdict"] == "survived"]
    lines = []
    for mutant in alive:
        lines += [f"{mutant.file}:{mutant.line}: {mutant.operator}", f"- {clip(mutant.before)}",
                  f"+ {clip(mutant.after)}", ""]
    lines += table("folder", chosen, lambda m: m.folder) + [""] + table("operator", chosen, lambda m: m.operator)
    lines += ["", progress.summary()]
    for mutant in chosen:
        if mutant.listed and mutant.row["verdict"] == "noticed":
            lines.append(f"listed as equivalent, but noticed by {mutant.row['by']}: {mutant.file}:{mutant.line}: "
                         f"{mutant.after}")
    stale = [r for r in rows if not r.matched] if not options.only + options.folders else []
    for row in stale:
        lines.append(f"tools/mutate/equivalent: matches nothing any more: {row.file}: - {row.texts[1]}")
    with open(os.path.join(WORK, "report.txt"), "w", encoding="utf-8") as file:
        file.write("\n".join(lines) + "\n")
    print("\n".join(lines))
    if queue.stopped:
        print("stopped before the end; the next run goes on")
    return 1 if options.fail and (alive or stale or queue.stopped) else 0


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--count", type=int, default=0)
    parser.add_argument("--seed", default="1")
    parser.add_argument("--only", default="")
    parser.add_argument("--folders", default="")
    parser.add_argument("--minutes", type=float, default=0)
    parser.add_argument("--jobs", type=int, default=len(os.sched_getaffinity(0)))
    for name in ("list", "fresh", "fail", "thorough", "try-listed"):
        parser.add_argument("--" + name, action="store_true")
    options = parser.parse_args()
    mutants, hashes = all_mutants(options.only)
    rows = read_equivalents()
    mark_listed(mutants, rows)
    drawn = draw(mutants, options.count, options.seed)
    if options.folders:
        drawn = {name: drawn[name] for name in options.folders.split(",")}
    if options.list:
        for folder, wanted in drawn.values():
            for mutant in folder[:wanted]:
                print(f"{mutant.file}:{mutant.line}: {mutant.operator}{' (listed)' if mutant.listed else ''}\n"
                      f"- {clip(mutant.before)}\n+ {clip(mutant.after)}")
        return 0
    os.makedirs(WORK, exist_ok=True)
    lock = open(os.path.join(WORK, "lock"), "w", encoding="utf-8")
    try:
        fcntl.flock(lock, fcntl.LOCK_EX | fcntl.LOCK_NB)
    except OSError:
        raise SystemExit("mutate: another run is under way here") from None
    path = os.path.join(WORK, "verdicts.jsonl")
    if options.fresh and os.path.exists(path):
        os.unlink(path)
    tests_hash = hash_of_tests()
    verdicts = Verdicts(path, hashes, tests_hash)
    queue = Queue(drawn)

    def stop(*_):
        queue.stopped = True

    signal.signal(signal.SIGINT, stop)
    signal.signal(signal.SIGTERM, stop)
    progress = try_all(queue, verdicts, options)
    return report(queue, progress, rows, options)


if __name__ == "__main__":
    sys.exit(main())
