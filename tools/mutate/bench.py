"""A build of the tree in which one file at a time is changed, and the tests that look at each change.

The tree is copied and built once, without sanitizers. A worker has a directory with the built programs; for a mutant it
compiles the changed file from there, links what holds it - the image, and those test programs that take the file's
functions from the archive - and runs the tests, the likeliest first. All is run by virtual time, so that a verdict is the
same on every machine.
"""

import fnmatch
import glob
import hashlib
import json
import os
import re
import shlex
import shutil
import subprocess
import threading
import time

PROGRAMS = ["zorpm_tests", "zorpmsim", "zorpm_sweeps"]
IMAGE = "zorpm_image"
SHARE = "21"        # of the sweeps' seeds and calls one of so many is run
MEMORY_KB = 3_000_000
KILLERS = 5         # of a file, tried first
SLOW_TEST_S = 0.05  # a unit test that takes longer comes after the others
LEAST_CPU_S = 10    # a program may run so long in any case: the processor may be slower than it was when it was measured
ATOMICS = "zorpm_atomics"  # objects and image, which the sweeps alone load
PLATFORM = "#include <atomic>\n#include <strsafe.h>\n#include <windows.h>\n"  # compiled once for all mutants


def sha(text):
    return hashlib.sha1(text if isinstance(text, bytes) else text.encode()).hexdigest()[:16]


class Finished:
    def __init__(self, status, output):
        self.status, self.output = status, output
        self.hung = status in (152, -24, 137, -9, 124)


def run(words, directory, cpu_s, log, memory_kb=MEMORY_KB):
    """Runs a program with a limit of processor time - the clock says nothing on a busy machine - and of memory."""
    share = SHARE if words[0].endswith("zorpm_sweeps") else "1"
    limits = f"ulimit -c 0; ulimit -t {int(cpu_s) + 1}; ulimit -v {memory_kb}; exec \"$@\""
    with open(log, "wb") as output:
        process = subprocess.Popen(["bash", "-c", limits, "bash", *words], cwd=directory, stdout=output,
                                   stderr=subprocess.STDOUT, stdin=subprocess.DEVNULL,
                                   env={**os.environ, "ZORPM_SHARE": share})
        try:
            status = process.wait(timeout=60 + 20 * cpu_s)
        except subprocess.TimeoutExpired:
            process.kill()
            process.wait()
            status = 124
    with open(log, "rb") as output:
        return Finished(status, output.read(4_000_000).decode("utf-8", "replace"))


def is_plain(name):
    """Whether an object is compiled with the flags that most of src/ has."""
    return "zorpm_objects.dir" in name or "zorpmctl_image.dir" in name


class Bench:
    """`tree` is the copy of the sources, `build` its build; `flags` are the compiler's."""

    def __init__(self, root, work, name, options):
        self.root, self.work = root, work
        self.tree = os.path.join(work, "tree")
        self.build = os.path.join(work, name)
        self.options = options
        self.compiles, self.links, self.sources, self.deps = {}, {}, {}, {}
        self.pulled, self.texts = {}, {}
        self.tests, self.scenarios, self.sweeps_s = {}, [], 0
        self.lock = threading.Lock()
        self.memory_kb = MEMORY_KB  # "unlimited" where a sanitizer reserves its shadow
        self.platform = os.path.join(self.build, "platform.h")

    def built(self, name):
        """The path of something that the build makes."""
        return os.path.join(self.build, name)

    # ---- the build ----

    def copy_tree(self):
        """Makes the copy equal to the working tree, and leaves the times of what is equal already."""
        listed = subprocess.run(["git", "ls-files", "-co", "--exclude-standard"], cwd=self.root, check=True,
                                capture_output=True, text=True).stdout.split("\n")
        names = {name for name in listed if name and os.path.isfile(os.path.join(self.root, name))}
        for folder, _, files in os.walk(self.tree):
            for file in files:
                path = os.path.join(folder, file)
                if os.path.relpath(path, self.tree) not in names:
                    os.unlink(path)
        for name in names:
            source, target = os.path.join(self.root, name), os.path.join(self.tree, name)
            os.makedirs(os.path.dirname(target), exist_ok=True)
            if not os.path.exists(target) or open(source, "rb").read() != open(target, "rb").read():
                shutil.copy(source, target)

    def make(self):
        log = os.path.join(self.work, "build.log")
        configure = ["cmake", "-S", self.tree, "-B", self.build, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=None",
                     "-DCMAKE_COMPILE_WARNING_AS_ERROR=OFF", "-DZORPM_TOGETHER=OFF", *self.options]
        environment = {**os.environ, "CCACHE_BASEDIR": self.work, "CCACHE_NOHASHDIR": "1"}
        for words in (configure, ["cmake", "--build", self.build, "--target", IMAGE, *PROGRAMS]):
            with open(log, "wb") as output:
                if subprocess.run(words, stdout=output, stderr=subprocess.STDOUT, env=environment).returncode != 0:
                    raise SystemExit(f"mutate: the build fails, see {log}")
        self._read_commands()
        self._read_deps()
        self._compile_platform()

    def words_of(self, name):
        """The command that compiles an object."""
        words = shlex.split(self.compiles[name])
        return words[1:] if words[0].endswith("ccache") else words

    def _compile_platform(self):
        with open(self.platform, "w", encoding="utf-8") as file:
            file.write(PLATFORM)
        words = self.words_of(next(name for name in self.compiles if is_plain(name)))
        words = words[:words.index("-MD")] + ["-w", "-x", "c++-header", self.platform, "-o", self.platform + ".gch"]
        subprocess.run(words, cwd=self.build, check=True)

    def _ninja(self, *words):
        return subprocess.run(["ninja", "-C", self.build, "-t", *words], check=True, capture_output=True,
                              text=True).stdout

    def _read_commands(self):
        self.compiles.clear(), self.links.clear(), self.sources.clear()
        for command in self._ninja("commands", IMAGE, *PROGRAMS).split("\n"):
            compiled = re.search(r" -o (\S+) -c (\S+)", command)
            linked = re.search(r"^: && (.*-o (\S+) .*?)(?: && :)?$", command)
            if compiled:
                self.compiles[compiled.group(1)] = command
                self.sources[compiled.group(1)] = os.path.normpath(os.path.join(self.build, compiled.group(2)))
            elif linked and not re.search(r"\bar q?c", command):
                words = [word.replace("\\$", "$") for word in shlex.split(linked.group(1))]
                self.links[linked.group(2)] = words[:words.index("&&")] if "&&" in words else words

    def _read_deps(self):
        """The sources and headers of each object, as paths in the tree."""
        current = None
        for line in self._ninja("deps").split("\n"):
            if line and not line.startswith(" "):
                current = line.split(":")[0]
                self.deps[current] = set()
            elif line.strip() and current:
                path = os.path.normpath(os.path.join(self.build, line.strip()))
                if path.startswith(self.tree):
                    self.deps[current].add(os.path.relpath(path, self.tree))

    def objects_of(self, mutant):
        """The objects that may change with the mutant."""
        path = mutant.file
        if path.endswith(".h"):
            users = [o for o in self.compiles if path in self.deps.get(o, ())]
            names = self._names(mutant)
            return [o for o in users if not names or any(self._mentions(f, names) for f in self.deps[o] - {path})]
        if path.endswith(".cpp"):
            full = os.path.join(self.tree, path)
            return [o for o in self.compiles if self.sources[o] == full or path in self.deps.get(o, ())]
        name = os.path.basename(path)  # data that an assembler directive embeds
        return [o for o, source in self.sources.items() if os.path.isfile(source) and source.endswith(".cpp") and
                re.search(r"incbin[^;]*" + re.escape(name), self._text(source))]

    def _names(self, mutant):
        """What a change of a constant or a table's row in a header is known by elsewhere; none: everywhere."""
        line = mutant.before
        macro = re.findall(r"^#define (\w+)\(", mutant.text[:mutant.start], re.M)
        if not re.match(r"(X\(|constexpr \w+ [A-Z_0-9]+ =|[A-Z_0-9]+ =|#define [A-Z_0-9]+ )", line):
            return []
        names = set(re.findall(r"\b[A-Z][A-Z_0-9]{3,}\b", re.sub(r'"[^"]*"', "", line))) - {"DWORD", "BYTE", "WORD"}
        if line.startswith("X("):
            names.add(macro[-1] if macro else "")
        rest = mutant.text[:mutant.text.rfind("\n", 0, mutant.start) + 1] + \
            mutant.text[mutant.text.find("\n", mutant.end - 1) + 1:]
        used = [row for row in rest.split("\n") if any(n in row for n in names) and not row.strip().startswith(("#define", "X(", "//"))
                and " ".join(row.split()) not in (line, mutant.after) and not re.match(r"\s*(enum : \w+ \{ )?\w+\(\w+\)( \};)?$", row)]
        return [] if used or "" in names else names

    def _mentions(self, file, names):
        return any(name in self._text(os.path.join(self.tree, file)) for name in names)

    def _text(self, path):
        if path not in self.texts:
            with open(path, encoding="utf-8", errors="replace") as file:
                self.texts[path] = file.read()
        return self.texts[path]

    def takes(self, program, name):
        """Whether a program takes the object `name` from an archive."""
        with self.lock:
            if program not in self.pulled:
                words = self.links[program] + ["-Wl,--trace,--trace", "-o", os.path.join(self.work, "trace.out")]
                listed = subprocess.run(words, cwd=self.build, capture_output=True, text=True).stdout
                self.pulled[program] = set(re.findall(r"\(?([\w.+-]+\.o)\)?$", listed, re.M))
        return os.path.basename(name) in self.pulled[program]

    # ---- the tests ----

    def learn(self):
        """Runs everything once on the unchanged tree: all must pass; the times give the limits and an order."""
        self.tests = self._times("zorpm_tests", "tests/sim/")  # without those of the machine
        self.sweeps_s = sum(self._times("zorpm_sweeps", None).values())
        self.scenarios = sorted(os.path.relpath(p, self.tree) for p in
                                glob.glob(os.path.join(self.tree, "scenarios", "**", "*.txt"), recursive=True))
        told = run([self.built("zorpmsim"), *self.scenarios], self.tree, 300,
                   os.path.join(self.work, "learn.log"), self.memory_kb)
        if told.status != 0:
            raise SystemExit(f"mutate: the scenarios fail without any change:\n{told.output[-2000:]}")

    def _times(self, program, without):
        """{test: seconds} of a program's tests, but for those of the folder `without`."""
        path = os.path.join(self.work, "tests.json")
        tests = run([self.built(program), "--gtest_brief=1", "--gtest_output=json:" + path], self.tree, 600,
                    os.path.join(self.work, "learn.log"), self.memory_kb)
        if tests.status != 0:
            raise SystemExit(f"mutate: {program} fails without any change:\n{tests.output[-2000:]}")
        with open(path, encoding="utf-8") as file:
            return {f"{suite['name']}.{test['name']}": float(test["time"].rstrip("s"))
                    for suite in json.load(file)["testsuites"] for test in suite["testsuite"]
                    if not without or without not in test.get("file", "")}


class DoesNotLink(Exception):
    pass


class Worker:
    """One place in which mutants are made, one after another."""

    def __init__(self, bench, number):
        self.bench = bench
        self.place = os.path.join(bench.work, f"{os.path.basename(bench.build)}-{number}")
        shutil.rmtree(self.place, ignore_errors=True)
        os.makedirs(self.place)
        self.originals = [name for name in os.listdir(bench.build)
                          if os.path.isfile(os.path.join(bench.build, name)) and
                          (name in PROGRAMS or name.endswith(".so"))]
        self.replaced = set(self.originals)
        self.log = os.path.join(self.place, "log")

    def _restore(self):
        shutil.rmtree(os.path.join(self.place, "overlay"), ignore_errors=True)
        for name in self.replaced:
            path = os.path.join(self.place, name)
            if os.path.lexists(path):
                os.unlink(path)
            os.link(self.bench.built(name), path)
        self.replaced, self.linked = set(), set()

    def judge(self, mutant, killers):
        """(verdict, by whom): invalid, same, noticed or survived."""
        self._restore()
        overlay = os.path.join(self.place, "overlay", mutant.file)
        os.makedirs(os.path.dirname(overlay))
        with open(overlay, "w", encoding="utf-8") as file:
            file.write(mutant.changed_text())
        self.objects = self._compile(mutant, overlay, False)
        if self.objects is None:
            return "invalid", "compiler"
        if not self.objects:
            return "same", "compiler"
        if not all(self._link(output) for output in self.bench.links if output.endswith(".so") and ATOMICS not in output):
            return "invalid", "linker"
        try:
            return self._look(mutant, killers, overlay)
        except DoesNotLink:
            return "invalid", "linker"

    def _compile(self, mutant, overlay, atomics):
        """The objects that differ from the unchanged ones: {object: its new file}; None when one does not compile."""
        changed, path = {}, mutant.file
        headers = os.path.join(self.place, "overlay", "src")
        names = [name for name in self.bench.objects_of(mutant) if (ATOMICS in name) == atomics]
        for name in sorted(names, key=lambda n: "/src/" not in n):
            if path.endswith(".h") and "/src/" not in name and not changed:
                break  # the product is the same
            target = os.path.join(self.place, "objects", name)
            os.makedirs(os.path.dirname(target), exist_ok=True)
            words = self.bench.words_of(name)
            own = self.bench.sources[name] == os.path.join(self.bench.tree, path)
            words[words.index("-o") + 1] = target
            if own:
                words[words.index("-c") + 1] = overlay
            words = self._without(words, own, path)
            if is_plain(name):
                words[1:1] = ["-include", self.bench.platform]
            words[1:1] = ["-w", "-I" + headers]
            if not path.endswith((".cpp", ".h")):
                words = [w for w in words if not w.startswith("-DZORPM_SOURCE_DIR=")]
                words[1:1] = ['-DZORPM_SOURCE_DIR="%s"' % os.path.join(self.place, "overlay")]
            if subprocess.run(words, cwd=self.bench.build, capture_output=True, timeout=300).returncode != 0:
                return None
            with open(target, "rb") as new, open(self.bench.built(name), "rb") as old:
                if new.read() != old.read():
                    changed[name] = target
        return changed

    def _without(self, words, own, path):
        """Leaves out the dependency files, and a precompiled header that holds the changed one."""
        stale = any(name.endswith(".gch") and path in headers for name, headers in self.bench.deps.items())
        result, skip = [], 0
        for word in words:
            if skip:
                skip -= 1
            elif word in ("-MT", "-MF"):
                skip = 1
            elif word == "-include" and (stale or own):
                skip = 1
            elif word != "-MD" and word != "-Winvalid-pch":
                result.append(word)
        return result

    def _link(self, output):
        """Links `output` anew where it holds a changed object; FALSE when that fails."""
        words, objects = self.bench.links[output], self.objects
        taken = [o for o in objects if output in PROGRAMS and self._in_archive(o) and self.bench.takes(output, o)]
        if not taken and not any(o in words for o in objects):
            return True
        target = os.path.join(self.place, output)
        if os.path.lexists(target):
            os.unlink(target)
        self.replaced.add(output)
        words = [objects.get(w, w) for w in words]
        words[words.index("-o") + 1] = target
        first = next(k for k, w in enumerate(words) if w.endswith(".o"))
        words[first:first] = [objects[o] for o in taken]
        return subprocess.run(words, cwd=self.bench.build, capture_output=True, timeout=300).returncode == 0

    def _program(self, name):
        """The path of a program, linked when it is needed first."""
        if name not in self.linked:
            self.linked.add(name)
            if not self._link(name):
                raise DoesNotLink
        return os.path.join(self.place, name)

    def _in_archive(self, name):
        return "zorpm_objects.dir" in name

    # ---- the tests ----

    def _look(self, mutant, killers, overlay):
        bench = self.bench
        first = [k for k in killers if k in bench.tests][:KILLERS]
        folder = mutant.folder[:6]
        rest = [t for t in bench.tests if t not in first]
        own = [t for t in rest if t.lower().startswith(folder) and bench.tests[t] <= SLOW_TEST_S]
        quick = [t for t in rest if t not in own and bench.tests[t] <= SLOW_TEST_S]
        slow = [t for t in rest if bench.tests[t] > SLOW_TEST_S]
        by = self._unit(first) or self._scenarios([k for k in killers if k in bench.scenarios]) or \
            self._scenarios(bench.scenarios) or self._unit(own) or self._unit(quick) or self._unit(slow) or \
            self._sweeps(mutant, overlay)
        return ("noticed", by) if by else ("survived", "")

    def _unit(self, tests):
        if not tests:
            return None
        with open(os.path.join(self.place, "filter"), "w", encoding="utf-8") as file:
            file.write(f"--gtest_filter={':'.join(tests)}\n")
        cpu_s = LEAST_CPU_S + 4 * sum(self.bench.tests[t] for t in tests)
        result = run([self._program("zorpm_tests"), "--gtest_fail_fast",
                      "--gtest_flagfile=" + os.path.join(self.place, "filter")], self.bench.tree, cpu_s, self.log,
                     self.bench.memory_kb)
        return self._noticed(result, r"^\[  FAILED  \] ([\w./]+)")

    def _scenarios(self, names):
        if not names:
            return None
        result = run([self._program("zorpmsim"), *names], self.bench.tree, LEAST_CPU_S, self.log,
                     self.bench.memory_kb)
        return self._noticed(result, r"^(scenarios/[^:]*):\d+: ")

    def _sweeps(self, mutant, overlay):
        self.objects.update(self._compile(mutant, overlay, True) or {})
        for output in self.bench.links:
            if ATOMICS in output and not self._link(output):
                raise DoesNotLink
        result = run([self._program("zorpm_sweeps"), "--gtest_fail_fast"], self.bench.tree,
                     LEAST_CPU_S + 4 * self.bench.sweeps_s, self.log, self.bench.memory_kb)
        return self._noticed(result, r"^\[  FAILED  \] ([\w./]+)")

    def _noticed(self, result, pattern):
        if result.status == 0:
            return None
        if result.status == 127:  # a symbol is missing
            raise DoesNotLink
        found = re.search(pattern, result.output, re.M)
        running = re.findall(r"^\[ RUN      \] ([\w./]+)", result.output, re.M)
        by = found.group(1) if found else running[-1] if running else ""
        return by if by and not result.hung else f"hang {by}".strip() if result.hung else \
            f"crash (status {result.status}) {by}".strip()


def remove_left_images(since):
    """A crashed program leaves its copies of the image behind; removes those that no process uses any more."""
    used = set()
    for maps in glob.glob("/proc/[0-9]*/maps"):
        try:
            with open(maps, encoding="utf-8", errors="replace") as file:
                used.update(re.findall(r"/tmp/zorpmsim-\w+", file.read()))
        except OSError:
            continue
    for path in glob.glob("/tmp/zorpmsim-*"):
        try:
            made = os.stat(path).st_mtime
            if fnmatch.fnmatch(path, "/tmp/zorpmsim-??????") and path not in used and since < made < time.time() - 30:
                shutil.rmtree(path, ignore_errors=True)
        except OSError:
            continue
