"""Results as plots."""
import math
import os
import sys

from data import FLOOR, KIT, OURS, TITLES, Measured

try:
    import matplotlib
    import matplotlib.ticker

    matplotlib.use("svg")
    import matplotlib.pyplot as plt
except ImportError:
    plt = None

COLOURS = {
    OURS: "#d1344b",
    FLOOR: "#4a4a4a",
    KIT: "#e98a98",
    "Qt": "#5b9e6f",
    "GLib": "#7c78b8",
    "Boost.Asio": "#4f8fc0",
    "oneTBB": "#c99a3b",
    "Poco": "#4fa8a3",
    "libuv": "#b9749f",
    "std::async": "#9a8a78",
}
OTHER_COLOUR = "#a8a8a8"
GRID_COLOUR = "#e3e3e3"
TEXT_COLOUR = "#333333"
STYLE = {
    "svg.fonttype": "none",
    "svg.hashsalt": "benchmarks",
    "font.family": "sans-serif",
    "font.sans-serif": ["Helvetica", "Arial", "DejaVu Sans"],
    "font.size": 10,
    "axes.titlesize": 12,
    "axes.titleweight": "bold",
    "axes.titlelocation": "left",
    "axes.edgecolor": "#999999",
    "axes.labelcolor": TEXT_COLOUR,
    "axes.spines.top": False,
    "axes.spines.right": False,
    "axes.axisbelow": True,
    "xtick.color": TEXT_COLOUR,
    "ytick.color": TEXT_COLOUR,
    "text.color": TEXT_COLOUR,
    "legend.frameon": False,
}


def colour_of(system):
    return COLOURS.get(system.partition("/")[0], OTHER_COLOUR)


def shorten(value):
    """A number for a label: 1.2M, 34k, 560, 7.8."""
    for size, letter in ((1e6, "M"), (1e3, "k")):
        if abs(value) >= size:
            return f"{value / size:.3g}{letter}"
    return f"{value:.3g}"


def emphasise(axes, labels):
    """Ours stands out among the labels."""
    for label, system in zip(labels, (label.get_text() for label in labels)):
        if system == OURS:
            label.set_fontweight("bold")
            label.set_color(COLOURS[OURS])


def use_log_axis(axis):
    axis.set_major_formatter(matplotlib.ticker.FuncFormatter(lambda value, _: shorten(value)))
    axis.set_minor_formatter(matplotlib.ticker.NullFormatter())


def save(figure, folder, name):
    figure.savefig(os.path.join(folder, name + ".svg"), bbox_inches="tight", metadata={"Date": None})
    plt.close(figure)


def draw_bars(folder, name, title, label, values, log=False):
    """A bar a system, best labelled at its end; _values_ by system."""
    values = {system: value for system, value in values.items() if value is not None and value > 0}
    if not values:
        return
    figure, axes = plt.subplots(figsize=(7.5, 0.8 + 0.32 * len(values)))
    rows = range(len(values))
    axes.barh(
        rows,
        values.values(),
        color=[colour_of(system) for system in values],
        height=0.7,
    )
    if log:
        axes.set_xscale("log")
        use_log_axis(axes.xaxis)
        axes.set_xlim(min(values.values()) / 2, max(values.values()) * 2.5)
    else:
        axes.xaxis.set_major_formatter(matplotlib.ticker.FuncFormatter(lambda value, _: shorten(value)))
        axes.set_xlim(0, max(values.values()) * 1.12)
    for row, (system, value) in zip(rows, values.items()):
        axes.annotate(
            shorten(value),
            (value, row),
            xytext=(4, 0),
            textcoords="offset points",
            va="center",
            fontsize=9,
            fontweight="bold" if system == OURS else "normal",
        )
    axes.set_yticks(rows, values.keys())
    axes.tick_params(axis="y", length=0)
    axes.invert_yaxis()
    axes.grid(axis="x", color=GRID_COLOUR)
    axes.set_xlabel(label)
    axes.set_title(title)
    emphasise(axes, axes.get_yticklabels())
    save(figure, folder, name)


def draw_delays(folder, name, title, measured, workload):
    """Median and 99th percentile of each system on one line."""
    medians = measured.medians(workload, "", "p50_us")
    if not medians:
        return
    tails = measured.medians(workload, "", "p99_us")
    figure, axes = plt.subplots(figsize=(7.5, 1.0 + 0.32 * len(medians)))
    for row, (system, median) in enumerate(medians.items()):
        colour = colour_of(system)
        axes.plot([median, tails[system]], [row, row], color=colour, linewidth=4 if system == OURS else 2.5, alpha=0.5)
        axes.plot(median, row, "o", color=colour, markersize=8)
        axes.plot(tails[system], row, "|", color=colour, markersize=13, markeredgewidth=3)
        text = f"{shorten(median)} / {shorten(tails[system])}"
        axes.annotate(
            text,
            (max(median, tails[system]), row),
            xytext=(9, 0),
            textcoords="offset points",
            va="center",
            fontsize=9,
            fontweight="bold" if system == OURS else "normal",
        )
    axes.set_xscale("log")
    use_log_axis(axes.xaxis)
    least, greatest = min(medians.values()), max(list(tails.values()) + list(medians.values()))
    axes.set_xlim(least / 2, greatest * (greatest / least) ** 0.3 * 1.5)
    axes.set_ylim(len(medians) - 0.4, -0.6)
    axes.set_yticks(range(len(medians)), medians.keys())
    axes.tick_params(axis="y", length=0)
    axes.grid(axis="x", color=GRID_COLOUR)
    axes.set_xlabel("µs, logarithmic; dot: median, stroke: 99th percentile")
    axes.set_title(title)
    emphasise(axes, axes.get_yticklabels())
    save(figure, folder, name)


def spread(heights, least_gap, lowest):
    """Heights for labels that do not touch, none below _lowest_, in the order of _heights_."""
    order = sorted(range(len(heights)), key=lambda number: heights[number])
    placed = dict(enumerate(heights))
    for _ in range(200):
        placed[order[0]] = max(placed[order[0]], lowest)
        for lower, upper in zip(order, order[1:]):
            overlap = least_gap - (placed[upper] - placed[lower])
            if overlap > 0:
                placed[lower] -= overlap / 2
                placed[upper] += overlap / 2
    return [placed[number] for number in range(len(heights))]


def label_ends(figure, axes, ends):
    """The name of each line at its right end; _ends_ by system, in data coordinates."""
    figure.canvas.draw()
    heights = [axes.transData.transform(end)[1] for end in ends.values()]
    points = figure.dpi / 72
    lowest = axes.get_window_extent().y0 + 6 * points
    for (system, end), height, wanted in zip(ends.items(), heights, spread(heights, 12 * points, lowest)):
        axes.annotate(
            system,
            end,
            xytext=(9, (wanted - height) / points),
            textcoords="offset points",
            va="center",
            fontsize=9.5,
            color=colour_of(system),
            fontweight="bold" if system == OURS else "normal",
            annotation_clip=False,
        )


def draw_lines(folder, name, title, labels, lines, log=True, ticks=None):
    """A line a system; _lines_ by system: lists of x and y. _labels_ of both axes."""
    lines = {system: line for system, line in lines.items() if line[0]}
    if not lines:
        return
    figure, axes = plt.subplots(figsize=(7.5, 4.2))
    for system, (places, values) in lines.items():
        ours = system == OURS
        axes.plot(
            places,
            values,
            marker="o",
            color=colour_of(system),
            linewidth=3 if ours else 1.8,
            markersize=6 if ours else 4,
            linestyle="--" if system == FLOOR else "-",
            zorder=3 if ours else 2,
        )
    if log:
        axes.set_yscale("log")
    else:
        axes.set_ylim(bottom=0)
    use_log_axis(axes.yaxis)
    if ticks:
        axes.set_xticks(*ticks)
    else:
        axes.xaxis.set_major_formatter(matplotlib.ticker.FuncFormatter(lambda value, _: shorten(value)))
    axes.grid(color=GRID_COLOUR)
    axes.set_xlabel(labels[0])
    axes.set_ylabel(labels[1])
    axes.set_title(title)
    label_ends(figure, axes, {system: (line[0][-1], line[1][-1]) for system, line in lines.items()})
    save(figure, folder, name)


def draw_loops(folder, measured):
    """CPU of the loop tasks: groups of bars, a group a load."""
    cases = measured.cases["W6"]
    systems = {system: None for case in cases for system in measured.medians("W6", case, "cpu_percent")}
    if not systems:
        return
    figure, axes = plt.subplots(figsize=(7.5, 1.0 + 0.24 * len(systems) * len(cases)))
    step = len(systems) + 1
    greatest = 0
    for offset, system in enumerate(systems):
        for group, case in enumerate(cases):
            value = measured.median("W6", case, "cpu_percent", system)
            if value is None:
                continue
            row = group * step + offset
            greatest = max(greatest, value)
            axes.barh(row, value, color=colour_of(system), height=0.8)
            axes.annotate(
                f"{system}  {shorten(value)}",
                (value, row),
                xytext=(4, 0),
                textcoords="offset points",
                va="center",
                fontsize=9,
                fontweight="bold" if system == OURS else "normal",
            )
    axes.set_yticks(
        [group * step + (len(systems) - 1) / 2 for group in range(len(cases))],
        [case.replace(" beside", "\nbeside") for case in cases],
    )
    axes.tick_params(axis="y", length=0)
    axes.invert_yaxis()
    axes.set_xlim(0, greatest * 1.25)
    axes.grid(axis="x", color=GRID_COLOUR)
    axes.set_xlabel("CPU, % of a core")
    axes.set_title("Loop tasks: CPU")
    save(figure, folder, "W6-cpu")


def collect_lines(measured, workload, name, factor=1.0):
    """By system: where cases stand, and the medians there."""
    lines = {}
    for case in measured.cases[workload]:
        for system, value in measured.medians(workload, case, name).items():
            places, values = lines.setdefault(system, ([], []))
            places.append(measured.positions[workload, case])
            values.append(value * factor)
    return lines


def draw_submitters(folder, measured):
    lines = collect_lines(measured, "W10", "submissions_per_s")
    places = [math.log2(measured.positions["W10", case]) for case in measured.cases["W10"]]
    ticks = (places, [f"{2 ** place:.0f}" for place in places])
    lines = {system: ([math.log2(place) for place in line[0]], line[1]) for system, line in lines.items()}
    labels = ("submitting threads", "submissions a second, logarithmic")
    draw_lines(folder, "W10-submitters", TITLES["W10"], labels, lines, ticks=ticks)


def draw_finished(folder, measured):
    """The first case stands for none finished, which has no place on a logarithmic axis."""
    cases = measured.cases["W11"]
    names = [shorten(measured.positions["W11", case]) for case in cases]
    for name, what in (("cpu_us", "CPU"), ("wall_us", "wall time")):
        lines = collect_lines(measured, "W11", name)
        lines = {system: (list(range(len(line[0]))), line[1]) for system, line in lines.items()}
        labels = ("tasks that have run before", f"{what} of a task, µs, logarithmic")
        title = f"{TITLES['W11']}: {what}"
        draw_lines(folder, f"W11-{name[:-3]}", title, labels, lines, ticks=(range(len(cases)), names))


def draw_memory(folder, measured):
    """Peers keep next to nothing: one line stands for all of them."""
    lines = collect_lines(measured, "W8", "heap_mb")
    kept = {system: lines[system] for system in (OURS, FLOOR) if system in lines}
    peers = [line for system, line in lines.items() if measured.is_peer(system)]
    if peers:
        kept["any peer"] = (peers[0][0], [max(values) for values in zip(*(line[1] for line in peers))])
    kept = {system: ([0] + line[0], [0] + line[1]) for system, line in kept.items()}
    draw_lines(folder, "W8-memory", TITLES["W8"], ("tasks that have run", "heap, MB"), kept, log=False)


def draw_throughput(folder, measured):
    for case in measured.cases["W4"]:
        values = measured.medians("W4", case, "tasks_per_s")
        name = f"W4-{case.replace(' ', '-')}"
        draw_bars(folder, name, f"{case}, empty, submitted at once", "tasks a second, logarithmic", values, True)


def draw_plain(folder, measured, workload, value, label, log):
    draw_bars(folder, workload, TITLES[workload], label, measured.medians(workload, "", value), log)


DRAWERS = {
    "W1": lambda folder, measured: draw_plain(
        folder, measured, "W1", "wall_ms", "ms until all are done, logarithmic", True
    ),
    "W3": lambda folder, measured: draw_delays(folder, "W3-start-delay", TITLES["W3"], measured, "W3"),
    "W4": draw_throughput,
    "W4b": lambda folder, measured: draw_plain(
        folder, measured, "W4b", "used_percent", "% of all cores put to use", False
    ),
    "W6": draw_loops,
    "W8": draw_memory,
    "W9": lambda folder, measured: draw_delays(
        folder, "W9-start-delay", "1,000 tasks a second: submission to start", measured, "W9"
    ),
    "W10": draw_submitters,
    "W11": draw_finished,
}


def draw(results, folder):
    """A file for each workload that was measured and is worth one."""
    if plt is None:
        print("left out: plots (python3-matplotlib is not installed)", file=sys.stderr)
        return
    os.makedirs(folder, exist_ok=True)
    measured = Measured(results)
    with plt.rc_context(STYLE):
        for workload, drawer in DRAWERS.items():
            if workload in measured.cases:
                drawer(folder, measured)
