"""The results of a measurement, and functions that read them."""
import json
import re
import statistics

OURS = "ours"
FLOOR = "floor"
KIT = "kit"

TITLES = {
    "W1": "300 tasks that block for 100 ms, submitted at once",
    "W2": "CPU time of an empty task",
    "W3": "From submission to start, all workers asleep",
    "W4": "Empty tasks, submitted at once",
    "W4b": "5,000 tasks that compute for 100 µs",
    "W5": "Removal of an owner with 10,000 queued tasks and one that runs for 50 ms more",
    "W6": "Loop tasks",
    "W7": "A pool without work, for 10 s",
    "W8": "Memory kept for finished tasks",
    "W9": "1,000 tasks a second that block for 5 ms and compute for 50 µs: from submission to start",
    "W10": "Submissions accepted from several threads",
    "W11": "A submission and its run when many tasks have finished",
    "W12": "CPU time of an empty task alongside many finished ones",
}

# The title of each value in tables, and whether more is better. A value whose name ends in _us or _ms is a time.
VALUES = {
    "wall_ms": ("wall time", False),
    "submitter_us": ("CPU of the submitter", False),
    "process_us": ("CPU of the process", False),
    "p50_us": ("median delay", False),
    "p99_us": ("99th percentile of the delay", False),
    "tasks_per_s": ("tasks per second", True),
    "retries": ("waits of 100 ms for a worker", False),
    "used_percent": ("share of all cores in use, %", True),
    "gone_ms": ("until no task of the owner runs", False),
    "call_ms": ("the call alone", False),
    "ran": ("queued tasks that still ran", False),
    "cpu_percent": ("CPU, % of a core", False),
    "mean_ms": ("mean delay after the due time", False),
    "p99_ms": ("99th percentile of that delay", False),
    "runs_percent": ("runs, % of those due without delay", True),
    "cpu_ms": ("CPU", False),
    "wakeups_per_s": ("wake-ups per second", False),
    "switches": ("context switches per task", False),
    "bytes_per_task": ("heap per task, bytes", False),
    "heap_mb": ("heap, MB", False),
    "resident_mb": ("resident memory, MB", False),
    "submissions_per_s": ("submissions per second", True),
    "cpu_us": ("CPU", False),
    "wall_us": ("wall time", False),
}


def get_unit(name):
    """Returns the unit of a time in seconds; None if the value is not a time."""
    return {"us": 1e-6, "ms": 1e-3}.get(name.rpartition("_")[2])


def round_number(value):
    """Rounds to four significant digits: no measurement is more precise."""
    return float(f"{value:.4g}")


def make_range(samples):
    """Returns what results keep of the passes: the median, and the range if there is one."""
    rounded = {"median": round_number(statistics.median(samples))}
    if len(samples) > 1:
        rounded.update(least=round_number(min(samples)), greatest=round_number(max(samples)))
    return rounded


def summarise(measurements):
    """Makes a list of cases from the lines that the programs printed. Each case has its values' ranges by system."""
    samples, cases = {}, {}
    for line in measurements:
        place = line["workload"], line["case"]
        case = cases.setdefault(place, {"workload": place[0], "case": place[1], "x": None, "values": {}})
        if "not_offered" in line:
            case.setdefault("not_offered", {})[line["system"]] = line["not_offered"]
            continue
        case["x"] = line["x"]
        for name, value in line["values"].items():
            samples.setdefault((place, name), {}).setdefault(line["system"], []).append(value)
    for (place, name), systems in samples.items():
        cases[place]["values"][name] = {system: make_range(values) for system, values in systems.items()}
    return list(cases.values())


def write(results, path):
    """Writes the results to a file, with one line for each range."""
    text = json.dumps(results, indent=1, ensure_ascii=False)
    text = re.sub(r'\{\s+("median"[^{}]*?)\s+\}', lambda found: "{" + " ".join(found[1].split()) + "}", text)
    with open(path, "w", encoding="utf-8") as file:
        file.write(text + "\n")


def read(path):
    with open(path, encoding="utf-8") as file:
        return json.load(file)


class Measured:
    """The cases of results, by workload."""

    def __init__(self, results):
        self.systems = results["systems"]
        self.cases = {}
        self.found = {}
        for case in results["cases"]:
            self.cases.setdefault(case["workload"], []).append(case["case"])
            self.found[case["workload"], case["case"]] = case

    def position(self, workload, case):
        return self.found[workload, case]["x"]

    def refusals(self, workload, case):
        """Returns the systems that do not offer this case, each with the reason."""
        return self.found[workload, case].get("not_offered", {})

    def values(self, workload, case):
        """Returns the names of the measured values, in order of appearance."""
        return list(self.found[workload, case]["values"]) if (workload, case) in self.found else []

    def ranges(self, workload, case, name):
        """Returns the ranges by system, in the systems' order. Systems with another number of threads come last."""
        found = self.found.get((workload, case), {}).get("values", {}).get(name, {})
        order = list(self.systems)
        names = sorted(found, key=lambda system: (order.index(system) if system in order else len(order), system))
        return {system: found[system] for system in names}

    def medians(self, workload, case, name):
        return {system: values["median"] for system, values in self.ranges(workload, case, name).items()}

    def range(self, workload, case, name, system):
        """Returns the range of the value; None if it was not measured."""
        return self.ranges(workload, case, name).get(system)

    def median(self, workload, case, name, system):
        return self.medians(workload, case, name).get(system)

    def is_peer(self, system):
        return system in self.systems and system not in (OURS, FLOOR, KIT)

    def best_peer(self, workload, case, name):
        """Returns the name and median of the best peer in its default configuration; None if no peer was measured."""
        peers = {
            system: value for system, value in self.medians(workload, case, name).items() if self.is_peer(system)
        }
        if not peers:
            return None
        best = (max if VALUES[name][1] else min)(peers, key=peers.get)
        return best, peers[best]
