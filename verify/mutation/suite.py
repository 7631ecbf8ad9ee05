"""The tests: their durations, the lines that they execute, and how to run some of them."""
import collections
import dataclasses
import json
import os
import re
import shutil
import subprocess

import processes
from build import run

# These take long, and test timing itself.
LEFT_OUT_LABELS = {"fuzz", "slow", "soak"}
LAST_RESORT = "stress"
EVENT = re.compile(r"\[( RUN      |       OK |  FAILED  |  SKIPPED )\] ([A-Za-z0-9_]+\S*?\.\S+?)(?:,|$| )")
# The timeout of a test: these seconds, plus a multiple of its duration without a mutant.
LIMIT = 4.0
LIMIT_FACTOR = 8.0
# A test that takes longer without a mutant is left out. The second limit allows for a slow machine and for counters.
MOST_SECONDS = 3.0
RECORD_LIMIT = 40.0


@dataclasses.dataclass(frozen=True)
class Test:
    name: str
    program: str  # relative to the build folder
    google: bool  # whether it is a GoogleTest, which can run with others in one process
    arguments: tuple
    folder: str
    label: str


@dataclasses.dataclass
class Outcome:
    """The outcome of some tests: the first failed test, if any, and how it failed."""

    test: str = ""
    how: str = "passed"  # "failed", "died" or "hung"
    times: dict = dataclasses.field(default_factory=dict)


def read_tests(build):
    """The tests that can run with mutants. The others are other kinds of programs or take long."""
    listed = json.loads(run(["ctest", "--test-dir", str(build.folder), "--show-only=json-v1"]))["tests"]
    tests = []
    for entry in listed:
        properties = {item["name"]: item["value"] for item in entry.get("properties", [])}
        label = properties.get("LABELS", [""])[0]
        program = os.path.relpath(entry["command"][0], build.folder)
        if label in LEFT_OUT_LABELS or program.startswith("..") or "WILL_FAIL" in properties:
            continue
        filters = [word[len("--gtest_filter="):] for word in entry["command"] if word.startswith("--gtest_filter=")]
        # The name of a test may contain addresses; the filter does not.
        tests.append(Test(filters[0] if filters else entry["name"], program, bool(filters),
                          tuple(entry["command"][1:]), properties["WORKING_DIRECTORY"], label))
    return tests


def class_files(file, files):
    """A source with its header, or a header with its sources: their names begin with its own."""
    def header(other):
        headers = (each for each in files if each.endswith(".h") and other.startswith(each[:-len(".h")]))
        return max(headers, key=len, default=None)
    return {file, header(file)} if file.endswith(".cpp") else {other for other in files if header(other) == file}


class Suite:
    """The tests and what was recorded about them."""

    def __init__(self, tests):
        self.tests = {test.name: test for test in tests}
        self.times = {}  # test -> seconds
        self.left_out = {}  # test -> why
        self.lines = {}  # file -> line -> tests, for each line that has code

    def usable(self):
        return [test for test in self.tests.values() if test.name not in self.left_out]

    def covering(self, mutant):
        """The tests that execute the mutant's line; if the line has no code, those that execute its class."""
        lines = self.lines.get(mutant.file, {})
        if mutant.line in lines:
            return set(lines[mutant.line])
        tests = set().union(*(tests for file in class_files(mutant.file, {*self.lines, mutant.file})
                              for tests in self.lines.get(file, {}).values()))
        return tests or {test.name for test in self.usable()}

    def specificity(self, file):
        """The share of each test's executed lines that lie in a file or its class."""
        own = class_files(file, {*self.lines, file})
        inside, all_lines = collections.Counter(), collections.Counter()
        for other, lines in self.lines.items():
            for tests in lines.values():
                all_lines.update(tests)
                inside.update(tests if other in own else ())
        return {test: inside[test] / count for test, count in all_lines.items()}

    def limit(self, name):
        return LIMIT + LIMIT_FACTOR * self.times.get(name, 0.0)

    def as_json(self):
        return {"times": self.times, "left_out": self.left_out,
                "lines": {file: {str(line): sorted(tests) for line, tests in lines.items()}
                          for file, lines in self.lines.items()}}

    def from_json(self, record):
        self.times = record["times"]
        self.left_out = record["left_out"]
        self.lines = {file: {int(line): tests for line, tests in lines.items()}
                      for file, lines in record["lines"].items()}


class Runner:
    """Runs tests in a workplace."""

    def __init__(self, workplace, suite):
        self.workplace = workplace
        self.suite = suite
        self.scratch = workplace.folder / "scratch"

    def run(self, tests, factor=1.0, limit=None, environment=None):
        """Runs tests of one program, in one process, until one fails."""
        limits = {test.name: limit or factor * self.suite.limit(test.name) for test in tests}
        self.clean()
        test = tests[0]
        if test.google:
            arguments = ["--gtest_filter=" + ":".join(each.name for each in tests), "--gtest_fail_fast"]
        else:
            arguments = [self.workplace.path(word) for word in test.arguments]
        started = processes.Run(
            [str(self.workplace.folder / test.program), *arguments], self.workplace.path(test.folder),
            {"TMPDIR": str(self.scratch), **(environment or {})})
        try:
            return self.watch(started, tests, limits)
        finally:
            started.end()

    def clean(self):
        shutil.rmtree(self.scratch, ignore_errors=True)
        self.scratch.mkdir()

    def watch(self, started, tests, limits):
        outcome = Outcome()
        current, begun = tests[0].name, processes.now()
        while True:
            left = begun + limits[current] - processes.now()
            lines = started.lines(left) if left > 0 else []
            if lines is None:
                break
            if not lines and left <= 0:
                return Outcome(current, "hung", outcome.times)
            for event, name in (match.groups() for line in lines for match in EVENT.finditer(line)):
                name = name if name in limits else current
                if event == " RUN      ":
                    current, begun = name, processes.now()
                elif event == "  FAILED  " and name == current:
                    outcome.test, outcome.how = name, "failed"
                elif event == "       OK " or event == "  SKIPPED ":
                    outcome.times[name] = processes.now() - begun
        status = started.wait(limits[current])
        if status is None:
            return Outcome(current, "hung", outcome.times)
        if outcome.how == "passed" and status != 0:
            outcome.test, outcome.how = current, "died" if status < 0 else "failed"
        if not tests[0].google and status == 0:
            outcome.times[current] = processes.now() - begun
        return outcome


def by_program(tests):
    groups = {}
    for test in tests:
        key = test.program if test.google else test.name
        groups.setdefault(key, []).append(test)
    return list(groups.values())


class Recorder:
    """Records what the tests do without a mutant."""

    def __init__(self, workplace, suite, say):
        self.workplace = workplace
        self.suite = suite
        self.runner = Runner(workplace, suite)
        self.say = say

    def record_times(self, tests):
        """Runs each program once, as with mutants. Tests that fail are left out."""
        self.workplace.begin()
        for group in by_program(tests):
            self.workplace.link(group[0].program)
            self.record_group(group)
        for test in self.suite.usable():
            if self.suite.times.get(test.name, 0.0) > MOST_SECONDS and test.label != LAST_RESORT:
                self.leave_out(test.name, "takes %.1f s" % self.suite.times[test.name])

    def record_group(self, left):
        while left:
            outcome = self.runner.run(left, limit=RECORD_LIMIT)
            self.suite.times.update(outcome.times)
            if outcome.how == "passed":
                return
            self.leave_out(outcome.test, "%s without a mutant" % outcome.how)
            done = {**self.suite.times, **self.suite.left_out}
            left = [test for test in left if test.name not in done]

    def leave_out(self, name, reason):
        self.suite.left_out[name] = reason
        self.say("left out: %s %s" % (name, reason))

    def record_lines(self, tests):
        """Runs each test alone, with counters."""
        self.workplace.take_counters()
        for number, test in enumerate(tests):
            if number % 100 == 0:
                self.say("lines of %d of %d tests are known" % (number, len(tests)))
            if test.label != LAST_RESORT:
                self.record_test(test)

    def record_test(self, test):
        if not self.workplace.link(test.program):
            raise RuntimeError("cannot link %s with counters" % test.program)
        counts = self.workplace.folder / "counts"
        shutil.rmtree(counts, ignore_errors=True)
        counts.mkdir()
        self.runner.run([test], limit=RECORD_LIMIT,
                        environment={"LLVM_PROFILE_FILE": str(counts / "%p-%m%c.profraw")})
        raw = [str(path) for path in counts.glob("*.profraw")]
        merged = str(counts / "merged")
        if raw and subprocess.run(["llvm-profdata-19", "merge", "-failure-mode=all", "-o", merged, *raw],
                                  capture_output=True).returncode == 0:
            self.read_counts(test, merged)

    def read_counts(self, test, merged):
        objects = [str(self.workplace.folder / target) for target in self.workplace.build.needs[test.program]]
        if not objects:
            return
        more = [word for target in objects[1:] for word in ("-object", target)]
        export = subprocess.run(
            ["llvm-cov-19", "export", "-format=lcov", "-instr-profile", merged, objects[0], *more,
             "-sources", *(str(self.workplace.build.root / folder) for folder in ("QuenInclude", "QuenPlugins"))],
            capture_output=True, text=True).stdout
        file = ""
        for line in export.splitlines():
            if line.startswith("SF:"):
                file = os.path.relpath(line[3:], self.workplace.build.root)
            elif line.startswith("DA:"):
                number, count = (int(field) for field in line[3:].split(",")[:2])
                tests = self.suite.lines.setdefault(file, {}).setdefault(number, [])
                if count > 0:
                    tests.append(test.name)
