"""Results as Markdown."""
import targets
from data import FLOOR, KIT, OURS, TITLES, VALUES, Measured

QUICK_NOTE = "This was a quick run, which shows that everything works. **Its figures mean nothing**.\n"


def format_number(value):
    """Three digits that count, and no more."""
    if value is None:
        return "-"
    size = abs(value)
    if size >= 1000:
        return f"{float(f'{value:.3g}'):,.0f}"
    if size >= 100 or value == int(value):
        return f"{value:.0f}"
    return f"{value:.1f}" if size >= 10 else f"{value:.2f}" if size >= 0.1 else f"{value:.2g}"


def format_range(found):
    if found is None:
        return "-"
    median, least, greatest = found
    spread = f" ({format_number(least)}-{format_number(greatest)})" if least < greatest else ""
    return format_number(median) + spread


def format_ratio(value, other):
    return format_number(value / other) if value is not None and other is not None and other > 0 else "-"


def make_row(cells):
    return "| " + " | ".join(cells) + " |"


def make_table(heads, rows):
    return "\n".join([make_row(heads), make_row(["---"] * len(heads))] + [make_row(row) for row in rows]) + "\n"


def describe_machine(results):
    machine = results["machine"]
    return (
        f"{machine['cores']} cores of {machine['processor']}; {machine['kernel']}; {machine['compiler']}; "
        f"{machine['date']}; load average before the start {machine['load']}; passes: {results['passes']}\n"
    )


def describe_verdict(results, measured, place, system=OURS):
    """Targets and verdicts for a system's value at its place: workload, case, name."""
    found = targets.find(measured, *place, system)
    words = {True: "reached", False: "**missed**", None: "-"}
    verdicts = ["-" if results["quick"] else words[target.judge(measured, *place, system)] for target in found]
    return "; ".join(target.text for target in found), "; ".join(verdicts)


def make_target_row(results, measured, place):
    workload, case, name = place
    ours = measured.range(workload, case, name, OURS)
    floor = measured.median(workload, case, name, FLOOR)
    best = measured.best_peer(workload, case, name)
    what = ", ".join(part for part in (case, VALUES[name][0]) if part)
    return [
        workload,
        what,
        format_range(ours),
        format_number(floor),
        format_ratio(ours[0], floor),
        f"{format_number(best[1])} ({best[0]})" if best else "-",
        format_ratio(ours[0], best[1]) if best else "-",
        *describe_verdict(results, measured, place),
    ]


def write_targets(results):
    """What the pool reached, beside floor and best peer."""
    measured = Measured(results)
    heads = ["", "what", "ours: median (least-greatest)", "floor", "ours / floor"]
    heads += ["best peer", "ours / peer", "target", "verdict"]
    rows = [
        make_target_row(results, measured, (workload, case, name))
        for workload, cases in measured.cases.items()
        for case in cases
        for name in measured.values(workload, case)
        if measured.median(workload, case, name, OURS) is not None and targets.find(measured, workload, case, name)
    ]
    return make_table(heads, rows)


def make_kit_row(results, measured, place):
    workload, case, name = place
    kit = measured.range(workload, case, name, KIT)
    ours = measured.median(workload, case, name, OURS)
    best = measured.best_peer(workload, case, name)
    return [
        workload,
        ", ".join(part for part in (case, VALUES[name][0]) if part),
        format_range(kit),
        format_number(ours),
        format_ratio(kit[0], ours),
        f"{format_number(best[1])} ({best[0]})" if best else "-",
        *describe_verdict(results, measured, place, KIT),
    ]


def write_kit_targets(results):
    """What the host kit reached, beside the bare functions and the best peer."""
    measured = Measured(results)
    heads = ["", "what", "kit: median (least-greatest)", "bare", "kit / bare", "best peer", "target", "verdict"]
    rows = [
        make_kit_row(results, measured, (workload, case, name))
        for workload, cases in measured.cases.items()
        for case in cases
        for name in measured.values(workload, case)
        if measured.median(workload, case, name, KIT) is not None
        and targets.find(measured, workload, case, name, KIT)
    ]
    return make_table(heads, rows)


def write_cell(measured, workload, case, name, system):
    refusal = measured.refusals.get((workload, case, system))
    return f"not offered: {refusal}" if refusal else format_range(measured.range(workload, case, name, system))


def write_value(measured, workload, name):
    """One value of a workload: systems below each other, cases beside each other."""
    cases = [case for case in measured.cases[workload] if name in measured.values(workload, case)]
    names = {system: None for case in cases for system in measured.medians(workload, case, name)}
    names.update({system: None for at, case, system in measured.refusals if at == workload and case in cases})
    rows = [
        [f"**{system}**" if system == OURS else system]
        + [write_cell(measured, workload, case, name, system) for case in cases]
        for system in names
    ]
    return make_table([VALUES[name][0]] + [case or "median (least-greatest)" for case in cases], rows)


def write_workload(measured, workload):
    names = {name: None for case in measured.cases[workload] for name in measured.values(workload, case)}
    parts = [write_value(measured, workload, name) for name in names]
    return f"## {workload}: {TITLES[workload]}\n\n" + "\n".join(parts)


def write_operations(results):
    """What Google Benchmark measured, in nanoseconds."""
    rows = [
        [name, format_range(measurement["real_time"]), format_range(measurement["cpu_time"])]
        for name, measurement in results["operations"].items()
    ]
    heads = ["median (least-greatest)", "wall time, ns", "CPU of the caller, ns"]
    return "## Single operations\n\n" + make_table(heads, rows)


def write(results):
    measured = Measured(results)
    systems = [f"- {name}: {system['describe']}" for name, system in results["systems"].items()]
    left_out = [f"- left out: {what}" for what in results["left_out"]]
    parts = ["# Benchmark results\n", describe_machine(results)]
    if results["quick"]:
        parts.append(QUICK_NOTE)
    parts += ["\n".join(systems + left_out) + "\n", "## Targets\n", write_targets(results)]
    parts += ["## Targets of the host kit\n", write_kit_targets(results)]
    parts += [write_workload(measured, workload) for workload in measured.cases]
    if results["operations"]:
        parts.append(write_operations(results))
    return "\n".join(parts)
