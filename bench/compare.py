#!/usr/bin/env python3
"""Compares two builds of the pool library, in one run.

In each pass, both builds run each workload, one right after the other. They take turns to go first, so disturbances of
the machine affect both alike. Short workloads run several times in a pass.

Prints a table with the medians, their ratios and the goals. Writes it, with comparison.json, to
build/bench/comparison; --publish writes bench/comparison.json and the performance page instead. The exit status is 1 if
a program fails; a missed goal does not change it.
"""
import argparse
import os
import sys
import time

import comparison
import data
import page
import run

PROGRAM = "bench_ours"


def read_options():
    parser = argparse.ArgumentParser(
        prog="scripts/bench.sh --compare", description="Compares two builds of the pool library, in one run."
    )
    parser.add_argument("before", metavar="OLD", help="the library to compare with")
    parser.add_argument("after", metavar="NEW", help="the library that has the goals")
    parser.add_argument("--bin", required=True, help=argparse.SUPPRESS)
    parser.add_argument("--output", help="folder to write to (build/bench/comparison)")
    parser.add_argument("--passes", type=int, help="how often to measure everything (5; 1 with --quick)")
    parser.add_argument("--quick", action="store_true", help="show that everything works; the figures mean nothing")
    parser.add_argument("--only", default="", metavar="W2,W4", help="these workloads only")
    parser.add_argument("--publish", action="store_true", help="write bench/comparison.json and the performance page")
    options = parser.parse_args()
    options.only = [name for name in options.only.split(",") if name]
    unknown = [name for name in options.only if name not in comparison.WORKLOADS]
    if unknown:
        parser.error(f"unknown: {', '.join(unknown)}; known: {', '.join(comparison.WORKLOADS)}")
    for path in (options.before, options.after):
        if not os.path.isfile(path):
            parser.error(f"no such library: {path}")
    if options.publish and (options.quick or options.only or options.output):
        parser.error("--publish needs all workloads, and no other folder")
    if options.passes is None:
        options.passes = 1 if options.quick else 5
    if options.passes < 1:
        parser.error("--passes must be at least 1")
    return options


def make_builds(options):
    program = os.path.join(options.bin, PROGRAM)
    paths = {comparison.BEFORE: options.before, comparison.AFTER: options.after}
    return [run.System(program, ["--library", os.path.abspath(path)], name=name) for name, path in paths.items()]


def measure(options):
    """Returns the results, and whether every program succeeded."""
    load = run.warn_of_load()
    builds = make_builds(options)
    workloads = [name for name in comparison.WORKLOADS if not options.only or name in options.only]
    start = time.monotonic()
    count_rounds = run.count_one_round if options.quick else comparison.count_rounds
    measurements, complete = run.measure(builds, workloads, options.passes, options.quick, count_rounds)
    print(f"measured for {(time.monotonic() - start) / 60:.1f} minutes", file=sys.stderr)
    results = run.describe_run(options, load)
    results["systems"] = {build.name: {"describe": build.description, "threads": build.threads} for build in builds}
    results["cases"] = data.summarise(measurements)
    return results, complete


def main():
    options = read_options()
    results, complete = measure(options)
    print(comparison.write(results))
    folder = options.output or os.path.join(options.bin, "..", "comparison")
    page.store("comparison.json", results, None if options.publish and complete else folder)
    return 0 if complete else 1


if __name__ == "__main__":
    sys.exit(main())
