"""The targets of the pool and of the host kit."""
from data import FLOOR, KIT, OURS


class Target:
    """A text, and a function that returns the limit of a value: the greatest or the least permitted one. The function
    returns None if a value that it needs was not measured."""

    def __init__(self, text, bound, at_least=False):
        self.text = text
        self.bound = bound
        self.at_least = at_least

    def judge(self, measured, workload, case, name, system=OURS):
        value = measured.median(workload, case, name, system)
        bound = self.bound(measured, workload, case, name)
        if value is None or bound is None:
            return None
        return value >= bound if self.at_least else value <= bound


def times_floor(factor):
    def bound(measured, workload, case, name):
        floor = measured.median(workload, case, name, FLOOR)
        return None if floor is None else factor * floor

    return bound


def best_peer(measured, workload, case, name):
    best = measured.best_peer(workload, case, name)
    return None if best is None else best[1]


def fixed(value):
    return lambda measured, workload, case, name: value


def fifteenth_of_pools(measured, workload, case, name):
    """Returns a 15th of the time of the fastest peer that does not start a thread for each task."""
    pools = [
        value
        for system, value in measured.medians(workload, case, name).items()
        if measured.is_peer(system) and measured.systems[system]["threads"] is not None
    ]
    return min(pools) / 15 if pools else None


def one_in_ten_thousand(measured, workload, case, name):
    return measured.position(workload, case) / 10000


def times_first(factor):
    """Makes a limit: a multiple of the pool's own value in the workload's first case."""

    def bound(measured, workload, case, name):
        first = measured.median(workload, measured.cases[workload][0], name, OURS)
        return None if first is None else factor * first

    return bound


def times_ours(factor):
    """Makes a limit: a multiple of the value of the bare functions, which the kit uses."""

    def bound(measured, workload, case, name):
        ours = measured.median(workload, case, name, OURS)
        return None if ours is None else factor * ours

    return bound


FLOOR_HALF_AGAIN = Target("at most 1.5 x the floor", times_floor(1.5))
BEST_PEER = Target("no worse than the best peer", best_peer)
HALF_OF_FLOOR = Target("at least half of the floor", times_floor(0.5), at_least=True)
FEW_RETRIES = Target("at most 1 in 10,000 tasks", one_in_ten_thousand)
MEAN_DELAY = Target("at most 6 ms", fixed(6))
LONG_DELAY = Target("at most 15 ms", fixed(15))
TWICE_FIRST = Target("at most 2 x the value with none finished", times_first(2))

# Workload, number of the case in order of appearance, value: targets.
TARGETS = {
    ("W1", 0, "wall_ms"): [
        Target("at most 1.05 x the floor", times_floor(1.05)),
        Target("at most a 15th of every default pool's", fifteenth_of_pools),
    ],
    ("W2", 0, "submitter_us"): [FLOOR_HALF_AGAIN],
    ("W2", 0, "process_us"): [FLOOR_HALF_AGAIN],
    ("W2", 1, "submitter_us"): [FLOOR_HALF_AGAIN],
    ("W2", 1, "process_us"): [FLOOR_HALF_AGAIN],
    ("W3", 0, "p50_us"): [FLOOR_HALF_AGAIN],
    ("W3", 0, "p99_us"): [BEST_PEER],
    ("W4", 0, "tasks_per_s"): [HALF_OF_FLOOR],
    ("W4", 0, "retries"): [FEW_RETRIES],
    ("W4", 1, "tasks_per_s"): [HALF_OF_FLOOR],
    ("W4", 1, "retries"): [FEW_RETRIES],
    ("W4b", 0, "used_percent"): [Target("at least 85 %", fixed(85), at_least=True)],
    ("W5", 0, "gone_ms"): [Target("at most 310 ms", fixed(310))],
    ("W6", 0, "cpu_percent"): [Target("at most 10 %", fixed(10))],
    ("W6", 1, "cpu_percent"): [Target("at most 15 %", fixed(15))],
    ("W6", 2, "cpu_percent"): [Target("at most 20 %", fixed(20))],
    ("W6", 0, "mean_ms"): [MEAN_DELAY],
    ("W6", 1, "mean_ms"): [MEAN_DELAY],
    ("W6", 2, "mean_ms"): [MEAN_DELAY],
    ("W6", 0, "p99_ms"): [LONG_DELAY],
    ("W6", 1, "p99_ms"): [LONG_DELAY],
    ("W6", 2, "p99_ms"): [LONG_DELAY],
    ("W7", 0, "cpu_ms"): [Target("at most 5 ms", fixed(5))],
    ("W7", -1, "cpu_ms"): [Target("at most 25 ms", fixed(25))],
    ("W8", -1, "bytes_per_task"): [Target("at most 880 bytes", fixed(880))],
    ("W9", 0, "p99_us"): [BEST_PEER],
    ("W10", -1, "submissions_per_s"): [Target("no fewer than from 1 thread", times_first(1), at_least=True)],
    ("W11", -1, "cpu_us"): [TWICE_FIRST],
    ("W11", -1, "wall_us"): [TWICE_FIRST],
}


BARE_FUNCTIONS = Target("at most 1.15 x the bare functions", times_ours(1.15))

# The targets of the host kit, in the same form.
KIT_TARGETS = {
    ("W2", 0, "submitter_us"): [BARE_FUNCTIONS],
    ("W2", 0, "process_us"): [BARE_FUNCTIONS],
    ("W2", 1, "submitter_us"): [BARE_FUNCTIONS],
    ("W2", 1, "process_us"): [BARE_FUNCTIONS],
    ("W5", 0, "gone_ms"): [Target("at most 1.02 x the rest of the run", fixed(1.02 * 50))],
    ("W8", -1, "resident_mb"): [Target("at most 8 MB more after a million tasks", fixed(8))],
}


def find(measured, workload, case, name, system=OURS):
    """Returns the targets for this value."""
    known = KIT_TARGETS if system == KIT else TARGETS
    cases = measured.cases[workload]
    number = cases.index(case)
    found = list(known.get((workload, number, name), []))
    if number == len(cases) - 1 and number > 0:
        found += known.get((workload, -1, name), [])
    return found
