"""Sorts samples of the CPU time of an empty task, and writes the tables that show the sums."""
import collections
import re

from tables import QUICK_NOTE, describe_machine, format_number, make_table

# The parts of a task's way: the name of the thread, a function among the callers, and the part's name in the table. The
# first line that matches decides.
PLACES = (
    (r"zel-worker-", r"\bCLS_Task::Running\b", "run"),
    (r"zel-worker-", r"\bFunRunTask\b", "bookkeeping"),
    (r"zel-worker-", r"", "worker waits"),
    (r"zel-dispatcher", r"", "dispatch"),
    (r"", r"\bAddTmpTask\b", "submission"),
    (r"", r"", "other"),
)
PLACE_NAMES = ("submission", "dispatch", "run", "bookkeeping", "worker waits", "other")
PLACE_NOTES = {
    "dispatch": "the dispatcher: it takes the queue, finds a worker and hands over",
    "run": "the task's own run",
    "bookkeeping": "what a worker does before and after the run",
    "worker waits": "a worker without work yields, sleeps and wakes up",
    "other": "the benchmark itself, start and end of the pool, polls",
}

ID = "id"
PAGE_FAULTS = "page faults"
OTHER_KERNEL = "other kernel work"
REST = "rest"

# Everything that these functions call counts as the id, including the use of the random device.
ID_FUNCTIONS = r"\brandom_device\b|\bUtil::GetUuid\b"
# Kinds of work, by function. The search goes from the innermost function outwards, so the first match decides.
KINDS = {
    "maps and searches": (
        r"_M_lower_bound|_M_upper_bound|_M_get_insert|_Rb_tree_(increment|decrement)|_rebalance"
        r"|(_Rb_tree|std::map|_Hashtable)<.*>::(find|at|lower_bound|equal_range)\b|^(\w+::)*Find[A-Z]\w*$"
    ),
    "allocation": (
        r"^(malloc|calloc|realloc|free|cfree|malloc_consolidate|brk|sbrk)$"
        r"|^(operator (new|delete)|_int_(malloc|free)|unlink_chunk|tcache_|sysmalloc|systrim)"
    ),
    "locks": r"pthread_(mutex|rwlock)_|__lll_(un)?lock",
    "sleeping and waking": r"pthread_cond_|condition_variable|nanosleep",
    "yielding": r"sched_yield",
}
KIND_NAMES = (ID, *KINDS, PAGE_FAULTS, OTHER_KERNEL, REST)

# A function in a sample's chain of callers, with the functions inlined into it; innermost first.
Frame = collections.namedtuple("Frame", ("names", "kernel"))


def find_place(thread, frames):
    names = [name for frame in frames for name in frame.names]
    for thread_pattern, function_pattern, place in PLACES:
        if re.match(thread_pattern, thread) and any(re.search(function_pattern, name) for name in names or [""]):
            return place
    raise AssertionError("the last place fits everything")


def is_in_kernel(frames):
    return bool(frames) and frames[0].kernel


def find_kind(frames):
    """Returns the kind of work in a sample. Time in the kernel counts for the function that called it."""
    names = [name for frame in frames for name in frame.names]
    if any(re.search(ID_FUNCTIONS, name) for name in names):
        return ID
    if is_in_kernel(frames) and any("page_fault" in name for frame in frames if frame.kernel for name in frame.names):
        return PAGE_FAULTS
    for name in names:
        for kind, pattern in KINDS.items():
            if re.search(pattern, name):
                return kind
    return OTHER_KERNEL if is_in_kernel(frames) else REST


def sum_samples(samples):
    """Returns the shares of the samples by place and kind, and the shares in the kernel by place. A sample is a
    thread's name and its frames."""
    counts, kernel, total = {}, collections.Counter(), len(samples)
    for thread, frames in samples:
        place = find_place(thread, frames)
        counts.setdefault(place, collections.Counter())[find_kind(frames)] += 1
        kernel[place] += is_in_kernel(frames)
    shares = {place: {kind: count / total for kind, count in kinds.items()} for place, kinds in counts.items()}
    return shares, {place: count / total for place, count in kernel.items()}


def format_cost(value):
    return f"{value:.2f}" if value >= 0.005 else "-"


def write_cpu(case):
    """Returns a table in microseconds per task, with a row for each place and a column for each kind."""
    shares, total = case["shares"], case["process_us"]
    kinds = [kind for kind in KIND_NAMES if any(kind in found for found in shares.values())]
    places = [place for place in PLACE_NAMES if place in shares]

    def make_row(name, chosen):
        costs = [total * sum(shares[place].get(kind, 0) for place in chosen) for kind in kinds]
        costs += [sum(costs), total * sum(case["kernel"][place] for place in chosen)]
        return [name] + [format_cost(cost) for cost in costs]

    rows = [make_row(place, [place]) for place in places] + [make_row("**all**", places)]
    return make_table(["µs per task", *kinds, "all", "of this, in the kernel"], rows)


def write_counts(results):
    cases = results["cases"]
    names = {name: None for case in cases for name in case["calls"]}
    rows = [["system calls"] + [format_number(case["all_calls"]) for case in cases]]
    rows += [["of these, " + name] + [f"{case['calls'].get(name, 0):.2f}" for case in cases] for name in names]
    rows.append(["allocations"] + [format_number(case["allocations"]) for case in cases])
    rows.append(["context switches"] + [f"{case['switches']:.2f}" for case in cases])
    return make_table(["per task"] + [case["case"] for case in cases], rows)


def write(results):
    parts = [QUICK_NOTE] if results["quick"] else []
    parts.append(describe_machine(results))
    for case in results["cases"]:
        parts += [f"**{case['case']}**, {case['tasks']:,} tasks:\n", write_cpu(case)]
    parts.append(write_counts(results))
    parts.append("\n".join(f"- **{name}**: {note}" for name, note in PLACE_NOTES.items()) + "\n")
    return "\n".join(parts)
