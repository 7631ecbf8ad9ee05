#!/usr/bin/env python3
"""Runs the benchmark programs in turn and writes what they measured.

In a pass each system runs each workload once; who comes first changes from workload to workload and from pass to
pass, so that what else the machine does hits all alike. Exit status 1 when a program failed; no figure makes the
run fail. Writes into the output folder:

results.json  every measurement, and the machine
results.md    tables: targets, medians, least and greatest values
plots/*.svg   when matplotlib is installed
"""
import argparse
import json
import os
import platform
import signal
import statistics
import subprocess
import sys
import tempfile
import time

import figures
import tables

OPERATIONS = "operations"
WORKLOADS = ("W1", "W2", "W3", "W4", "W4b", "W5", "W6", "W7", "W8", "W9", "W10", "W11")
# Where it is shown what a peer does that is given as many threads as the pool may make.
MANY_THREADS_WORKLOADS = ("W1",)
MANY_THREADS = 301
# A machine that does more than this besides is not quiet.
QUIET_LOAD = 0.3
# A program that takes longer than this, in seconds, hangs. Generous: a busy machine must not fail a quick run.
LONGEST_RUN = {True: 600, False: 1800}


class System:
    """A program in a configuration."""

    def __init__(self, program, arguments, only=None):
        self.command = [program] + arguments
        self.only = only
        described = self.run(["--describe"], 60)
        if not described:
            sys.exit(f"{program} does not describe itself")
        self.name = described[0]["system"]
        self.description = described[0]["describe"]
        self.takes_threads = described[0]["takes_threads"]
        self.thread_each = described[0]["thread_each"]

    def run(self, arguments, limit):
        """The lines that the program printed; none when it failed, and then why is printed."""
        output = run_program(self.command + arguments, limit)
        # The loader of the pool's logging library prints lines of its own.
        return [json.loads(line) for line in output.splitlines() if line.startswith("{")]


def run_program(command, limit):
    """What the program printed; nothing when it failed, and then why is printed."""
    # A program starts others: as a group they can be ended together.
    with subprocess.Popen(
        command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, start_new_session=True
    ) as process:
        try:
            output, errors = process.communicate(timeout=limit)
        except BaseException as error:
            os.killpg(process.pid, signal.SIGKILL)
            if not isinstance(error, subprocess.TimeoutExpired):
                raise
            print(f"FAILED: {' '.join(command)}: not done after {limit} s", file=sys.stderr)
            return ""
    if process.returncode != 0:
        print(f"FAILED: {' '.join(command)}: exit status {process.returncode}\n{errors}", file=sys.stderr)
        return ""
    return output


def find_systems(folder, wanted, library):
    with open(os.path.join(folder, "systems.txt"), encoding="utf-8") as file:
        built = file.read().split()
    unknown = [name for name in wanted if name not in built]
    if unknown:
        sys.exit(f"not built: {', '.join(unknown)}; there are {', '.join(built)}")
    systems = []
    for name in built:
        if wanted and name not in wanted:
            continue
        program = os.path.join(folder, "bench_" + name)
        arguments = ["--library", os.path.abspath(library)] if library and name in ("ours", "kit") else []
        system = System(program, arguments)
        systems.append(system)
        if system.takes_threads:
            systems.append(System(program, ["--threads", str(MANY_THREADS)], MANY_THREADS_WORKLOADS))
    return systems


def measure(systems, workloads, passes, quick):
    """All measurements, and whether every program did its work."""
    measurements = []
    complete = True
    for number in range(passes):
        for turn, workload in enumerate(workloads):
            print(f"pass {number + 1} of {passes}, {workload}", file=sys.stderr)
            able = [system for system in systems if system.only is None or workload in system.only]
            first = (number + turn) % len(able) if able else 0
            for system in able[first:] + able[:first]:
                lines = system.run([workload] + (["--quick"] if quick else []), LONGEST_RUN[quick])
                complete = complete and bool(lines)
                measurements += [dict(line, **{"pass": number + 1}) for line in lines]
    return measurements, complete


def measure_operations(program, passes, quick):
    """By name: median, least and greatest wall and CPU time; nothing when the program failed."""
    print(OPERATIONS, file=sys.stderr)
    with tempfile.TemporaryDirectory() as folder:
        # Not from standard output: the loader of the pool's logging library prints lines of its own.
        path = os.path.join(folder, "operations.json")
        command = [program, f"--benchmark_repetitions={passes}", "--benchmark_out=" + path]
        if quick:
            command += ["--benchmark_min_time=0.01", "--benchmark_filter=-registered:100000"]
        if not run_program(command, LONGEST_RUN[quick]):
            return {}
        with open(path, encoding="utf-8") as file:
            runs = json.load(file)["benchmarks"]
    samples = {}
    for run in runs:
        if run["run_type"] == "iteration":
            for clock in ("real_time", "cpu_time"):
                samples.setdefault(run["name"], {}).setdefault(clock, []).append(run[clock])
    return {
        name: {clock: (statistics.median(times), min(times), max(times)) for clock, times in clocks.items()}
        for name, clocks in samples.items()
    }


def read_command(*command):
    try:
        return subprocess.run(command, capture_output=True, text=True, check=False).stdout.strip()
    except OSError:
        return ""


def name_processor():
    if sys.platform == "darwin":
        return read_command("sysctl", "-n", "machdep.cpu.brand_string")
    with open("/proc/cpuinfo", encoding="utf-8") as file:
        for line in file:
            if line.startswith("model name"):
                return line.partition(":")[2].strip()
    return platform.machine()


def name_compiler(folder):
    """The one that the programs were built with."""
    with open(os.path.join(folder, "..", "CMakeCache.txt"), encoding="utf-8") as file:
        for line in file:
            if line.startswith("CMAKE_CXX_COMPILER:"):
                return read_command(line.partition("=")[2].strip(), "--version").partition("\n")[0]
    return "unknown compiler"


def describe_machine(folder, load):
    return {
        "cores": os.cpu_count(),
        "processor": name_processor(),
        "kernel": f"{platform.system()} {platform.release()}",
        "compiler": name_compiler(folder),
        "load": round(load, 2),
        "date": time.strftime("%Y-%m-%d"),
    }


def warn_of_load():
    load = os.getloadavg()[0]
    print(f"load average before the start: {load:.2f}", file=sys.stderr)
    if load > QUIET_LOAD:
        print("WARNING: the machine is busy with something else: the figures will be noise", file=sys.stderr)
    return load


def read_options():
    parser = argparse.ArgumentParser(description="Runs the benchmarks and writes tables and plots.")
    parser.add_argument("--bin", required=True, help="folder of the built programs")
    parser.add_argument("--output", required=True, help="folder to write to")
    parser.add_argument("--passes", type=int, help="how often everything is measured (5; 1 with --quick)")
    parser.add_argument("--quick", action="store_true", help="show that everything works; no figure means a thing")
    parser.add_argument("--only", default="", metavar="W3,W4", help="these workloads (or operations) only")
    parser.add_argument("--systems", default="", metavar="ours,floor", help="these systems only")
    parser.add_argument("--library", help="another build of the pool library")
    options = parser.parse_args()
    options.only = [name for name in options.only.split(",") if name]
    options.systems = [name for name in options.systems.split(",") if name]
    known = WORKLOADS + (OPERATIONS,)
    unknown = [name for name in options.only if name not in known]
    if unknown:
        parser.error(f"there is no {', '.join(unknown)}, but {', '.join(known)}")
    if options.passes is None:
        options.passes = 1 if options.quick else 5
    return options


def wants_operations(options):
    """They are linked with the sources beside them, so they say nothing of another library."""
    if options.library or options.systems:
        return False
    asked = not options.only or OPERATIONS in options.only
    return asked and os.path.exists(os.path.join(options.bin, "bench_" + OPERATIONS))


def main():
    options = read_options()
    load = warn_of_load()
    systems = find_systems(options.bin, options.systems, options.library)
    with open(os.path.join(options.bin, "left-out.txt"), encoding="utf-8") as file:
        left_out = file.read().splitlines()
    for what in left_out:
        print(f"left out: {what}", file=sys.stderr)
    workloads = [name for name in WORKLOADS if not options.only or name in options.only]
    measurements, complete = measure(systems, workloads, options.passes, options.quick)
    operations = {}
    if wants_operations(options):
        operations = measure_operations(
            os.path.join(options.bin, "bench_" + OPERATIONS), options.passes, options.quick
        )
        complete = complete and bool(operations)

    results = {
        "machine": describe_machine(options.bin, load),
        "passes": options.passes,
        "quick": options.quick,
        "systems": {
            system.name: {"describe": system.description, "thread_each": system.thread_each}
            for system in systems
            if system.only is None
        },
        "left_out": left_out,
        "measurements": measurements,
        "operations": operations,
    }
    os.makedirs(options.output, exist_ok=True)
    with open(os.path.join(options.output, "results.json"), "w", encoding="utf-8") as file:
        json.dump(results, file, indent=1)
    text = tables.write(results)
    with open(os.path.join(options.output, "results.md"), "w", encoding="utf-8") as file:
        file.write(text)
    print(tables.write_targets(results))
    print(tables.write_kit_targets(results))
    figures.draw(results, os.path.join(options.output, "plots"))
    print(f"Written: {options.output}: results.json, results.md, plots", file=sys.stderr)
    return 0 if complete else 1


if __name__ == "__main__":
    sys.exit(main())
