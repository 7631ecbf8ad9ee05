#!/usr/bin/env python3
"""Changes the product in one place at a time and checks whether a test notices. See scripts/checks/mutation.sh."""
import argparse
import hashlib
import json
import pathlib
import queue
import random
import sys
import threading
import time

import mutants as finder
from build import Build, Workplace
from results import Equivalents, Results, Summary
from suite import Recorder, Suite, read_tests
from trial import Worker
import processes

ROOT = pathlib.Path(__file__).resolve().parents[2]
FOLDER = ROOT / "build" / "mutation"
EQUIVALENTS = ROOT / "verify" / "mutation" / "equivalent.txt"
BEGUN = time.monotonic()


def say(text):
    print("[%5d s] %s" % (time.monotonic() - BEGUN, text), flush=True)


def parse_arguments():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--jobs", type=int, default=2, help="mutants at a time, up to 9")
    parser.add_argument("--only", action="append", default=[], metavar="FILE", help="only mutants of this file")
    parser.add_argument("--sample", type=int, metavar="N", help="only N mutants, chosen at random")
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--budget", type=float, default=120.0, metavar="SECONDS",
                        help="a mutant that survives tests of this total duration counts as survived")
    parser.add_argument("--again", action="append", default=[], metavar="STATUS",
                        help="run mutants with this result again, for example \"survived\"")
    parser.add_argument("--record", action="store_true", help="record again what the tests do without mutants")
    parser.add_argument("--report", action="store_true", help="run nothing, print the known results")
    parser.add_argument("--list", action="store_true", help="run nothing, print the mutants")
    return parser.parse_args()


def product_files():
    """The library's sources and headers."""
    files = [*ROOT.glob("QuenInclude/*.[ch]*"), *ROOT.glob("QuenPlugins/ZelTaskPool/*.[ch]*")]
    return sorted(str(path.relative_to(ROOT)) for path in files)


def hash_files(files):
    return {file: hashlib.sha1((ROOT / file).read_bytes()).hexdigest() for file in files}


def choose(found, arguments):
    if arguments.only:
        found = [mutant for mutant in found if mutant.file in arguments.only]
    if arguments.sample is not None:
        found = random.Random(arguments.seed).sample(found, min(arguments.sample, len(found)))
    return found


def record_suite(build, hashes, anew):
    """What the tests do without mutants. Uses the last record if the product has not changed."""
    path = FOLDER / "suite.json"
    suite = Suite(read_tests(build))
    product = hashlib.sha1(json.dumps(hashes, sort_keys=True).encode()).hexdigest()
    known = json.loads(path.read_text(encoding="utf-8")) if path.exists() and not anew else {}
    if known.get("product") == product:
        suite.from_json(known)
    missing = [test for test in suite.tests.values()
               if test.name not in suite.times and test.name not in suite.left_out]
    if missing:
        processes.adopt_orphans()
        recorder = Recorder(Workplace(build, 1), suite, say)
        say("recording what %d tests do without mutants" % len(missing))
        recorder.record_times(missing)
        recorder.record_lines([test for test in missing if test.name not in suite.left_out])
        path.write_text(json.dumps({"product": product, **suite.as_json()}), encoding="utf-8")
    return suite


class Session:
    """The mutants to try, and the workers that try them."""

    def __init__(self, orders, results):
        self.results = results
        self.total = len(orders)
        self.done = 0
        self.lock = threading.Lock()
        self.orders = queue.SimpleQueue()
        for mutant in orders:
            self.orders.put(mutant)

    def run(self, build, suite, jobs, budget):
        workers = [Worker(build, suite, number, budget) for number in range(1, jobs + 1)]
        threads = [threading.Thread(target=self.feed, args=(worker,), daemon=True) for worker in workers]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        for worker in workers:
            worker.end()

    def feed(self, worker):
        while True:
            try:
                mutant = self.orders.get_nowait()
            except queue.Empty:
                return
            with self.lock:
                hints = self.results.kills(mutant)
            begun = time.monotonic()
            result = worker.run(mutant, *hints)
            result["seconds"] = round(time.monotonic() - begun, 2)
            with self.lock:
                self.note(mutant, result)

    def note(self, mutant, result):
        self.done += 1
        if result["status"] is None:
            say("%s: %s" % (mutant.key, result["error"]))
            return
        self.results.add(mutant, result)
        say("%d of %d: %s%s in %.1f s: %s:%d %s" % (
            self.done, self.total, result["status"], " by " + result["by"] if "by" in result else "",
            result["seconds"], mutant.file, mutant.line, mutant.change))


def main():
    arguments = parse_arguments()
    processes.exit_when_told()
    files = product_files()
    hashes = hash_files(files)
    found = [mutant for file in files for mutant in finder.find_mutants(ROOT, file)]
    if arguments.list:
        for mutant in choose(found, arguments):
            print("%s (line %d)" % (mutant.key, mutant.line))
        return 0
    FOLDER.mkdir(parents=True, exist_ok=True)
    results = Results(FOLDER / "results.jsonl", hashes)
    chosen = choose(found, arguments)
    if not arguments.report:
        orders = [mutant for mutant in chosen if results.status(mutant) in (None, *arguments.again)]
        # Headers come last: each needs every source to be compiled.
        orders.sort(key=lambda mutant: mutant.file.endswith(".h"))
        say("%d mutants, %d to be run" % (len(chosen), len(orders)))
        if orders:
            build = Build(ROOT, FOLDER / "job-0")
            build.make(arguments.jobs)
            suite = record_suite(build, hashes, arguments.record)
            Session(orders, results).run(build, suite, arguments.jobs, arguments.budget)
    summary = Summary(chosen, {mutant.name for mutant in found}, results, Equivalents(EQUIVALENTS))
    summary.print()
    return 0 if summary.passed() else 1


if __name__ == "__main__":
    sys.exit(main())
