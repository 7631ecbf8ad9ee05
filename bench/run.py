#!/usr/bin/env python3
"""Runs the benchmark programs and writes their results.

In each pass, each system runs each workload once. The order rotates with each workload and pass, so disturbances of the
machine affect all systems alike. The exit status is 1 if a program fails; a missed target does not change it.

A complete run writes bench/results.json, and from it bench/RESULTS.md and three pictures in docs/pictures. A partial
run, a quick run or a run with a failed program writes the same files to build/bench.
"""
import argparse
import json
import os
import platform
import re
import signal
import subprocess
import sys
import tempfile
import time

import data
import publish
import tables

OPERATIONS = "operations"
WORKLOADS = ("W1", "W2", "W3", "W4", "W4b", "W5", "W6", "W7", "W8", "W9", "W10", "W11", "W12")
# These workloads also run peers with as many threads as the pool may start.
MANY_THREADS_WORKLOADS = ("W1",)
MANY_THREADS = 301
# The highest load average of a machine that counts as quiet.
QUIET_LOAD = 0.3
# The seconds after which a program counts as hung, with --quick and without. They suffice on a busy machine.
LONGEST_RUN = {True: 600, False: 1800}


class System:
    """A benchmark program with its arguments. _only_ names the workloads that it runs; None means all. _name_ replaces
    the program's own name in results."""

    def __init__(self, program, arguments, only=None, name=None):
        self.command = [program] + arguments
        self.only = only
        self.name = name
        described = self.run(["--describe"], 60)
        if not described:
            sys.exit(f"{program} printed no description")
        self.name = described[0]["system"]
        self.description = described[0]["describe"]
        self.takes_threads = described[0]["takes_threads"]
        self.threads = described[0]["threads"]

    def run(self, arguments, limit):
        """Returns the lines that the program printed; none if it failed."""
        output = run_program(self.command + arguments, limit)
        # The loader of the pool's logging library prints lines, too.
        lines = [json.loads(line) for line in output.splitlines() if line.startswith("{")]
        for line in lines:
            line["system"] = self.name or line["system"]
        return lines


def run_program(command, limit):
    """Returns what the program printed. If it failed, prints the reason and returns nothing."""
    # The program starts other processes. Its process group is killed as a whole.
    with subprocess.Popen(
        command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, start_new_session=True
    ) as process:
        try:
            output, errors = process.communicate(timeout=limit)
        except BaseException as error:
            os.killpg(process.pid, signal.SIGKILL)
            if not isinstance(error, subprocess.TimeoutExpired):
                raise
            print(f"FAILED: {' '.join(command)}: still running after {limit} s", file=sys.stderr)
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
        sys.exit(f"not built: {', '.join(unknown)}; built: {', '.join(built)}")
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


def count_one_round(_workload, _number):
    return 1


def measure(systems, workloads, passes, quick, count_rounds=count_one_round):
    """Returns all measurements, and whether every program succeeded. _count_rounds_ tells how many times a workload
    runs in a pass."""
    measurements = []
    complete = True
    for number in range(passes):
        for turn, workload in enumerate(workloads):
            able = [system for system in systems if system.only is None or workload in system.only]
            for part in range(count_rounds(workload, number) if able else 0):
                print(f"pass {number + 1} of {passes}, {workload}", file=sys.stderr)
                first = (number + turn + part) % len(able)
                for system in able[first:] + able[:first]:
                    lines = system.run([workload] + (["--quick"] if quick else []), LONGEST_RUN[quick])
                    complete = complete and bool(lines)
                    measurements += lines
    return measurements, complete


def measure_operations(program, passes, quick):
    """Returns the ranges of wall and CPU time by operation; nothing if the program failed."""
    print(OPERATIONS, file=sys.stderr)
    with tempfile.TemporaryDirectory() as folder:
        # A file, because the loader of the pool's logging library also prints to standard output.
        path = os.path.join(folder, "operations.json")
        command = [program, f"--benchmark_repetitions={passes}", "--benchmark_out=" + path]
        if quick:
            command += ["--benchmark_min_time=0.01", "--benchmark_filter=-registered:100000"]
        if not run_program(command, LONGEST_RUN[quick]):
            return {}
        runs = data.read(path)["benchmarks"]
    samples = {}
    for run in runs:
        if run["run_type"] == "iteration":
            for clock, name in (("real_time", "wall_us"), ("cpu_time", "cpu_us")):
                # The program prints nanoseconds.
                samples.setdefault(run["name"], {}).setdefault(name, []).append(run[clock] / 1000)
    return {
        name: {clock: data.make_range(times) for clock, times in clocks.items()} for name, clocks in samples.items()
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


def read_cache(folder, name):
    """Returns a value from the CMake cache of the programs' build; empty if there is none."""
    with open(os.path.join(folder, "..", "CMakeCache.txt"), encoding="utf-8") as file:
        for line in file:
            if line.startswith(name + ":"):
                return line.partition("=")[2].strip()
    return ""


def describe_machine(folder):
    memory = os.sysconf("SC_PAGE_SIZE") * os.sysconf("SC_PHYS_PAGES")
    release = re.match(r"[\d.]*", platform.release())[0]
    return {
        "processor": name_processor(),
        "cores": os.cpu_count(),
        "memory": f"{memory / 2**30:.3g} GiB",
        "system": f"{platform.system()} {release}",
        "compiler": read_command(read_cache(folder, "CMAKE_CXX_COMPILER"), "--version").partition("\n")[0],
    }


def describe_run(options, load):
    """Returns the beginning that all kinds of results share."""
    return {
        "date": time.strftime("%Y-%m-%d", time.gmtime()),
        "library": read_cache(options.bin, "CMAKE_PROJECT_VERSION"),
        "machine": describe_machine(options.bin),
        "load": round(load, 2),
        "passes": options.passes,
        "quick": options.quick,
    }


def warn_of_load():
    load = os.getloadavg()[0]
    print(f"load average before the start: {load:.2f}", file=sys.stderr)
    if load > QUIET_LOAD:
        print("WARNING: the machine is busy: the figures will be noise", file=sys.stderr)
    return load


def read_options():
    parser = argparse.ArgumentParser(description="Runs the benchmarks and writes results, tables and pictures.")
    parser.add_argument("--bin", required=True, help="folder of the built programs")
    parser.add_argument("--output", help="folder to write to, instead of publishing")
    parser.add_argument("--passes", type=int, help="how often to measure everything (5; 1 with --quick)")
    parser.add_argument("--quick", action="store_true", help="show that everything works; the figures mean nothing")
    parser.add_argument("--only", default="", metavar="W3,W4", help="these workloads (or operations) only")
    parser.add_argument("--systems", default="", metavar="ours,floor", help="these systems only")
    parser.add_argument("--library", help="another build of the pool library")
    options = parser.parse_args()
    options.only = [name for name in options.only.split(",") if name]
    options.systems = [name for name in options.systems.split(",") if name]
    known = WORKLOADS + (OPERATIONS,)
    unknown = [name for name in options.only if name not in known]
    if unknown:
        parser.error(f"unknown: {', '.join(unknown)}; known: {', '.join(known)}")
    if options.passes is None:
        options.passes = 1 if options.quick else 5
    return options


def wants_operations(options):
    """Returns whether to measure operations. They use this project's sources, so another library cannot run them."""
    if options.library or options.systems:
        return False
    asked = not options.only or OPERATIONS in options.only
    return asked and os.path.exists(os.path.join(options.bin, "bench_" + OPERATIONS))


def choose_folder(options, complete):
    """Returns the folder to write to; None to publish."""
    if options.output:
        return options.output
    folder = os.path.join(options.bin, "..")
    if options.quick:
        return os.path.join(folder, "quick")
    part = options.only or options.systems or options.library
    return folder if part or not complete else None


def write(results, folder):
    """Writes results.json and the files that show it to the folder. Publishes them if no folder is given."""
    if folder is None:
        data.write(results, os.path.join(publish.BENCH, "results.json"))
        publish.publish()
        return
    os.makedirs(folder, exist_ok=True)
    data.write(results, os.path.join(folder, "results.json"))
    publish.publish(folder, folder)
    print(f"Written to {os.path.relpath(folder)}: results.json, RESULTS.md, pictures", file=sys.stderr)


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
        **describe_run(options, load),
        "systems": {
            system.name: {"describe": system.description, "threads": system.threads}
            for system in systems
            if system.only is None
        },
        "left_out": left_out,
        "cases": data.summarise(measurements),
        "operations": operations,
    }
    write(results, choose_folder(options, complete))
    print(tables.write_targets(results))
    print(tables.write_kit_targets(results))
    return 0 if complete else 1


if __name__ == "__main__":
    sys.exit(main())
