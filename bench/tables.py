"""Writes results as Markdown."""
import targets
from data import FLOOR, KIT, OURS, TITLES, VALUES, Measured, get_unit

QUICK_NOTE = "This was a quick run, which only shows that everything works. **Its figures mean nothing**.\n"
GENERATED = "<!-- Generated from results.json: scripts/bench.sh measures anew, bench/publish.py writes this page. -->\n"


def format_number(value):
    """Formats the number with three significant digits."""
    size = abs(value)
    if size >= 1000:
        return f"{float(f'{value:.3g}'):,.0f}"
    if size >= 100 or value == int(value):
        return f"{value:.0f}"
    return f"{value:.1f}" if size >= 10 else f"{value:.2f}" if size >= 0.1 else f"{value:.2g}"


def choose_unit(name, value):
    """Returns the divisor of the value, and the unit to print after it. The unit of a time depends on its size."""
    seconds = get_unit(name)
    if seconds is None:
        return 1, ""
    units = [(1 / seconds, " s"), (1e-3 / seconds, " ms"), (1e-6 / seconds, " µs")]
    return next((unit for unit in units if abs(value) >= 0.9995 * unit[0]), units[-1])


def format_value(name, value):
    if value is None:
        return "-"
    size, unit = choose_unit(name, value)
    return format_number(value / size) + unit


def format_range(name, found):
    if found is None:
        return "-"
    size, unit = choose_unit(name, found["median"])
    text = format_number(found["median"] / size) + unit
    if found.get("least", 0) < found.get("greatest", 0):
        text += f" ({format_number(found['least'] / size)} to {format_number(found['greatest'] / size)})"
    return text


def format_ratio(value, other):
    return format_number(value / other) if value is not None and other is not None and other > 0 else "-"


def format_peer(name, best):
    return f"{format_value(name, best[1])} ({best[0]})" if best else "-"


def make_row(cells):
    return "| " + " | ".join(cells) + " |"


def make_table(heads, rows):
    return "\n".join([make_row(heads), make_row(["---"] * len(heads))] + [make_row(row) for row in rows]) + "\n"


def describe_machine(results):
    machine = results["machine"]
    memory = machine.get("memory")
    parts = [
        results["date"],
        f"version {results['library']}",
        f"{machine['cores']} cores of {machine['processor']}",
        memory and f"{memory} of memory",
        machine["system"],
        machine["compiler"],
        f"load average before the start {results['load']}",
        f"passes: {results['passes']}",
    ]
    return "; ".join(part for part in parts if part) + ".\n"


def describe_systems(results):
    lines = []
    for name, system in results["systems"].items():
        threads = "a thread per task" if system["threads"] is None else f"tasks at once: {system['threads']}"
        lines.append(f"- {name}: {system['describe']}; {threads}")
    lines += [f"- left out: {what}" for what in results["left_out"]]
    return "\n".join(lines) + "\n"


def describe_verdict(results, measured, place, system=OURS):
    """Returns the targets and verdicts for a system's value. Its place is workload, case and name."""
    found = targets.find(measured, *place, system)
    words = {True: "reached", False: "**missed**", None: "-"}
    verdicts = ["-" if results["quick"] else words[target.judge(measured, *place, system)] for target in found]
    return "; ".join(target.text for target in found), "; ".join(verdicts)


def describe_place(place):
    workload, case, name = place
    return [workload, ", ".join(part for part in (case, VALUES[name][0]) if part)]


def make_target_row(results, measured, place):
    name = place[2]
    ours, floor = measured.range(*place, OURS), measured.median(*place, FLOOR)
    best = measured.best_peer(*place)
    return [
        *describe_place(place),
        format_range(name, ours),
        format_value(name, floor),
        format_ratio(ours["median"], floor),
        format_peer(name, best),
        format_ratio(ours["median"], best and best[1]),
        *describe_verdict(results, measured, place),
    ]


def make_kit_row(results, measured, place):
    name = place[2]
    kit, ours = measured.range(*place, KIT), measured.median(*place, OURS)
    return [
        *describe_place(place),
        format_range(name, kit),
        format_value(name, ours),
        format_ratio(kit["median"], ours),
        format_peer(name, measured.best_peer(*place)),
        *describe_verdict(results, measured, place, KIT),
    ]


def find_places(measured, system):
    """Returns workload, case and name of each value of the system that has a target."""
    return [
        (workload, case, name)
        for workload, cases in measured.cases.items()
        for case in cases
        for name in measured.values(workload, case)
        if measured.range(workload, case, name, system) and targets.find(measured, workload, case, name, system)
    ]


def write_targets(results):
    """Returns the table of the pool's values, with the floor and the best peer."""
    measured = Measured(results)
    heads = ["", "what", "ours: median (least to greatest)", "floor", "ours / floor"]
    heads += ["best peer", "ours / peer", "target", "verdict"]
    return make_table(heads, [make_target_row(results, measured, place) for place in find_places(measured, OURS)])


def write_kit_targets(results):
    """Returns the table of the host kit's values, with the bare functions and the best peer."""
    measured = Measured(results)
    heads = ["", "what", "kit: median (least to greatest)", "bare", "kit / bare", "best peer", "target", "verdict"]
    return make_table(heads, [make_kit_row(results, measured, place) for place in find_places(measured, KIT)])


def write_cell(measured, place, system):
    refusal = measured.refusals(*place[:2]).get(system)
    return f"not offered: {refusal}" if refusal else format_range(place[2], measured.range(*place, system))


def write_value(measured, workload, name):
    """Returns the table of one value of a workload: a row for each system, a column for each case."""
    cases = [case for case in measured.cases[workload] if name in measured.values(workload, case)]
    names = {system: None for case in cases for system in measured.medians(workload, case, name)}
    names.update({system: None for case in cases for system in measured.refusals(workload, case)})
    rows = [
        [f"**{system}**" if system == OURS else system]
        + [write_cell(measured, (workload, case, name), system) for case in cases]
        for system in names
    ]
    return make_table([VALUES[name][0]] + [case or "median (least to greatest)" for case in cases], rows)


def write_workload(measured, workload):
    names = {name: None for case in measured.cases[workload] for name in measured.values(workload, case)}
    parts = [write_value(measured, workload, name) for name in names]
    return f"## {workload}: {TITLES[workload]}\n\n" + "\n".join(parts)


def write_operations(results):
    """Returns the table of Google Benchmark's measurements. The results have its nanoseconds as microseconds."""
    rows = [
        [name, format_range("wall_us", operation["wall_us"]), format_range("cpu_us", operation["cpu_us"])]
        for name, operation in results["operations"].items()
    ]
    return "## Single operations\n\n" + make_table(["median (least to greatest)", "wall time", "CPU of the caller"], rows)


def write(results):
    measured = Measured(results)
    parts = ["# Benchmark results\n", GENERATED, describe_machine(results)]
    if results["quick"]:
        parts.append(QUICK_NOTE)
    if "note" in results:
        parts.append(results["note"] + "\n")
    parts += [describe_systems(results), "[README.md](README.md) says what each workload does.\n"]
    parts += ["## Targets\n", write_targets(results)]
    if KIT in results["systems"]:
        parts += ["## Targets of the host kit\n", write_kit_targets(results)]
    parts += [write_workload(measured, workload) for workload in measured.cases]
    if results["operations"]:
        parts.append(write_operations(results))
    return "\n".join(parts)
