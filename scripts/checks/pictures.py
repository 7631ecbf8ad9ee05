#!/usr/bin/env python3
"""Draws the pictures of docs/see-it-work.md. The same traces give the same pictures.

    pictures.py TRACES FOLDER

TRACES   folder of what trace_scenes has written: burst.json, cancel.json, loops.json, workers.json
FOLDER   where the pictures go
"""
import argparse
import json
import os
import re
import statistics

import matplotlib

matplotlib.use("svg")
import matplotlib.pyplot as plt
from matplotlib.collections import LineCollection

BLUE, RED, GREY, LIGHT, GRID = "#2f6db3", "#d1344b", "#8a8a8a", "#d9e4f1", "#e8e8e8"
STYLE = {
    "svg.hashsalt": "pictures",
    "font.family": "DejaVu Sans",
    "font.size": 10,
    "figure.facecolor": "white",
    "axes.titlesize": 11,
    "axes.titleweight": "bold",
    "axes.titlelocation": "left",
    "axes.edgecolor": "#999999",
    "axes.spines.top": False,
    "axes.spines.right": False,
    "axes.axisbelow": True,
    "axes.grid": True,
    "axes.grid.axis": "x",
    "grid.color": GRID,
    "text.color": "#222222",
    "legend.frameon": False,
    "legend.fontsize": 9,
}


class Span:
    """Something from its begin to its end, in seconds."""

    def __init__(self, event, lane):
        self.name = event["name"]
        self.category = event["cat"]
        self.arguments = event.get("args", {})
        self.lane = lane
        self.begin = event["ts"] / 1e6
        self.end = self.begin


class Trace:
    def __init__(self, folder, scene):
        self.spans = []
        self.cancelled = {}  # task to time
        self.ends = {}  # worker to the end of its thread
        with open(os.path.join(folder, scene + ".json")) as file:
            events = json.load(file)
        lanes, open_spans = {}, {}
        for event in events:
            lane = lanes.get(event["tid"])
            if event["ph"] == "M" and event["name"] == "thread_name":
                worker = re.fullmatch(r"zel-worker-(\d+)", event["args"]["name"])
                lanes[event["tid"]] = int(worker[1]) if worker else -1
            elif event["ph"] == "B":
                open_spans[event["tid"]] = Span(event, lane)
                self.spans.append(open_spans[event["tid"]])
            elif event["ph"] == "E":
                open_spans[event["tid"]].end = event["ts"] / 1e6
            elif event.get("cat") == "cancel":
                self.cancelled[event["args"]["task"]] = event["ts"] / 1e6
            elif event.get("cat") == "thread":
                self.ends[lane] = event["ts"] / 1e6

    def select(self, category, name=None):
        chosen = [span for span in self.spans if span.category == category and name in (None, span.name)]
        return sorted(chosen, key=lambda span: span.begin)

    def tasks(self, category):
        return {span.arguments["task"]: span for span in self.select(category)}


def draw_bars(axes, bars, colour, width):
    """_bars_: left, right and height of each; _width_ in points."""
    lines = [((left, row), (right, row)) for left, right, row in bars]
    axes.add_collection(LineCollection(lines, colors=colour, linewidths=width, capstyle="butt"))


def count_steps(spans):
    """Times and how many spans there are from then on."""
    changes = sorted([(span[0], 1) for span in spans] + [(span[1], -1) for span in spans])
    times, counts, count = [], [], 0
    for time, change in changes:
        count += change
        times.append(time)
        counts.append(count)
    return times, counts


def draw_workers(traces):
    trace = Trace(traces, "workers")
    runs = trace.select("run")
    start = min(span.begin for span in trace.spans)

    def minutes(time):
        return (time - start) / 60

    bars = [(minutes(run.begin), minutes(run.end), run.lane) for run in runs]
    lives = {}
    for left, _, lane in bars:
        lives.setdefault(lane, (left, minutes(trace.ends[lane])))
    figure, (top, bottom) = plt.subplots(
        2, figsize=(9, 5.6), sharex=True, gridspec_kw={"height_ratios": [1, 2.3], "hspace": 0.12}
    )
    times, counts = count_steps(lives.values())
    top.fill_between([0] + times, [0] + counts, step="post", color=LIGHT)
    top.step([0] + times, [0] + counts, where="post", color=GREY, linewidth=1)
    times, counts = count_steps([bar[:2] for bar in bars])
    top.fill_between([0] + times, [0] + counts, step="post", color=BLUE)
    top.text(2.2, len(lives) + 0.7, "workers", color="#555555")
    top.text(0.62, 19.5, "running tasks", color=BLUE)
    top.set_ylabel("number")
    top.set_ylim(0, len(lives) * 1.2)
    top.set_title("Workers are made when all are busy, and retired when idle for five minutes")

    draw_bars(bottom, [(life[0], life[1], lane) for lane, life in lives.items()], LIGHT, 6)
    draw_bars(bottom, bars, BLUE, 6)
    retired = sorted({round(life[1], 2) for life in lives.values()})
    for time in retired:
        for axes in (top, bottom):
            axes.axvline(time, color=RED, linewidth=1, linestyle=(0, (4, 3)))
    many = sum(1 for life in lives.values() if round(life[1], 2) == retired[0])
    text = f"pass of the watchdog:\n{many} workers have been\nidle for 5 min or more"
    bottom.text(retired[0] + 0.08, 15, text, color=RED)
    bottom.text(retired[-1] - 0.08, 6, "the next pass\nretires the last", color=RED, ha="right")
    last = max(run.end for run in runs if run.lane == 0)
    bottom.annotate(
        "worker 0 is used first, so it stays",
        (minutes(last), 0.3),
        (2.2, 4.5),
        arrowprops={"arrowstyle": "-", "color": "#555555", "linewidth": 0.8},
        color="#555555",
        backgroundcolor=LIGHT,
    )
    bottom.set_ylabel("worker (order id)")
    bottom.set_xlabel("minutes since the first submission")
    bottom.set_xlim(0, 9.4)
    bottom.set_ylim(-1, len(lives))
    return figure


def draw_burst(traces):
    trace = Trace(traces, "burst")
    submissions, runs = trace.tasks("submit"), trace.tasks("run")
    tasks = sorted(runs)
    figure, panels = plt.subplots(1, 2, figsize=(9, 4.6), sharey=True, gridspec_kw={"wspace": 0.1})
    titles = ("300 tasks that block, on a fresh pool", "300 more, 100 ms later")
    for panel, burst, title in zip(panels, (tasks[:300], tasks[300:]), titles):
        start = min(submissions[task].begin for task in burst)
        bars = [(1e3 * (runs[task].begin - start), 1e3 * (runs[task].end - start), runs[task].lane) for task in burst]
        draw_bars(panel, bars, BLUE, 1.2)
        submitted = 1e3 * (max(submissions[task].end for task in burst) - start)
        panel.axvline(submitted, color=RED, linewidth=1.2)
        started, done = max(bar[0] for bar in bars), max(bar[1] for bar in bars)
        summary = f"submitted in {submitted:.1f} ms (red line), started in {started:.0f}, done in {done:.0f}"
        panel.text(0, 1.02, summary, transform=panel.transAxes, fontsize=8, color="#555555")
        panel.set_title(title, pad=18)
        panel.set_xlabel("ms since the first submission")
        panel.set_xlim(0, 150)
        panel.set_ylim(-3, 303)
    panels[0].set_ylabel("worker (order id)")
    return figure


def draw_cancel(traces):
    trace = Trace(traces, "cancel")
    submissions, runs = trace.tasks("submit"), trace.tasks("run")
    remove = trace.select("remove", "removed")[0]
    owned = {
        owner: [task for task in submissions if submissions[task].name == owner] for owner in ("removed", "staying")
    }
    start = min(submissions[tasks[0]].begin for tasks in owned.values())

    def after(time):
        return 1e3 * (time - start)

    figure, axes = plt.subplots(figsize=(9, 5.2))
    axes.axvspan(after(remove.begin), after(remove.end), color="#f6e3e5", linewidth=0)
    row, ticks = 0, []
    for (owner, tasks), colour in zip(owned.items(), (RED, BLUE)):
        ticks.append(row + (len(tasks) - 1) / 2)
        waits, bars, crosses = [], [], []
        for task in tasks:
            end = runs[task].begin if task in runs else trace.cancelled[task]
            waits.append((after(submissions[task].begin), after(end), row))
            if task in runs:
                bars.append((after(runs[task].begin), after(runs[task].end), row))
            else:
                crosses.append((after(end), row))
            row += 1
        draw_bars(axes, waits, "#b5b5b5", 1)
        draw_bars(axes, bars, colour, 5)
        axes.plot(*zip(*crosses) if crosses else ((), ()), "x", color=colour, markersize=6, markeredgewidth=1.6)
        row += 1.5
    middle = (after(remove.begin) + after(remove.end)) / 2
    axes.text(middle, -1.3, "RemoveTmpTask(first owner)", color=RED, ha="center", va="center")
    axes.text(after(remove.end) + 14, len(owned["removed"]) - 4.5, "never started", color=RED, va="center")
    samples = (
        axes.plot((), (), color="#b5b5b5", linewidth=1)[0],
        axes.plot((), (), color="#555555", linewidth=5)[0],
        axes.plot((), (), "x", color="#555555", markersize=6, markeredgewidth=1.6)[0],
    )
    axes.legend(samples, ("waits", "runs", "is cancelled"), loc="upper right", title="A task", alignment="left")
    axes.set_title("One owner's tasks are removed while another's go on")
    axes.set_yticks(ticks, ["first owner,\n20 tasks", "second owner,\n20 tasks"])
    axes.tick_params(axis="y", length=0)
    axes.set_ylim(row - 1, -2.6)
    axes.set_xlim(0, after(max(run.end for run in runs.values() if run.name == "staying")) * 1.12)
    axes.set_xlabel("ms since the first submission; other tasks have left 12 workers free")
    return figure


def draw_loops(traces):
    trace = Trace(traces, "loops")
    intervals = sorted({span.arguments["interval_ms"] for span in trace.select("loop")})
    start = min(span.begin for span in trace.select("loop"))
    figure, (left, right) = plt.subplots(1, 2, figsize=(9, 3.9), gridspec_kw={"width_ratios": [1.5, 1], "wspace": 0.1})
    for row, interval in enumerate(intervals):
        loops = trace.select("loop", f"every {interval} ms")
        bars = [(1e3 * (loop.begin - start), 1e3 * (loop.end - start), row) for loop in loops]
        draw_bars(left, [bar for bar in bars if bar[0] < 400], BLUE, 14)
        delays = [1e3 * (later.begin - loop.end) - interval for loop, later in zip(loops, loops[1:])]
        bins = [0.5 * step for step in range(31)]
        counts = [sum(low <= delay < low + 0.5 for delay in delays) for low in bins]
        heights = [0.75 * count / max(counts) for count in counts]
        right.bar(bins, heights, width=0.45, bottom=row - 0.35, align="edge", color=BLUE)
        median, most = statistics.median(delays), statistics.quantiles(delays, n=100)[98]
        text = f"median {median:.1f} ms, 99 % below {most:.1f} ms"
        right.text(14.9, row + 0.5, text, ha="right", va="center", fontsize=8.5)
    left.set_title("Loop tasks: an interval lies between runs")
    left.set_yticks(range(len(intervals)), [f"{interval} ms" for interval in intervals])
    left.set_ylabel("interval")
    left.set_xlabel("ms since the first run; each takes 1 to 11 ms")
    left.set_xlim(0, 400)
    right.set_title("and what comes on top")
    right.set_yticks([])
    right.set_xlabel("ms from when a run is due to its start")
    right.set_xlim(0, 15)
    right.set_xticks((0, 5, 10, 15))
    right.yaxis.set_label_position("right")
    right.set_ylabel("share of starts")
    for axes in (left, right):
        axes.set_ylim(-0.5, len(intervals) - 0.3)
    return figure


SCENES = {"workers": draw_workers, "burst": draw_burst, "cancel": draw_cancel, "loops": draw_loops}


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("traces")
    parser.add_argument("folder")
    arguments = parser.parse_args()
    os.makedirs(arguments.folder, exist_ok=True)
    with plt.rc_context(STYLE):
        for scene, draw in SCENES.items():
            figure = draw(arguments.traces)
            path = os.path.join(arguments.folder, scene + ".svg")
            figure.savefig(path, bbox_inches="tight", metadata={"Date": None})
            plt.close(figure)
            print(path)


if __name__ == "__main__":
    main()
