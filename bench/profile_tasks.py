#!/usr/bin/env python3
"""Shows where the CPU time of an empty task goes, with 1 and with 8 submitters.

perf samples the stacks of all threads and counts the system calls. The program counts the context switches, and a
preloaded library counts the allocations. Each tool has a run of its own, so that none disturbs another. Further runs
without a tool measure the CPU time that the samples divide.

Writes the tables, with costs.json, to build/bench/costs; --publish writes bench/costs.json and the performance page
instead. Needs Linux, perf, and root for the events of the kernel.
"""
import argparse
import json
import os
import re
import shutil
import statistics
import subprocess
import sys
import tempfile

import data
import page
import run
import task_costs

CASES = {"1 submitter": "profile-1", "8 submitters": "profile-8"}
# The tasks that warm up the pool before the measurement. The counts of whole runs include them.
WARM_UP_TASKS = 1000
# The number of runs without a tool. The median of their CPU times is used.
PLAIN_RUNS = 5
# Samples per second of CPU time. No timer's frequency is a multiple of it, so the samples do not follow a timer.
FREQUENCY = 1499
# The bytes of the stack that each sample keeps. A std::random_device alone takes 5,000.
STACK_BYTES = 8192
CALLS = ("futex", "sched_yield", "openat", "read", "close", "mmap", "mprotect", "munmap", "madvise")


def fail(why):
    sys.exit(f"profile_tasks.py: {why}")


def run_tool(command, environment=None):
    """Runs the command and returns its standard output."""
    variables = {**os.environ, **(environment or {})}
    done = subprocess.run(command, capture_output=True, text=True, check=False, errors="replace", env=variables)
    if done.returncode != 0:
        fail(f"{' '.join(command)}: exit status {done.returncode}\n{done.stderr.strip()[-2000:]}")
    return done.stdout


def check_tools(library, counter):
    if sys.platform != "linux":
        fail("needs Linux: perf samples the threads")
    for tool, package in (("perf", "linux-perf"), ("addr2line", "binutils")):
        if shutil.which(tool) is None:
            fail(f"{tool} is missing; the package is {package}")
    for path in (library, counter):
        if not os.path.isfile(path):
            fail(f"no such file: {path}")
    # The shell that starts a program makes system calls for any program.
    probe = ["perf", "stat", "-x,", "-e", "raw_syscalls:sys_enter", "--", "true"]
    if subprocess.run(probe, capture_output=True, check=False).returncode != 0:
        fail("perf cannot count system calls: run as root, on a kernel with tracepoints")
    sections = run_tool(["readelf", "-S", "-W", library])
    if ".debug_info" not in sections:
        print(
            f"WARNING: {library} has no debug information: searches that the compiler inlined count as rest",
            file=sys.stderr,
        )


class Program:
    """The benchmark program with the library, for one case."""

    def __init__(self, options, workload):
        program = os.path.join(options.bin, "bench_ours")
        self.command = [program, workload, "--library", os.path.abspath(options.library)]
        self.command += ["--quick"] if options.quick else []

    def run(self, prefix=(), environment=None):
        """Returns the values that the program printed, and the number of tasks that they are for."""
        output = run_tool(list(prefix) + self.command, environment)
        lines = [json.loads(line) for line in output.splitlines() if line.startswith("{")]
        if len(lines) != 1:
            fail(f"{' '.join(self.command)} printed no result")
        return {"tasks": lines[0]["x"], **lines[0]["values"]}


def measure_plain(program, runs):
    values = [program.run() for _ in range(runs)]
    return {name: statistics.median(value[name] for value in values) for name in values[0]}


def count_calls(program, tasks, folder):
    """Returns the system calls per task: the total, and the number by name of those that tasks make."""
    path = os.path.join(folder, "calls.csv")
    events = ["raw_syscalls:sys_enter"] + [f"syscalls:sys_enter_{name}" for name in CALLS]
    program.run(["perf", "stat", "-x,", "-o", path, "-e", ",".join(events), "--"])
    counts = {}
    with open(path, encoding="utf-8") as file:
        for line in file:
            fields = line.split(",")
            if len(fields) > 2 and fields[0].isdigit():
                counts[fields[2]] = int(fields[0]) / tasks
    if "raw_syscalls:sys_enter" not in counts:
        fail("perf counted no system calls")
    calls = {name: counts.get(f"syscalls:sys_enter_{name}", 0) for name in CALLS}
    return counts["raw_syscalls:sys_enter"], {name: count for name, count in calls.items() if count >= 0.005}


class Symbols:
    """Finds the functions at addresses of a file, including the functions inlined there."""

    def __init__(self):
        self.known = {}

    def look_up(self, path, addresses):
        """Looks up all addresses of a file at once, because the tool reads the debug information at each start."""
        if not os.path.isfile(path):
            return
        asked = "\n".join(hex(address) for address in sorted(addresses))
        done = subprocess.run(
            ["addr2line", "-a", "-f", "-i", "-C", "-e", path], input=asked, capture_output=True, text=True, check=False
        )
        address = None
        # Pairs of lines follow each address: a function, and its place in the sources.
        for number, line in enumerate(done.stdout.splitlines()):
            if line.startswith("0x"):
                address, first = int(line, 16), number + 1
                self.known[path, address] = []
            elif address is not None and (number - first) % 2 == 0 and line != "??":
                self.known[path, address].append(line)

    def get(self, path, address):
        return self.known.get((path, address), [])


STACK_LINE = re.compile(r"\s+([0-9a-f]+) (.+) \((.*)\)$")


def read_stacks(text):
    """Returns, for each sample, the thread's name and each frame's (address, function, file), innermost first."""
    stacks = []
    for block in text.split("\n\n"):
        lines = block.strip("\n").splitlines()
        if not lines:
            continue
        frames = []
        for line in lines[1:]:
            found = STACK_LINE.match(line)
            if found:
                name = re.sub(r"(@+GLIBC[\w.]*)?\+0x[0-9a-f]+$", "", found[2])
                frames.append((int(found[1], 16), name, found[3]))
        stacks.append((lines[0].rpartition(" ")[0].strip(), frames))
    return stacks


def resolve_stacks(stacks, library):
    """Adds the functions that the compiler inlined into the functions of the library."""
    path = os.path.realpath(library)

    def find_address(number, address):
        # The address of a caller is that of the instruction after the call.
        return address - (1 if number > 0 else 0)

    addresses = {
        find_address(number, address)
        for _, frames in stacks
        for number, (address, _, file) in enumerate(frames)
        if file == path
    }
    symbols = Symbols()
    symbols.look_up(path, addresses)
    samples = []
    for thread, frames in stacks:
        resolved = []
        for number, (address, name, file) in enumerate(frames):
            inlined = symbols.get(path, find_address(number, address)) if file == path else []
            resolved.append(task_costs.Frame((inlined or []) + [name], file == "[kernel.kallsyms]"))
        samples.append((thread, resolved))
    return samples


def sample_stacks(program, options, folder):
    path = os.path.join(folder, "perf.data")
    record = ["perf", "record", "-q", "-o", path, "-e", "cpu-clock", "-F", str(FREQUENCY)]
    program.run(record + ["--call-graph", f"dwarf,{STACK_BYTES}", "--"])
    text = run_tool(["perf", "script", "-i", path, "--no-inline", "-F", "comm,tid,ip,sym,symoff,dso"])
    stacks = read_stacks(text)
    if not stacks:
        fail("perf took no samples")
    print(f"  {len(stacks)} samples", file=sys.stderr)
    return task_costs.sum_samples(resolve_stacks(stacks, options.library))


def round_numbers(numbers):
    return {name: data.round_number(number) for name, number in numbers.items()}


def measure_case(name, options, folder):
    print(f"{name}", file=sys.stderr)
    program = Program(options, CASES[name])
    plain = measure_plain(program, 1 if options.quick else PLAIN_RUNS)
    tasks = int(plain["tasks"])
    all_calls, calls = count_calls(program, tasks + WARM_UP_TASKS, folder)
    allocations = program.run(environment={"LD_PRELOAD": options.counter})["allocations"]
    shares, kernel = sample_stacks(program, options, folder)
    numbers = {
        "process_us": plain["process_us"],
        "switches": plain["switches"],
        "allocations": allocations,
        "all_calls": all_calls,
    }
    return {
        "case": name,
        "tasks": tasks,
        **round_numbers(numbers),
        "calls": round_numbers(calls),
        "shares": {place: round_numbers(kinds) for place, kinds in shares.items()},
        "kernel": round_numbers(kernel),
    }


def read_options():
    parser = argparse.ArgumentParser(
        prog="scripts/bench.sh --costs", description="Shows where the CPU time of an empty task goes."
    )
    parser.add_argument("library", help="the library to measure; best with debug information")
    parser.add_argument("--bin", required=True, help=argparse.SUPPRESS)
    parser.add_argument("--output", help="folder to write to (build/bench/costs)")
    parser.add_argument("--quick", action="store_true", help="show that everything works; the figures mean nothing")
    parser.add_argument("--publish", action="store_true", help="write bench/costs.json and the performance page")
    options = parser.parse_args()
    if options.publish and (options.quick or options.output):
        parser.error("--publish needs a complete run, and no other folder")
    options.passes = 1 if options.quick else PLAIN_RUNS
    options.counter = os.path.abspath(os.path.join(options.bin, "libbench_count_allocations.so"))
    return options


def main():
    options = read_options()
    check_tools(options.library, options.counter)
    load = run.warn_of_load()
    with tempfile.TemporaryDirectory() as folder:
        cases = [measure_case(name, options, folder) for name in CASES]
    results = {**run.describe_run(options, load), "cases": cases}
    print(task_costs.write(results))
    folder = options.output or os.path.join(options.bin, "..", "costs")
    page.store("costs.json", results, None if options.publish else folder)


if __name__ == "__main__":
    main()
