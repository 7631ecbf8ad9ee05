"""Draws the pictures of the performance page. Each has a row for each system, with dots on a logarithmic axis."""
import os
import sys

from data import FLOOR, KIT, OURS, Measured

sys.path.append(os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "scripts", "drawing"))
import theme
from theme import BLUE, GRID, INK, SOFT, plt

NAMES = {OURS: "this pool", KIT: "this pool, host kit", FLOOR: "floor"}


def name_system(measured, system):
    """Returns the name to show, with the setting that limits how many tasks can block at once."""
    if system in NAMES:
        return NAMES[system]
    threads = measured.systems[system]["threads"]
    if threads is None:
        return f"{system}, a thread per task"
    return f"{system}, {threads} thread{'s' if threads > 1 else ''}"


def start_rows(names, values, form):
    """Makes an empty picture, with space for a label to the right of the greatest value."""
    figure, axes = plt.subplots(figsize=(3.4, 0.26 * len(names)))
    axes.set_xscale("log")
    theme.use_log_axis(axes.xaxis, form)
    least, greatest = min(values), max(values)
    axes.set_xlim(least / 1.6, greatest * (greatest / least) ** 0.45)
    axes.set_ylim(len(names) - 0.4, -0.6)
    axes.set_yticks(range(len(names)), names)
    axes.tick_params(axis="y", length=0)
    axes.spines["left"].set_visible(False)
    return figure, axes


def set_title(figure, axes, title):
    """Places the title above the names of the rows, because they take half of the width."""
    figure.canvas.draw()
    left = min(tick.get_window_extent().x0 for tick in axes.get_yticklabels())
    box = axes.get_window_extent()
    axes.set_title(title, x=(left - box.x0) / box.width, pad=10)


def draw_row(axes, row, points, form, ours):
    """Draws the median, and the 99th percentile if there is one, with both as text to their right."""
    colour = BLUE if ours else SOFT
    axes.plot((axes.get_xlim()[0], points[0]), (row, row), color=GRID, linewidth=1, zorder=0)
    if len(points) > 1:
        axes.plot(points, [row] * len(points), color=colour, linewidth=2)
        axes.plot(points[1:], [row], "|", color=colour, markersize=11, markeredgewidth=2.5)
    axes.plot(points[:1], [row], "o", color=colour, markersize=8)
    axes.annotate(
        " / ".join(form(point) for point in points),
        (max(points), row),
        xytext=(9, 0),
        textcoords="offset points",
        va="center_baseline",
        fontsize=9.5,
        color=BLUE if ours else INK,
        fontweight="bold" if ours else "normal",
    )


def draw_rows(measured, rows, title, label, form):
    """Draws a picture. _rows_ has the points of each system, best first."""
    names = [name_system(measured, system) for system in rows]
    figure, axes = start_rows(names, [point for points in rows.values() for point in points], form)
    for row, (system, points) in enumerate(rows.items()):
        ours = system in (OURS, KIT)
        draw_row(axes, row, points, form, ours)
        if ours:
            axes.get_yticklabels()[row].set(color=BLUE, fontweight="bold")
    axes.set_xlabel(label, labelpad=6)
    set_title(figure, axes, title)
    return figure


def collect(measured, workload, case, names, scale, best_first=1):
    """Returns the points of each system in its default configuration, best first; nothing without this pool."""
    found = [measured.medians(workload, case, name) for name in names]
    if OURS not in found[0]:
        return {}
    systems = [system for system in found[0] if system in measured.systems]
    systems.sort(key=lambda system: best_first * found[0][system])
    return {system: [medians[system] * scale for medians in found] for system in systems}


def draw_blocking(measured):
    # The floor is left out: it does not help a host to choose a pool.
    rows = collect(measured, "W1", "", ["wall_ms"], 1e-3)
    rows.pop(FLOOR, None)
    return rows and draw_rows(
        measured, rows, "300 tasks that block for 100 ms", "time until all are done, logarithmic", theme.format_time
    )


def draw_delays(measured):
    rows = collect(measured, "W3", "", ["p50_us", "p99_us"], 1e-6)
    label = "dot: median; stroke: 99th percentile; logarithmic"
    return rows and draw_rows(
        measured, rows, "From submission to start, all workers asleep", label, theme.format_time
    )


def draw_empty(measured):
    case = measured.cases["W4"][0]
    rows = collect(measured, "W4", case, ["tasks_per_s"], 1, best_first=-1)
    return rows and draw_rows(
        measured, rows, "Empty tasks, submitted at once", "tasks per second, logarithmic", theme.format_count
    )


DRAWERS = {"W1": draw_blocking, "W3": draw_delays, "W4": draw_empty}


def draw(results, paths, source):
    """Draws the results. _paths_ has a path for each workload; _source_ tells in each file which results it shows."""
    measured = Measured(results)
    with plt.rc_context(theme.STYLE):
        for workload, path in paths.items():
            figure = DRAWERS[workload](measured) if workload in measured.cases else None
            if figure:
                theme.save(figure, path, source)
