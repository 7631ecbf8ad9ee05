"""What was measured, by what is asked of it."""
import statistics

OURS = "ours"
FLOOR = "floor"
KIT = "kit"

TITLES = {
    "W1": "300 tasks that block for 100 ms, submitted at once",
    "W2": "CPU time of an empty task",
    "W3": "From submission to start, everything asleep",
    "W4": "Empty tasks, submitted at once",
    "W4b": "5,000 tasks that compute for 100 µs",
    "W5": "Removal of an owner with 10,000 queued tasks and one that runs 50 ms more",
    "W6": "Loop tasks",
    "W7": "A pool without work, for 10 s",
    "W8": "Memory kept for finished tasks",
    "W9": "1,000 tasks a second that block for 5 ms and compute for 50 µs: submission to start",
    "W10": "Submissions accepted from several threads",
    "W11": "A submission and its run beside finished tasks",
}

# What a value is called in tables, and whether more is better.
VALUES = {
    "wall_ms": ("wall time, ms", False),
    "submitter_us": ("CPU of the submitter, µs", False),
    "process_us": ("CPU of the process, µs", False),
    "p50_us": ("median delay, µs", False),
    "p99_us": ("99th percentile of the delay, µs", False),
    "tasks_per_s": ("tasks a second", True),
    "retries": ("waits of 100 ms for a worker", False),
    "used_percent": ("of all cores put to use, %", True),
    "gone_ms": ("until nothing of the owner runs, ms", False),
    "call_ms": ("the call alone, ms", False),
    "ran": ("queued tasks that ran all the same", False),
    "cpu_percent": ("CPU, % of a core", False),
    "mean_ms": ("mean delay beyond the due time, ms", False),
    "p99_ms": ("99th percentile of that delay, ms", False),
    "runs_percent": ("runs, % of those due without delay", True),
    "cpu_ms": ("CPU, ms", False),
    "bytes_per_task": ("heap a task, bytes", False),
    "heap_mb": ("heap, MB", False),
    "resident_mb": ("resident memory, MB", False),
    "submissions_per_s": ("submissions a second", True),
    "cpu_us": ("CPU, µs", False),
    "wall_us": ("wall time, µs", False),
}


class Measured:
    """The measurements of all passes, with medians."""

    def __init__(self, results):
        self.samples = {}
        self.cases = {}
        self.positions = {}
        self.refusals = {}
        self.systems = results["systems"]
        for line in results["measurements"]:
            workload, case, system = line["workload"], line["case"], line["system"]
            cases = self.cases.setdefault(workload, [])
            if case not in cases:
                cases.append(case)
            if "not_offered" in line:
                self.refusals[workload, case, system] = line["not_offered"]
            else:
                self.positions[workload, case] = line["x"]
            for name, value in line["values"].items():
                self.samples.setdefault((workload, case, name), {}).setdefault(system, []).append(value)

    def values(self, workload, case):
        """Names of what was measured there, in order of appearance."""
        return [name for at_workload, at_case, name in self.samples if (at_workload, at_case) == (workload, case)]

    def range(self, workload, case, name, system):
        """Median, least, greatest; None when there is nothing."""
        samples = self.samples.get((workload, case, name), {}).get(system)
        return (statistics.median(samples), min(samples), max(samples)) if samples else None

    def median(self, workload, case, name, system):
        found = self.range(workload, case, name, system)
        return found[0] if found else None

    def medians(self, workload, case, name):
        """By system, in the systems' order; those with another number of threads come last."""
        found = self.samples.get((workload, case, name), {})
        order = list(self.systems)
        names = sorted(found, key=lambda system: (order.index(system) if system in order else len(order), system))
        return {system: statistics.median(found[system]) for system in names}

    def is_peer(self, system):
        return system in self.systems and system not in (OURS, FLOOR, KIT)

    def best_peer(self, workload, case, name):
        """Name and median of the best peer as it comes; None when none can do it."""
        peers = {
            system: value for system, value in self.medians(workload, case, name).items() if self.is_peer(system)
        }
        if not peers:
            return None
        best = (max if VALUES[name][1] else min)(peers, key=peers.get)
        return best, peers[best]
