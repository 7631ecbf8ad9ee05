#!/usr/bin/env python3
"""Puts each fault of faults.py into a copy of a source, and checks that the schedules find it.

  find_faults.py BUILD_FOLDER            each with its own scenario and strategy
  find_faults.py BUILD_FOLDER --measure  each with every scenario and strategy, a thousand seeds each

Prints how many seeds each fault took. Fails if:

  - a fault is not found within ten thousand seeds from each of five first seeds
  - the failure differs from the one that the fault names
  - the seed that found it does not repeat the failure in another process
  - one of these seeds fails without any fault
  - the list has too few faults
"""
import argparse
import concurrent.futures
import json
import os
import pathlib
import re
import shlex
import statistics
import subprocess
import sys

from faults import FAULTS, ROOT, spoil

TARGET = "zel_schedules"
SEEDS = 10000
MEASURED_SEEDS = 1000  # with all scenarios and strategies
BASES = 5
BASE_STEP = 1000000  # from one of the program's first seeds to the next
LONGEST = 300  # seconds; a fault may cause a loop without a step
LONGEST_MEASURE = 3600
LEAST_FAULTS = 50


def run(command, folder, longest=LONGEST):
    try:
        return subprocess.run(command, cwd=folder, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                              check=False, timeout=longest)
    except subprocess.TimeoutExpired:
        return subprocess.CompletedProcess(command, -1, "%s takes longer than %d s\n" % (shlex.join(command), longest))


def must(command, folder):
    done = run(command, folder)
    if done.returncode != 0:
        sys.exit("%s\n%s" % (shlex.join(command), done.stdout))
    return done.stdout


class Build:
    """The commands that build the program, so that it can be built again with one source replaced."""

    def __init__(self, folder):
        self.folder = folder
        self.objects = {}
        for entry in json.loads((folder / "compile_commands.json").read_text()):
            if "/%s_hooked.dir/" % TARGET in entry["command"]:
                name = os.path.relpath(entry["file"], ROOT)
                self.objects[name] = shlex.split(entry["command"])
        lines = must(["ninja", "-t", "commands", TARGET], folder).splitlines()
        # The link command is between two empty shell commands.
        words = shlex.split(lines[-1])
        self.link = [word for word in words if word not in (":", "&&")]

    def program(self):
        """The program without a fault."""
        return str(self.folder / self.link[self.link.index("-o") + 1])

    def make(self, fault, number):
        place = self.folder / "faults" / str(number)
        source = place / (fault["source"] if fault["user"] else pathlib.Path(fault["source"]).name)
        source.parent.mkdir(parents=True, exist_ok=True)
        source.write_text(spoil(fault))
        compile_words = list(self.objects[fault["user"] or fault["source"]])
        if fault["user"]:
            # The source that includes the header finds it there first.
            source = place / pathlib.Path(fault["user"]).name
            source.write_text((ROOT / fault["user"]).read_text())
            compile_words.insert(next(at for at, word in enumerate(compile_words) if word.startswith("-I")),
                                 "-I" + str(place))
        old_object = compile_words[compile_words.index("-o") + 1]
        new_object = str(source.with_suffix(".o"))
        compile_words[compile_words.index("-o") + 1] = new_object
        compile_words[compile_words.index("-c") + 1] = str(source)
        must(compile_words + ["-Wno-error", "-w", "-g0"], self.folder)
        link_words = [new_object if word == old_object else word for word in self.link]
        program = place / TARGET
        link_words[link_words.index("-o") + 1] = str(program)
        must(link_words, self.folder)
        return program


def read_counts(line):
    words, _, failure = line.partition(" : ")
    scenario, strategy, *counts = words.split()
    return scenario, strategy, [int(count) for count in counts], failure


def look(build, fault, number, seeds, longest, *words):
    """A row for each scenario and strategy that finds the fault. 0 stands for a first seed that does not find it."""
    program = str(build.make(fault, number))
    done = run([program, "--measure", str(BASES), "--seeds", str(seeds), *words], build.folder, longest)
    return program, [read_counts(line) for line in done.stdout.splitlines() if " : " in line]


def repeats(program, scenario, strategy, counts, failure):
    """Whether a new process fails in the same way with the last seed that was measured."""
    seed = 1 + (len(counts) - 1) * BASE_STEP + counts[-1] - 1
    done = run([program, "--scenario", scenario, "--strategy", strategy, "--seed", str(seed)], ".")
    return done.returncode == 1 and done.stdout.startswith("%s, %s: %s\n" % (scenario, strategy, failure))


def is_seen(fault, failure):
    """Whether the failure is one that the fault causes, whatever the task's name."""
    return re.sub(r"\b[A-Z]\b", "a task", failure).startswith(fault["seen"])


def check(build, fault, number):
    """The largest number of seeds that it took; None if the fault is not found."""
    program, rows = look(build, fault, number, SEEDS, LONGEST,
                         "--scenario", fault["scenario"], "--strategy", fault["strategy"])
    if len(rows) != 1 or not all(rows[0][2]):
        print("| %s | NOT FOUND from every first seed | | | |" % fault["name"], flush=True)
        return None
    scenario, strategy, counts, failure = rows[0]
    if not is_seen(fault, failure):
        print("| %s | SEEN AS | | | %s |" % (fault["name"], failure), flush=True)
        return None
    if not repeats(program, scenario, strategy, counts, failure):
        print("| %s | DOES NOT REPEAT in another process | | | |" % fault["name"], flush=True)
        return None
    print("| %s | %s | %s | %d | %s |" % (fault["name"], scenario, strategy, statistics.median(counts), failure),
          flush=True)
    return max(counts)


def passes(build, scenario, strategy, seeds):
    """Whether the seeds that find faults pass without a fault."""
    for base in range(BASES):
        done = run([build.program(), "--scenario", scenario, "--strategy", strategy,
                    "--first", str(1 + base * BASE_STEP), "--seeds", str(seeds)], build.folder)
        if done.returncode != 0:
            print("\nWITHOUT A FAULT:\n%s" % done.stdout, flush=True)
            return False
    return True


def measure(build, fault, number):
    """The scenario and strategy that find the fault with the fewest seeds, from every first seed."""
    _, rows = look(build, fault, number, MEASURED_SEEDS, LONGEST_MEASURE)
    # The place decides between equal medians: the first one wins.
    found = [(statistics.median(counts), place, scenario, strategy, failure)
             for place, (scenario, strategy, counts, failure) in enumerate(rows)
             if not strategy.startswith("exhaustive") and all(counts)]
    also = {scenario for scenario, _, counts, _ in rows if any(counts)}
    if not found:
        print("| %s | NOT FOUND from every first seed | %s | | |" % (fault["name"], ", ".join(sorted(also))), flush=True)
        return None
    median, _, scenario, strategy, failure = min(found)
    print("| %s | %s | %s | %d | %d | %s |" % (fault["name"], scenario, strategy, median, len(also), failure),
          flush=True)
    return median


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("folder", type=pathlib.Path)
    parser.add_argument("--measure", action="store_true")
    parser.add_argument("--only", default="", metavar="TEXT", help="only faults whose name contains this text")
    arguments = parser.parse_args()
    build = Build(arguments.folder.resolve())
    if arguments.measure:
        print("| Fault | Scenario | Strategy | Seeds, median | Scenarios that find it | As |\n|---|---|---|---|---|---|")
    else:
        print("| Fault | Scenario | Strategy | Seeds, median | As |\n|---|---|---|---|---|")
    work = measure if arguments.measure else check
    meant = [(number, fault) for number, fault in enumerate(FAULTS) if arguments.only in fault["name"]]
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        results = list(pool.map(lambda pair: work(build, pair[1], pair[0]), meant))
    found = sum(result is not None for result in results)
    print("\n%d of %d faults are found" % (found, len(results)))
    if not arguments.only and len(results) < LEAST_FAULTS:
        sys.exit("only %d faults, expected at least %d" % (len(results), LEAST_FAULTS))
    if arguments.measure or found < len(results):
        return 0 if found == len(results) else 1
    most = {}
    for (_, fault), seeds in zip(meant, results):
        pair = (fault["scenario"], fault["strategy"])
        most[pair] = max(most.get(pair, 0), seeds)
    return 0 if all([passes(build, *pair, seeds) for pair, seeds in most.items()]) else 1


if __name__ == "__main__":
    sys.exit(main())
