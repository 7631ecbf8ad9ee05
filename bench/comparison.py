"""The tables that compare two builds of the pool, and the goals of the later build."""
from data import TITLES, VALUES, Measured
from tables import QUICK_NOTE, describe_machine, format_range, make_table

BEFORE = "before"
AFTER = "after"

# "No worse" allows this factor, and any value within the earlier build's own spread.
NOISE = 1.05


class Goal:
    """A bound for the later median divided by the earlier one."""

    def __init__(self, text, bound, at_least=False):
        self.text = text
        self.bound = bound
        self.at_least = at_least

    def show(self, measured, workload, case, name):
        """Returns the cells of both builds; None if one was not measured."""
        ranges = measured.ranges(workload, case, name)
        if BEFORE not in ranges or AFTER not in ranges:
            return None
        return format_range(name, ranges[BEFORE]), format_range(name, ranges[AFTER])

    def find_value(self, measured, workload, case, name):
        """Returns the value to compare with the bound."""
        return divide_medians(measured, workload, case, name)

    def judge(self, measured, workload, case, name):
        value = self.find_value(measured, workload, case, name)
        if value is None:
            return "-"
        reached = value >= self.bound if self.at_least else value <= self.bound
        return "reached" if reached else "**missed**"


class NoWorse(Goal):
    """A goal that the later median meets if it is at most slightly worse, or no worse than the earlier worst pass."""

    def judge(self, measured, workload, case, name):
        before = measured.range(workload, case, name, BEFORE)
        after = measured.median(workload, case, name, AFTER)
        if before and after is not None and after <= before.get("greatest", before["median"]):
            return "reached"
        return super().judge(measured, workload, case, name)


class After(Goal):
    """A bound for the later median itself."""

    def find_value(self, measured, workload, case, name):
        return measured.median(workload, case, name, AFTER)


class ShareOfFirst(Goal):
    """A bound for the later median as a share of the one in the workload's first case."""

    def find_share(self, measured, workload, case, name, build):
        value = measured.median(workload, case, name, build)
        first = measured.median(workload, measured.cases[workload][0], name, build)
        return value / first if value and first else None

    def show(self, measured, workload, case, name):
        shares = [self.find_share(measured, workload, case, name, build) for build in (BEFORE, AFTER)]
        return None if None in shares else tuple(f"{share:.2f}" for share in shares)

    def find_value(self, measured, workload, case, name):
        return self.find_share(measured, workload, case, name, AFTER)


def divide_medians(measured, workload, case, name):
    """Returns the later median divided by the earlier one; None if that is not possible."""
    before, after = (measured.median(workload, case, name, build) for build in (BEFORE, AFTER))
    return after / before if before and after is not None else None


def at_most(bound):
    return Goal(f"at most {bound}", bound)


def at_least(bound):
    return Goal(f"at least {bound}", bound, at_least=True)


NO_WORSE = NoWorse("no worse", NOISE)
SHARE = ShareOfFirst("after: at least 0.95", 0.95, at_least=True)
SHOWN = Goal("-", None)

# Workload, number of the case, value, goal. A value without a goal is only shown.
ROWS = [
    ("W1", 0, "wall_ms", NO_WORSE),
    ("W2", 0, "submitter_us", at_most(0.8)),
    ("W2", 1, "submitter_us", at_most(0.65)),
    ("W2", 0, "process_us", SHOWN),
    ("W2", 1, "process_us", SHOWN),
    ("W3", 0, "p50_us", at_most(0.8)),
    ("W3", 0, "p99_us", at_most(0.8)),
    ("W4", 0, "tasks_per_s", at_least(1.6)),
    ("W4", 1, "tasks_per_s", at_least(1.6)),
    ("W5", 0, "gone_ms", NO_WORSE),
    ("W6", 0, "cpu_percent", at_most(0.9)),
    ("W6", 1, "cpu_percent", at_most(0.9)),
    ("W6", 2, "cpu_percent", at_most(0.9)),
    ("W7", 0, "cpu_ms", NO_WORSE),
    ("W7", 1, "cpu_ms", NO_WORSE),
    ("W7", 2, "cpu_ms", NO_WORSE),
    ("W7", 0, "wakeups_per_s", NO_WORSE),
    ("W7", 1, "wakeups_per_s", NO_WORSE),
    ("W7", 2, "wakeups_per_s", NO_WORSE),
    ("W8", -1, "bytes_per_task", After("after: at most 870 bytes (± 1)", 871)),
    ("W9", 0, "p50_us", NO_WORSE),
    ("W9", 0, "p99_us", NO_WORSE),
    ("W10", 0, "submissions_per_s", SHOWN),
    ("W10", 1, "submissions_per_s", SHOWN),
    ("W10", 2, "submissions_per_s", SHOWN),
    ("W10", 3, "submissions_per_s", at_least(1.8)),
    ("W10", 1, "submissions_per_s", SHARE),
    ("W10", 2, "submissions_per_s", SHARE),
    ("W10", 3, "submissions_per_s", SHARE),
    ("W11", 0, "cpu_us", NO_WORSE),
    ("W11", 0, "wall_us", NO_WORSE),
    ("W11", -1, "cpu_us", NO_WORSE),
    ("W11", -1, "wall_us", NO_WORSE),
    ("W12", 0, "process_us", at_most(0.67)),
    ("W12", 1, "process_us", at_most(0.67)),
    ("W12", 2, "process_us", at_most(0.67)),
]
WORKLOADS = [name for name in TITLES if any(row[0] == name for row in ROWS)]
# The workloads that take a second or less run several times in a pass, because their values vary most.
ROUNDS = {"W1": 3, "W2": 5, "W4": 3, "W10": 3}
# Workloads whose counts hardly vary, so one pass is enough.
ONCE = ("W8",)


def count_rounds(workload, number):
    """Returns how many times the workload runs in the pass with that number, counted from 0."""
    return int(number == 0) if workload in ONCE else ROUNDS.get(workload, 1)


def make_row(measured, row, quick):
    """Returns the cells of the row; None if it was not measured."""
    workload, number, name, goal = row
    if workload not in measured.cases:
        return None
    place = workload, measured.cases[workload][number], name
    shown = goal.show(measured, *place)
    if shown is None:
        return None
    compares_cases = isinstance(goal, ShareOfFirst)
    what = [place[1], VALUES[name][0], compares_cases and "as a share of 1 submitter"]
    ratio = None if compares_cases else divide_medians(measured, *place)
    return [
        workload,
        ", ".join(part for part in what if part),
        *shown,
        "-" if ratio is None else f"{ratio:.2f}",
        goal.text,
        "-" if quick or goal is SHOWN else goal.judge(measured, *place),
    ]


def write_table(results):
    measured = Measured(results)
    heads = ["", "what", "before", "after", "after / before", "goal", "verdict"]
    rows = [make_row(measured, row, results["quick"]) for row in ROWS]
    return make_table(heads, [row for row in rows if row])


def write(results):
    """Returns the table, and a description of the measurement."""
    parts = [describe_machine(results), write_table(results)]
    if results["quick"]:
        parts.insert(0, QUICK_NOTE)
    return "\n".join(parts)
